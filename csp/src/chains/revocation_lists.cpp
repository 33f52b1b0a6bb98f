#include "chains/revocation_lists.hpp"

#include "chains/crl_order.hpp"
#include "chains/element_signature.hpp"
#include "core/warning.hpp"

#include <openssl/x509v3.h>

#include <algorithm>
#include <set>

namespace klunortredi::csp {

namespace {

/// Signatures checked for the CRLs of one path: two issuers with as many lists as are looked at, each up to about 2 ms
/// with the GOST engine.
constexpr std::size_t mostSignatureChecks = 128;
/// Certificates outside of the path under the name of one CRL issuer.
constexpr std::size_t mostOutsideIssuers = 8;

using DistributionPoints = std::unique_ptr<CRL_DIST_POINTS, ossl::Deleter<CRL_DIST_POINTS_free>>;

/// A name under which CRLs concern elements of the path.
struct CrlIssuer {
    ossl::X509NamePtr name;
    std::set<std::size_t> elements{};
    std::vector<std::shared_ptr<X509_CRL>> open{}; ///< not yet known to be of this issuer
};

/// Collects names, each once.
class Names {
public:
    void add(const X509_NAME* name, std::size_t element) {
        auto held = std::ranges::find_if(
            issuers_, [&](const CrlIssuer& issuer) { return X509_NAME_cmp(issuer.name.get(), name) == 0; });
        if (held == issuers_.end()) {
            held = issuers_.insert(held, CrlIssuer{ossl::X509NamePtr(X509_NAME_dup(name))});
        }
        held->elements.insert(element);
    }
    /// The CRL issuers that the certificate's distribution points name (RFC 5280, 4.2.1.13).
    void addCrlIssuers(const X509* certificate, std::size_t element) {
        const DistributionPoints points(static_cast<CRL_DIST_POINTS*>(
            X509_get_ext_d2i(certificate, NID_crl_distribution_points, nullptr, nullptr)));
        for (int i = 0; i < sk_DIST_POINT_num(points.get()); ++i) {
            const GENERAL_NAMES* const issuers = sk_DIST_POINT_value(points.get(), i)->CRLissuer;
            for (int j = 0; j < sk_GENERAL_NAME_num(issuers); ++j) {
                const GENERAL_NAME* const issuer = sk_GENERAL_NAME_value(issuers, j);
                if (issuer->type == GEN_DIRNAME) {
                    add(issuer->d.directoryName, element);
                }
            }
        }
    }
    [[nodiscard]] std::vector<CrlIssuer>& all() noexcept { return issuers_; }

private:
    std::vector<CrlIssuer> issuers_;
};

/// Takes the lists that the path's own certificates sign before it looks at any certificate outside: what a message
/// brings under an issuer's name costs only what is left.
class CrlSelection {
public:
    CrlSelection(const Path& path, ChainSources& sources) : path_(path), sources_(sources) {}

    PathCrls run() {
        Names names;
        for (std::size_t i = 0; i < path_.certificates.size(); ++i) {
            names.add(X509_get_issuer_name(path_.certificates[i]->x509.get()), i);
            names.addCrlIssuers(path_.certificates[i]->x509.get(), i);
        }
        for (CrlIssuer& issuer : names.all()) {
            takeSignedByPath(issuer);
        }
        for (CrlIssuer& issuer : names.all()) {
            takeSignedOutside(issuer);
        }
        std::ranges::stable_sort(chosen_.lists, isNewerCrl);
        std::ranges::stable_sort(chosen_.ofAnchor, isNewerCrl);
        return std::move(chosen_);
    }

private:
    void takeSignedByPath(CrlIssuer& issuer) {
        IssuerCrls found = sources_.crlsOf(issuer.name.get());
        if (!found.complete) {
            leaveUnjudged(issuer);
        }
        for (auto& crl : found.lists) {
            const bool ofPath = std::ranges::any_of(path_.certificates, [&](const Candidate* element) {
                return X509_NAME_cmp(X509_get_subject_name(element->x509.get()), issuer.name.get()) == 0 &&
                       signs(*element, crl.get(), issuer);
            });
            (ofPath ? chosen_.lists : issuer.open).push_back(std::move(crl));
        }
    }

    void takeSignedOutside(CrlIssuer& issuer) {
        if (issuer.open.empty()) {
            return;
        }
        const std::vector<const Candidate*> named = namedOutside(issuer);
        const std::vector<const Candidate*> outside =
            those(named, [&](const Candidate& candidate) { return isIssuedByPath(candidate, issuer); });
        const std::vector<const Candidate*> ofAnchor =
            those(named, [&](const Candidate& candidate) { return issuedAnchor(candidate, issuer); });
        for (auto& crl : issuer.open) {
            if (const Candidate* const signer = signerOf(crl.get(), outside, issuer)) {
                if (std::ranges::find(chosen_.issuers, signer) == chosen_.issuers.end()) {
                    chosen_.issuers.push_back(signer);
                }
                chosen_.lists.push_back(std::move(crl));
            } else if (signerOf(crl.get(), ofAnchor, issuer) != nullptr) {
                chosen_.ofAnchor.push_back(std::move(crl));
            } else {
                warn("a CRL without a valid signature of its issuer is left out");
            }
        }
    }

    template <class Wanted>
    static std::vector<const Candidate*> those(std::vector<const Candidate*> candidates, const Wanted& wanted) {
        std::erase_if(candidates, [&](const Candidate* candidate) { return !wanted(*candidate); });
        return candidates;
    }

    const Candidate* signerOf(X509_CRL* crl, const std::vector<const Candidate*>& candidates, const CrlIssuer& issuer) {
        const auto signer = std::ranges::find_if(
            candidates, [&](const Candidate* candidate) { return signs(*candidate, crl, issuer); });
        return signer == candidates.end() ? nullptr : *signer;
    }

    /// The certificates outside of the path under the issuer's name.
    std::vector<const Candidate*> namedOutside(const CrlIssuer& issuer) {
        const std::size_t most = mostOutsideIssuers + path_.certificates.size();
        std::vector<const Candidate*> outside = sources_.named(issuer.name.get(), most + 1);
        std::erase_if(outside, [&](const Candidate* candidate) {
            return std::ranges::find(path_.certificates, candidate) != path_.certificates.end();
        });
        if (outside.size() > mostOutsideIssuers) {
            outside.resize(mostOutsideIssuers);
            leaveUnjudged(issuer);
        }
        return outside;
    }

    /// Who signs the CRLs of an issuer must be from an authority of the path: whoever brings certificates could
    /// otherwise name a CRL issuer as he likes.
    bool isIssuedByPath(const Candidate& outside, const CrlIssuer& issuer) {
        return std::ranges::any_of(path_.certificates, [&](const Candidate* element) {
            return X509_check_issued(element->x509.get(), outside.x509.get()) == X509_V_OK && spend(issuer) &&
                   verifiesSignature(outside.x509.get(), element->x509.get());
        });
    }

    /// Whether the certificate's key signed that of an anchor which is not self-signed.
    bool issuedAnchor(const Candidate& outside, const CrlIssuer& issuer) {
        X509* const last = path_.certificates.back()->x509.get();
        return path_.anchored && issuer.elements.contains(path_.certificates.size() - 1) &&
               X509_NAME_cmp(X509_get_subject_name(last), X509_get_issuer_name(last)) != 0 &&
               X509_check_issued(outside.x509.get(), last) == X509_V_OK && spend(issuer) &&
               verifiesSignature(last, outside.x509.get());
    }

    bool signs(const Candidate& signer, X509_CRL* crl, const CrlIssuer& issuer) {
        return (X509_get_key_usage(signer.x509.get()) & KU_CRL_SIGN) != 0 && spend(issuer) &&
               verifiesSignature(crl, signer.x509.get());
    }

    bool spend(const CrlIssuer& issuer) {
        if (checksLeft_ == 0) {
            leaveUnjudged(issuer);
            return false;
        }
        --checksLeft_;
        return true;
    }

    void leaveUnjudged(const CrlIssuer& issuer) {
        warn("there are more CRLs under an issuer's name than are looked at");
        chosen_.unjudged.insert(issuer.elements.begin(), issuer.elements.end());
    }

    const Path& path_;
    ChainSources& sources_;
    PathCrls chosen_;
    std::size_t checksLeft_ = mostSignatureChecks;
};

std::int64_t secondsSince(const ASN1_TIME* moment, std::time_t time) {
    std::tm parts{};
    return moment == nullptr || ASN1_TIME_to_tm(moment, &parts) == 0 ? 0 : time - timegm(&parts);
}

DWORD resultOf(DWORD errors) {
    if ((errors & capi::CERT_TRUST_IS_REVOKED) != 0) {
        return capi::CRYPT_E_REVOKED;
    }
    return (errors & capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN) != 0 ? capi::CRYPT_E_REVOCATION_OFFLINE : 0;
}

} // namespace

PathCrls crlsOf(const Path& path, ChainSources& sources) {
    return CrlSelection(path, sources).run();
}

ElementRevocation revocationOf(const OcspAnswer& answer, std::time_t time) {
    ElementRevocation revocation;
    revocation.answer = answer;
    revocation.result = statusAt(answer, time) == OcspAnswer::Status::Revoked ? capi::CRYPT_E_REVOKED : 0;
    revocation.freshness = static_cast<DWORD>(std::clamp<std::int64_t>(time - answer.thisUpdate, 0, ~0U));
    return revocation;
}

std::optional<ElementRevocation> revocationOf(const AppliedCrls& applied, X509* certificate, DWORD errors,
                                              std::time_t time) {
    if (!applied.base && !applied.delta) {
        return std::nullopt;
    }
    ElementRevocation revocation{applied.base, applied.delta, nullptr, nullptr, {}, resultOf(errors), 0};
    for (const auto& crl : {applied.delta, applied.base}) { // the delta's entry is the newer one
        X509_REVOKED* entry = nullptr;
        if (crl && revocation.entry == nullptr && X509_CRL_get0_by_cert(crl.get(), &entry, certificate) != 0) {
            revocation.entry = entry;
            revocation.entryOf = crl;
        }
    }
    const auto& newest = applied.delta ? applied.delta : applied.base;
    const std::int64_t age = secondsSince(X509_CRL_get0_lastUpdate(newest.get()), time);
    revocation.freshness = static_cast<DWORD>(std::clamp<std::int64_t>(age, 0, ~0U));
    return revocation;
}

} // namespace klunortredi::csp
