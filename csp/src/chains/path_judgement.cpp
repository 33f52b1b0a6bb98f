#include "chains/path_judgement.hpp"

#include "chains/element_signature.hpp"
#include "chains/further_lists.hpp"
#include "chains/rollover.hpp"
#include "chains/trust_status.hpp"
#include "core/error.hpp"
#include "x509/x509_der.hpp"

#include <openssl/x509_vfy.h>

#include <algorithm>
#include <set>

namespace klunortredi::csp {

namespace {

using X509StorePtr = std::unique_ptr<X509_STORE, ossl::Deleter<X509_STORE_free>>;
using X509StoreCtx = std::unique_ptr<X509_STORE_CTX, ossl::Deleter<X509_STORE_CTX_free>>;
/// The stacks alone; what is in them is somebody else's.
using X509Stack = std::unique_ptr<STACK_OF(X509), decltype([](STACK_OF(X509) * stack) { sk_X509_free(stack); })>;
using CrlStack =
    std::unique_ptr<STACK_OF(X509_CRL), decltype([](STACK_OF(X509_CRL) * stack) { sk_X509_CRL_free(stack); })>;

bool looksAtRevocation(const ChainRequest& request) {
    return request.revocation != RevocationCheck::None || request.listsAtHand;
}

unsigned long verifyFlags(const Path& path, const ChainRequest& request) {
    // An anchor is trusted because it lies in "root", self-signed or not; policies are always processed (RFC
    // 5280, 6.1).
    unsigned long flags = X509_V_FLAG_PARTIAL_CHAIN | X509_V_FLAG_POLICY_CHECK;
    if (!path.anchored) {
        flags |= X509_V_FLAG_CHECK_SS_SIGNATURE; // an anchor's own signature says nothing (RFC 5280, 6.1.1 d)
    }
    if (looksAtRevocation(request)) {
        flags |= X509_V_FLAG_CRL_CHECK | X509_V_FLAG_EXTENDED_CRL_SUPPORT | X509_V_FLAG_USE_DELTAS;
    }
    if (request.revocation != RevocationCheck::EndCertificate) {
        flags |= X509_V_FLAG_CRL_CHECK_ALL;
    }
    const RequestedPolicies& policies = request.policies;
    const auto add = [&flags](bool wanted, unsigned long flag) { flags |= wanted ? flag : 0UL; };
    add(policies.required || !policies.oids.empty(), X509_V_FLAG_EXPLICIT_POLICY);
    add(policies.withoutMapping, X509_V_FLAG_INHIBIT_MAP);
    add(policies.withoutAnyPolicy, X509_V_FLAG_INHIBIT_ANY);
    return flags;
}

/// The certificates of a path as OpenSSL judges them: each one's issuer is the next.
class PathCertificates {
public:
    explicit PathCertificates(const Path& path) {
        for (std::size_t i = 0; i < path.certificates.size(); ++i) {
            X509* certificate = path.certificates[i]->x509.get();
            if (looksSelfSigned(certificate) && hasIssuer(path, i)) {
                copies_.push_back(withForeignKeyIdentifier(certificate));
                certificate = copies_.back().get();
            }
            list_.push_back(certificate);
        }
    }
    [[nodiscard]] const std::vector<X509*>& all() const noexcept { return list_; }

private:
    /// Whether another certificate is the issuer: the next of the path, or one that is not at hand. A certificate
    /// without an authority key identifier and without a signature of its own key is not called forged.
    static bool hasIssuer(const Path& path, std::size_t index) {
        X509* const certificate = path.certificates[index]->x509.get();
        return index + 1 < path.certificates.size() ||
               (!path.anchored && (path.cyclic || X509_get0_authority_key_id(certificate) == nullptr) &&
                !verifiesSignature(certificate, certificate));
    }

    std::vector<ossl::X509Ptr> copies_;
    std::vector<X509*> list_;
};

/// Runs the verification of one path.
class Verification {
public:
    Verification(const Path& path, const PathCrls& crls, const ChainRequest& request)
        : path_(path), certificates_(path), crls_(crls), request_(request), judgement_{Findings(request.time), {}},
          store_(trustStore(path)), untrusted_(untrusted()), lists_(lists(crls)), context_(X509_STORE_CTX_new()) {
        if (!context_ || X509_STORE_CTX_init(context_.get(), store_.get(), at(0), untrusted_.get()) != 1) {
            fail(capi::ERROR_NOT_ENOUGH_MEMORY);
        }
        X509_STORE_CTX_set0_crls(context_.get(), lists_.get());
        X509_STORE_CTX_set_app_data(context_.get(), this);
        X509_STORE_CTX_set_flags(context_.get(), verifyFlags(path, request));
        X509_STORE_CTX_set_depth(context_.get(), static_cast<int>(longestPath));
        X509_STORE_CTX_set_time(context_.get(), 0, request.time);
        acceptPolicies();
    }

    PathJudgement run() {
        const int result = X509_verify_cert(context_.get());
        Findings& findings = judgement_.findings;
        if (findings.failure != 0) {
            fail(findings.failure);
        }
        if (result < 0) {
            noteAbort();
        }
        if (!coversPolicies()) {
            findings.note(X509_V_ERR_NO_EXPLICIT_POLICY, 0);
        }
        judgement_.crls.resize(path_.certificates.size());
        return std::move(judgement_);
    }

private:
    /// OpenSSL gives up on a certificate whose public key it cannot decode, and on a policy tree beyond its limit,
    /// which it reports as lack of memory.
    void noteAbort() {
        const int error = X509_STORE_CTX_get_error(context_.get());
        if (error != X509_V_ERR_OUT_OF_MEM) {
            return judgement_.findings.note(X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, 0);
        }
        const bool policies = std::ranges::any_of(path_.certificates, [](const Candidate* candidate) {
            return X509_get_ext_by_NID(candidate->x509.get(), NID_certificate_policies, -1) >= 0;
        });
        judgement_.findings.note(policies ? X509_V_ERR_INVALID_POLICY_EXTENSION : error, 0);
    }

    static X509StorePtr trustStore(const Path& path) {
        X509StorePtr store(X509_STORE_new());
        if (!store) {
            fail(capi::ERROR_NOT_ENOUGH_MEMORY);
        }
        if (path.anchored) {
            X509_STORE_add_cert(store.get(), path.certificates.back()->x509.get());
        }
        X509_STORE_set_verify_cb(store.get(), collectProblem);
        X509_STORE_set_check_issued(store.get(), isIssuer);
        X509_STORE_set_get_issuer(store.get(), trustedIssuer);
        X509_STORE_set_cert_crl(store.get(), applyCrl);
        return store;
    }

    [[nodiscard]] X509Stack untrusted() const {
        X509Stack stack(sk_X509_new_null());
        const auto push = [&](X509* certificate) {
            if (!stack || sk_X509_push(stack.get(), certificate) == 0) {
                fail(capi::ERROR_NOT_ENOUGH_MEMORY);
            }
        };
        const std::size_t end = path_.certificates.size() - (path_.anchored ? 1 : 0);
        for (std::size_t i = 1; i < end; ++i) {
            push(at(i));
        }
        for (const Candidate* const issuer : crls_.issuers) {
            push(issuer->x509.get());
        }
        return stack;
    }

    /// Given as a list, because OpenSSL looks in a store for the CRLs of a certificate's own issuer only, and so misses
    /// those of another CRL issuer (RFC 5280, 5.2.5).
    static CrlStack lists(const PathCrls& crls) {
        CrlStack stack(sk_X509_CRL_new_null());
        for (const auto& crl : crls.lists) {
            if (!stack || sk_X509_CRL_push(stack.get(), crl.get()) == 0) {
                fail(capi::ERROR_NOT_ENOUGH_MEMORY);
            }
        }
        return stack;
    }

    /// Without named policies the initial policy set is any-policy (RFC 5280, 6.1.1 c). OpenSSL takes an unset one for
    /// an empty one.
    void acceptPolicies() {
        const std::vector<std::string>& wanted = request_.policies.oids;
        if (wanted.empty()) {
            return acceptPolicy(ossl::Asn1Object(OBJ_dup(OBJ_nid2obj(NID_any_policy))));
        }
        for (const std::string& oid : wanted) {
            ossl::Asn1Object policy(OBJ_txt2obj(oid.c_str(), 1));
            if (!policy) {
                fail(capi::ERROR_INVALID_PARAMETER);
            }
            acceptPolicy(std::move(policy));
        }
    }

    void acceptPolicy(ossl::Asn1Object policy) {
        if (!policy || X509_VERIFY_PARAM_add0_policy(X509_STORE_CTX_get0_param(context_.get()), policy.get()) != 1) {
            fail(capi::ERROR_NOT_ENOUGH_MEMORY);
        }
        static_cast<void>(policy.release());
    }

    /// Whether the chain is valid for every policy that the caller names, where one is not enough. OpenSSL has seen to
    /// it that it is valid for one.
    [[nodiscard]] bool coversPolicies() const {
        const RequestedPolicies& wanted = request_.policies;
        if (wanted.any || wanted.oids.size() < 2) {
            return true;
        }
        const X509_POLICY_TREE* const tree = X509_STORE_CTX_get0_policy_tree(context_.get());
        const STACK_OF(X509_POLICY_NODE)* const valid =
            tree == nullptr ? nullptr : X509_policy_tree_get0_user_policies(tree);
        std::set<std::string> held;
        for (int i = 0; i < sk_X509_POLICY_NODE_num(valid); ++i) {
            held.insert(ossl::oidText(X509_policy_node_get0_policy(sk_X509_POLICY_NODE_value(valid, i))));
        }
        return std::ranges::all_of(wanted.oids, [&](const std::string& oid) { return held.contains(oid); });
    }

    [[nodiscard]] X509* at(std::size_t index) const { return certificates_.all()[index]; }

    static Verification& of(X509_STORE_CTX* context) {
        while (X509_STORE_CTX* const parent = X509_STORE_CTX_get0_parent_ctx(context)) {
            context = parent;
        }
        return *static_cast<Verification*>(X509_STORE_CTX_get_app_data(context));
    }

    /// Place of a certificate in the path, by its address; nothing for another.
    [[nodiscard]] std::optional<std::size_t> place(const X509* certificate) const {
        const std::vector<X509*>& all = certificates_.all();
        const auto found = std::ranges::find(all, certificate);
        return found == all.end() ? std::nullopt
                                  : std::optional(static_cast<std::size_t>(std::distance(all.begin(), found)));
    }

    /// What a CRL issuer's own chain may lack: the status of that certificate, where nobody asked for it.
    [[nodiscard]] bool acceptedOfCrlIssuer(X509_STORE_CTX* context) const {
        const int error = X509_STORE_CTX_get_error(context);
        const TrustProblem* const problem = trustProblem(error);
        const bool unknown = problem != nullptr && problem->bits == capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN;
        return (unknown && request_.revocation == RevocationCheck::None) ||
               isWithinLastSecond(context, error, request_.time);
    }

    // The functions below are called by OpenSSL, which no exception may cross.

    /// Goes on after every problem.
    static int collectProblem(int fine, X509_STORE_CTX* context) {
        if (fine != 0) {
            return 1;
        }
        Verification& verification = of(context);
        if (X509_STORE_CTX_get0_parent_ctx(context) != nullptr) {
            // The path of a CRL's issuer: the answer for the certificate comes from the outer verification.
            return verification.acceptedOfCrlIssuer(context) ? 1 : 0;
        }
        return guard<int>(0, [&] {
            try {
                verification.judgement_.findings.note(context, verification.appliedNow_);
                return 1;
            } catch (const ApiError& error) {
                verification.judgement_.findings.failure = error.code();
                return 0;
            }
        });
    }

    /// In the path, each certificate's issuer is the next one; the issuers of CRLs are found by what they say.
    static int isIssuer(X509_STORE_CTX* context, X509* subject, X509* issuer) {
        if (X509_STORE_CTX_get0_parent_ctx(context) != nullptr) {
            return X509_check_issued(issuer, subject) == X509_V_OK ? 1 : 0;
        }
        const Verification& verification = of(context);
        const auto at = verification.place(subject);
        return at && *at + 1 < verification.path_.certificates.size() && verification.at(*at + 1) == issuer ? 1 : 0;
    }

    static int trustedIssuer(X509** issuer, X509_STORE_CTX* context, X509* subject) {
        if (X509_STORE_CTX_get0_parent_ctx(context) != nullptr) {
            return X509_STORE_CTX_get1_issuer(issuer, context, subject);
        }
        const Verification& verification = of(context);
        const Path& path = verification.path_;
        const auto at = verification.place(subject);
        const std::size_t last = path.certificates.size() - 1;
        const bool own =
            at == last && X509_NAME_cmp(X509_get_subject_name(subject), X509_get_issuer_name(subject)) == 0;
        if (!path.anchored || !at || (*at + 1 != last && !own)) {
            return 0;
        }
        *issuer = verification.at(last);
        X509_up_ref(*issuer);
        return 1;
    }

    /// Notes which CRL a certificate of the path is held against, and leaves the rest to OpenSSL.
    static int applyCrl(X509_STORE_CTX* context, X509_CRL* crl, X509* certificate) {
        static const X509_STORE_CTX_cert_crl_fn original = originalCrlFunction();
        const int depth = X509_STORE_CTX_get_error_depth(context);
        if (X509_STORE_CTX_get0_parent_ctx(context) == nullptr && depth >= 0) {
            Verification& verification = of(context);
            const int noted = guard<int>(0, [&] {
                verification.appliedNow_ = crl;
                verification.noteCrl(static_cast<std::size_t>(depth), crl);
                return 1;
            });
            if (noted == 0) {
                verification.judgement_.findings.failure = capi::ERROR_NOT_ENOUGH_MEMORY;
                return 0;
            }
        }
        return original(context, crl, certificate);
    }

    void noteCrl(std::size_t depth, const X509_CRL* crl) {
        const auto held = std::ranges::find(crls_.lists, crl, &std::shared_ptr<X509_CRL>::get);
        if (held == crls_.lists.end()) {
            return;
        }
        judgement_.crls.resize(std::max(judgement_.crls.size(), path_.certificates.size()));
        const bool delta = X509_CRL_get_ext_by_NID(crl, NID_delta_crl, -1) >= 0;
        AppliedCrls& applied = judgement_.crls.at(depth);
        (delta ? applied.delta : applied.base) = *held;
    }

    static X509_STORE_CTX_cert_crl_fn originalCrlFunction() {
        const X509StorePtr store(X509_STORE_new());
        const X509StoreCtx context(X509_STORE_CTX_new());
        if (!store || !context || X509_STORE_CTX_init(context.get(), store.get(), nullptr, nullptr) != 1) {
            return nullptr;
        }
        return X509_STORE_CTX_get_cert_crl(context.get());
    }

    const Path& path_;
    const PathCertificates certificates_;
    const PathCrls& crls_;
    const ChainRequest& request_;
    PathJudgement judgement_;
    X509_CRL* appliedNow_ = nullptr; ///< OpenSSL does not say which when it reports a revoked certificate
    X509StorePtr store_;
    X509Stack untrusted_;
    CrlStack lists_;
    X509StoreCtx context_;
};

} // namespace

PathJudgement judgePath(const Path& path, const PathCrls& crls, const ChainRequest& request) {
    PathJudgement judgement = Verification(path, crls, request).run();
    applyFurtherLists(path, crls, request.time, judgement);
    return judgement;
}

} // namespace klunortredi::csp
