#include "chains/chain_builder.hpp"

#include "chains/chain_sources.hpp"
#include "chains/trust_status.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/engine.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/signature.hpp"
#include "x509/blob.hpp"
#include "x509/enhanced_key_usage.hpp"
#include "x509/x509_der.hpp"

#include <openssl/x509_vfy.h>

#include <algorithm>
#include <optional>
#include <set>

namespace klunortredi::csp {

namespace {

using X509StorePtr = std::unique_ptr<X509_STORE, ossl::Deleter<X509_STORE_free>>;
using X509StoreCtx = std::unique_ptr<X509_STORE_CTX, ossl::Deleter<X509_STORE_CTX_free>>;
/// The stacks alone; what is in them is somebody else's.
using X509Stack = std::unique_ptr<STACK_OF(X509), decltype([](STACK_OF(X509) * stack) { sk_X509_free(stack); })>;
using CrlStack =
    std::unique_ptr<STACK_OF(X509_CRL), decltype([](STACK_OF(X509_CRL) * stack) { sk_X509_CRL_free(stack); })>;

/// What the verification finds, certificate by certificate.
class Findings {
public:
    void note(int error, int depth) {
        const TrustProblem* const problem = trustProblem(error);
        if (problem == nullptr) {
            fail(error == X509_V_ERR_OUT_OF_MEM ? capi::ERROR_NOT_ENOUGH_MEMORY : capi::NTE_FAIL);
        }
        const auto index = static_cast<std::size_t>(std::max(depth, 0));
        if (problem->unusableCrl) {
            unusableCrl_.insert(index);
        }
        if (problem->bits == capi::CERT_TRUST_IS_REVOKED && unusableCrl_.contains(index)) {
            return; // OpenSSL goes on with a CRL whose signature is wrong; what it says is worth nothing
        }
        if (problem->ofChain) {
            chain_ |= problem->bits;
            return;
        }
        if (elements_.size() <= index) {
            elements_.resize(index + 1);
        }
        elements_[index] |= problem->bits;
    }

    [[nodiscard]] DWORD ofElement(std::size_t index) const noexcept {
        return index < elements_.size() ? elements_[index] : 0;
    }
    [[nodiscard]] DWORD ofChain() const noexcept { return chain_; }

    DWORD failure = 0; ///< code to throw once OpenSSL has returned

private:
    std::vector<DWORD> elements_;
    std::set<std::size_t> unusableCrl_;
    DWORD chain_ = 0;
};

/// Called by OpenSSL, which no exception may cross: goes on after every problem.
int collectProblem(int fine, X509_STORE_CTX* context) {
    if (fine != 0) {
        return 1;
    }
    if (X509_STORE_CTX_get0_parent_ctx(context) != nullptr) {
        return 0; // the path of a CRL's issuer: the answer for the certificate comes from the outer verification
    }
    auto& findings = *static_cast<Findings*>(X509_STORE_CTX_get_app_data(context));
    return guard<int>(0, [&] {
        try {
            findings.note(X509_STORE_CTX_get_error(context), X509_STORE_CTX_get_error_depth(context));
            return 1;
        } catch (const ApiError& error) {
            findings.failure = error.code();
            return 0;
        }
    });
}

unsigned long verifyFlags(RevocationCheck revocation) {
    // An anchor is trusted because it lies in "root", self-signed or not; policies are always processed (RFC
    // 5280, 6.1).
    unsigned long flags = X509_V_FLAG_PARTIAL_CHAIN | X509_V_FLAG_POLICY_CHECK | X509_V_FLAG_CHECK_SS_SIGNATURE;
    if (revocation != RevocationCheck::None) {
        flags |= X509_V_FLAG_CRL_CHECK | X509_V_FLAG_EXTENDED_CRL_SUPPORT | X509_V_FLAG_USE_DELTAS;
    }
    if (revocation == RevocationCheck::Chain || revocation == RevocationCheck::ChainExcludeRoot) {
        flags |= X509_V_FLAG_CRL_CHECK_ALL;
    }
    return flags;
}

X509StorePtr trustStore(const ChainSources& sources) {
    X509StorePtr store(X509_STORE_new());
    if (!store) {
        fail(capi::ERROR_NOT_ENOUGH_MEMORY);
    }
    for (const Candidate& anchor : sources.anchors) {
        X509_STORE_add_cert(store.get(), anchor.x509.get());
    }
    return store;
}

/// Given as a list, because OpenSSL looks in a store for the CRLs of a certificate's own issuer only, and so misses
/// those of another CRL issuer (RFC 5280, 5.2.5).
CrlStack revocationLists(const ChainSources& sources) {
    CrlStack stack(sk_X509_CRL_new_null());
    for (const auto& crl : sources.crls) {
        if (!stack || sk_X509_CRL_push(stack.get(), crl.get()) == 0) {
            fail(capi::ERROR_NOT_ENOUGH_MEMORY);
        }
    }
    return stack;
}

X509Stack untrusted(const ChainSources& sources) {
    X509Stack stack(sk_X509_new_null());
    for (const Candidate& issuer : sources.issuers) {
        if (!stack || sk_X509_push(stack.get(), issuer.x509.get()) == 0) {
            fail(capi::ERROR_NOT_ENOUGH_MEMORY);
        }
    }
    return stack;
}

bool selfIssued(const X509* certificate) {
    return X509_NAME_cmp(X509_get_subject_name(certificate), X509_get_issuer_name(certificate)) == 0;
}

/// The engine takes a signature value with octets behind it. Only the exact length is a GOST signature.
bool exactSignature(const X509* certificate, const X509* issuer) {
    const EVP_PKEY* const key = X509_get0_pubkey(issuer);
    const ASN1_BIT_STRING* signature = nullptr;
    X509_get0_signature(&signature, nullptr, certificate);
    const std::set<int> gostKeys{NID_id_GostR3410_2001, NID_id_GostR3410_2012_256, NID_id_GostR3410_2012_512};
    return key == nullptr || !gostKeys.contains(EVP_PKEY_get_id(key)) ||
           static_cast<std::size_t>(ASN1_STRING_length(signature)) == signatureSize(key);
}

DWORD information(X509* certificate, X509* issuer) {
    if (issuer == nullptr) {
        return selfIssued(certificate) ? capi::CERT_TRUST_IS_SELF_SIGNED : 0;
    }
    const ASN1_OCTET_STRING* const named = X509_get0_authority_key_id(certificate);
    const ASN1_OCTET_STRING* const own = X509_get0_subject_key_id(issuer);
    const bool byKey = named != nullptr && own != nullptr && ASN1_OCTET_STRING_cmp(named, own) == 0;
    return byKey ? capi::CERT_TRUST_HAS_KEY_MATCH_ISSUER : capi::CERT_TRUST_HAS_NAME_MATCH_ISSUER;
}

/// Usages of the certificate within those that its issuers leave.
std::optional<std::vector<std::string>> usageWithin(const Certificate& certificate,
                                                    const std::optional<std::vector<std::string>>& above) {
    auto own = enhancedKeyUsage(certificate, 0);
    if (!own || std::ranges::find(*own, anyEnhancedKeyUsage) != own->end()) {
        return above;
    }
    if (above) {
        std::erase_if(*own, [&](const std::string& oid) { return std::ranges::find(*above, oid) == above->end(); });
    }
    return own;
}

bool allows(const std::optional<std::vector<std::string>>& usage, const RequestedUsage& requested) {
    const auto holds = [&](const std::string& oid) { return std::ranges::find(*usage, oid) != usage->end(); };
    if (!usage || requested.oids.empty()) {
        return true;
    }
    return requested.any ? std::ranges::any_of(requested.oids, holds) : std::ranges::all_of(requested.oids, holds);
}

void judgeUsage(std::vector<ChainElement>& elements, const RequestedUsage& requested) {
    std::optional<std::vector<std::string>> above;
    for (auto element = elements.rbegin(); element != elements.rend(); ++element) {
        try {
            element->usage = above = usageWithin(*element->certificate, above);
        } catch (const ApiError&) {
            element->errors |= capi::CERT_TRUST_INVALID_EXTENSION;
            continue;
        }
        if (!allows(element->usage, requested)) {
            element->errors |= capi::CERT_TRUST_IS_NOT_VALID_FOR_USAGE;
        }
    }
}

/// Runs the verification of one certificate.
class Verification {
public:
    Verification(const ChainSources& sources, const ChainRequest& request)
        : store_(trustStore(sources)), untrusted_(untrusted(sources)), crls_(revocationLists(sources)),
          target_(ossl::fromDer<ossl::X509Ptr>(d2i_X509, request.certificate->encoded())),
          context_(X509_STORE_CTX_new()) {
        if (!context_ || !target_ ||
            X509_STORE_CTX_init(context_.get(), store_.get(), target_.get(), untrusted_.get()) != 1) {
            fail(capi::ERROR_NOT_ENOUGH_MEMORY);
        }
        X509_STORE_CTX_set0_crls(context_.get(), crls_.get());
        X509_STORE_CTX_set_app_data(context_.get(), &findings_);
        X509_STORE_CTX_set_verify_cb(context_.get(), collectProblem);
        X509_STORE_CTX_set_flags(context_.get(), verifyFlags(request.revocation));
        X509_STORE_CTX_set_time(context_.get(), 0, request.time);
        acceptAnyPolicy();
    }

    void run() {
        const int result = X509_verify_cert(context_.get());
        if (findings_.failure != 0) {
            fail(findings_.failure);
        }
        if (result < 0) {
            // OpenSSL gives up on a certificate whose public key it cannot decode.
            const bool memory = X509_STORE_CTX_get_error(context_.get()) == X509_V_ERR_OUT_OF_MEM;
            findings_.note(memory ? X509_V_ERR_OUT_OF_MEM : X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, 0);
        }
    }

    [[nodiscard]] const Findings& findings() const noexcept { return findings_; }
    /// The certificates of the chain, the target first.
    [[nodiscard]] std::vector<X509*> chain() const {
        STACK_OF(X509)* const stack = X509_STORE_CTX_get0_chain(context_.get());
        std::vector<X509*> list;
        for (int i = 0; i < sk_X509_num(stack); ++i) {
            list.push_back(sk_X509_value(stack, i));
        }
        if (list.empty()) {
            list.push_back(target_.get());
        }
        return list;
    }

private:
    /// The initial policy set is any-policy (RFC 5280, 6.1.1 c). OpenSSL takes an unset one for an empty one.
    void acceptAnyPolicy() {
        ossl::Asn1Object anyPolicy(OBJ_dup(OBJ_nid2obj(NID_any_policy)));
        if (!anyPolicy ||
            X509_VERIFY_PARAM_add0_policy(X509_STORE_CTX_get0_param(context_.get()), anyPolicy.get()) != 1) {
            fail(capi::ERROR_NOT_ENOUGH_MEMORY);
        }
        static_cast<void>(anyPolicy.release());
    }

    X509StorePtr store_;
    X509Stack untrusted_;
    CrlStack crls_;
    ossl::X509Ptr target_;
    Findings findings_;
    X509StoreCtx context_;
};

DWORD elementErrors(const Verification& verification, const std::vector<X509*>& chain, std::size_t index,
                    RevocationCheck revocation) {
    constexpr DWORD revocationBits = capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN | capi::CERT_TRUST_IS_REVOKED;
    DWORD errors = verification.findings().ofElement(index);
    const bool end = index + 1 == chain.size();
    if (end && revocation == RevocationCheck::ChainExcludeRoot && selfIssued(chain[index])) {
        errors &= ~revocationBits;
    }
    const X509* const signer = end ? chain[index] : chain[index + 1];
    if ((!end || selfIssued(chain[index])) && !exactSignature(chain[index], signer)) {
        errors |= capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID;
    }
    return errors;
}

/// Whether OpenSSL needs the engine to judge the certificate: to decode its key, or to check its issuer's signature.
bool needsEngine(const X509* certificate) {
    ASN1_OBJECT* key = nullptr;
    X509_PUBKEY_get0_param(&key, nullptr, nullptr, nullptr, X509_get_X509_PUBKEY(certificate));
    const KeyAlgorithm* const own = findKey(ossl::oidText(key));
    const X509_ALGOR* signature = nullptr;
    X509_get0_signature(nullptr, &signature, certificate);
    const SignatureAlgorithm* const issuers = findSignature(ossl::oidText(signature->algorithm));
    return (own != nullptr && own->gost) || (issuers != nullptr && findKey(issuers->keyOid)->gost);
}

/// OpenSSL decodes a GOST key only with the engine there. The failure to load it, or nothing.
std::optional<ApiError> loadEngine() {
    try {
        gostEngine();
        return {};
    } catch (const ApiError& error) {
        return error;
    }
}

} // namespace

BuiltChain buildChain(const ChainRequest& request) {
    const ossl::ErrorMark mark;
    const std::optional<ApiError> withoutEngine = loadEngine();
    const ChainSources sources(request.additional);
    Verification verification(sources, request);
    verification.run();

    BuiltChain built;
    built.errors = verification.findings().ofChain();
    const std::vector<X509*> chain = verification.chain();
    // Chains of other keys work without the engine; of these, what was found would be no verdict.
    if (withoutEngine && std::ranges::any_of(chain, needsEngine)) {
        throw *withoutEngine;
    }
    for (std::size_t i = 0; i < chain.size(); ++i) {
        ChainElement element;
        const Candidate* const known = i == 0 ? nullptr : sources.find(chain[i]);
        element.certificate = known == nullptr ? request.certificate : known->certificate;
        element.store = known == nullptr ? nullptr : known->store;
        element.errors = elementErrors(verification, chain, i, request.revocation);
        element.information = information(chain[i], i + 1 < chain.size() ? chain[i + 1] : nullptr);
        if (sources.disallowed.contains(element.certificate->thumbprint())) {
            element.errors |= capi::CERT_TRUST_IS_EXPLICIT_DISTRUST;
        }
        built.elements.push_back(std::move(element));
    }
    judgeUsage(built.elements, request.usage);
    for (const ChainElement& element : built.elements) {
        built.errors |= element.errors;
    }
    return built;
}

} // namespace klunortredi::csp
