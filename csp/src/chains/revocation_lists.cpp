#include "chains/revocation_lists.hpp"

#include "chains/element_signature.hpp"
#include "core/warning.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

/// CRL signatures checked for one path: an issuer has a few lists, and hostile ones must not add up.
constexpr std::size_t mostSignatureChecks = 64;
/// Certificates outside of the path under the name of one CRL issuer.
constexpr std::size_t mostOutsideIssuers = 8;

using DistributionPoints = std::unique_ptr<CRL_DIST_POINTS, ossl::Deleter<CRL_DIST_POINTS_free>>;

/// Collects names, each once.
class Names {
public:
    void add(const X509_NAME* name) {
        const bool known =
            std::ranges::any_of(names_, [&](const auto& held) { return X509_NAME_cmp(held.get(), name) == 0; });
        if (!known) {
            names_.emplace_back(X509_NAME_dup(name));
        }
    }
    /// The CRL issuers that the certificate's distribution points name (RFC 5280, 4.2.1.13).
    void addCrlIssuers(const X509* certificate) {
        const DistributionPoints points(static_cast<CRL_DIST_POINTS*>(
            X509_get_ext_d2i(certificate, NID_crl_distribution_points, nullptr, nullptr)));
        for (int i = 0; i < sk_DIST_POINT_num(points.get()); ++i) {
            const GENERAL_NAMES* const issuers = sk_DIST_POINT_value(points.get(), i)->CRLissuer;
            for (int j = 0; j < sk_GENERAL_NAME_num(issuers); ++j) {
                const GENERAL_NAME* const issuer = sk_GENERAL_NAME_value(issuers, j);
                if (issuer->type == GEN_DIRNAME) {
                    add(issuer->d.directoryName);
                }
            }
        }
    }
    [[nodiscard]] const std::vector<ossl::X509NamePtr>& all() const noexcept { return names_; }

private:
    std::vector<ossl::X509NamePtr> names_;
};

class CrlSelection {
public:
    CrlSelection(const Path& path, ChainSources& sources) : path_(path), sources_(sources) {}

    PathCrls run() {
        Names names;
        for (const Candidate* const element : path_.certificates) {
            names.add(X509_get_issuer_name(element->x509.get()));
            names.addCrlIssuers(element->x509.get());
        }
        for (const auto& name : names.all()) {
            for (auto& crl : sources_.crlsOf(name.get())) {
                select(std::move(crl));
            }
        }
        return std::move(chosen_);
    }

private:
    void select(std::shared_ptr<X509_CRL> crl) {
        const X509_NAME* const issuer = X509_CRL_get_issuer(crl.get());
        const bool ofPath = std::ranges::any_of(
            path_.certificates, [&](const Candidate* element) { return signs(*element, issuer, crl.get()); });
        if (ofPath) {
            chosen_.lists.push_back(std::move(crl));
            return;
        }
        for (const Candidate* const outside : sources_.named(issuer, mostOutsideIssuers)) {
            if (isIssuedByPath(*outside) && signs(*outside, issuer, crl.get())) {
                if (std::ranges::find(chosen_.issuers, outside) == chosen_.issuers.end()) {
                    chosen_.issuers.push_back(outside);
                }
                chosen_.lists.push_back(std::move(crl));
                return;
            }
        }
        warn("a CRL without a valid signature of its issuer is left out");
    }

    bool signs(const Candidate& issuer, const X509_NAME* name, X509_CRL* crl) {
        return X509_NAME_cmp(X509_get_subject_name(issuer.x509.get()), name) == 0 && spend() &&
               verifiesSignature(crl, issuer.x509.get());
    }

    /// A CRL issuer outside of the path must have its certificate from an authority of the path: whoever brings
    /// certificates could otherwise name one as he likes.
    bool isIssuedByPath(const Candidate& outside) {
        return std::ranges::any_of(path_.certificates, [&](const Candidate* element) {
            return element != &outside && X509_check_issued(element->x509.get(), outside.x509.get()) == X509_V_OK &&
                   spend() && verifiesSignature(outside.x509.get(), element->x509.get());
        });
    }

    bool spend() {
        if (checksLeft_ == 0) {
            return false;
        }
        --checksLeft_;
        return true;
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

std::optional<ElementRevocation> revocationOf(const AppliedCrls& applied, X509* certificate, DWORD errors,
                                              std::time_t time) {
    if (!applied.base && !applied.delta) {
        return std::nullopt;
    }
    ElementRevocation revocation{applied.base, applied.delta, nullptr, nullptr, resultOf(errors), 0};
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
