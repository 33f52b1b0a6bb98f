#include "chains/further_lists.hpp"

#include "capi/constants.hpp"
#include "chains/crl_order.hpp"
#include "x509/x509_der.hpp"

#include <openssl/x509_vfy.h>

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

using Number = std::unique_ptr<ASN1_INTEGER, ossl::Deleter<ASN1_INTEGER_free>>;
using Reason = std::unique_ptr<ASN1_ENUMERATED, ossl::Deleter<ASN1_ENUMERATED_free>>;

/// The number of the complete CRL that a delta goes with; null for a complete CRL.
Number baseNumber(const X509_CRL* crl) {
    return Number(static_cast<ASN1_INTEGER*>(X509_CRL_get_ext_d2i(crl, NID_delta_crl, nullptr, nullptr)));
}

ByteView extensionOctets(const X509_CRL* crl, int nid) {
    const int at = X509_CRL_get_ext_by_NID(crl, nid, -1);
    return at < 0 ? ByteView{} : ossl::octets(X509_EXTENSION_get_data(X509_CRL_get_ext(crl, at)));
}

/// Whether both are of one issuer and its key, for the same certificates and reasons.
bool sameScope(const X509_CRL* left, const X509_CRL* right) {
    return X509_NAME_cmp(X509_CRL_get_issuer(left), X509_CRL_get_issuer(right)) == 0 &&
           std::ranges::all_of(std::array{NID_authority_key_identifier, NID_issuing_distribution_point}, [&](int nid) {
               return std::ranges::equal(extensionOctets(left, nid), extensionOctets(right, nid));
           });
}

bool isDeltaOf(const X509_CRL* delta, const X509_CRL* base) {
    const Number from = baseNumber(delta);
    const Number held(static_cast<ASN1_INTEGER*>(X509_CRL_get_ext_d2i(base, NID_crl_number, nullptr, nullptr)));
    return from && held && sameScope(delta, base) && ASN1_INTEGER_cmp(from.get(), held.get()) <= 0 &&
           compareCrlNumbers(delta, base) == std::partial_ordering::greater;
}

/// Whether both are complete CRLs of one moment, of which `other` is not the older by its number.
bool isTwinOf(const X509_CRL* other, const X509_CRL* base) {
    return !baseNumber(other) && !baseNumber(base) && sameScope(other, base) &&
           ASN1_TIME_compare(X509_CRL_get0_lastUpdate(other), X509_CRL_get0_lastUpdate(base)) == 0 &&
           compareCrlNumbers(other, base) != std::partial_ordering::less;
}

enum class Says { Nothing, Revoked, Removed };

Says saysOf(X509_CRL* crl, X509* certificate, std::time_t time) {
    X509_REVOKED* entry = nullptr;
    if (X509_CRL_get0_by_cert(crl, &entry, certificate) == 0) {
        return Says::Nothing;
    }
    if (ASN1_TIME_cmp_time_t(X509_CRL_get0_lastUpdate(crl), time) == 1 &&
        ASN1_TIME_cmp_time_t(X509_REVOKED_get0_revocationDate(entry), time) == 1) {
        return Says::Nothing; // a list of a later time revokes what was revoked by then
    }
    const Reason reason(
        static_cast<ASN1_ENUMERATED*>(X509_REVOKED_get_ext_d2i(entry, NID_crl_reason, nullptr, nullptr)));
    return reason && ASN1_ENUMERATED_get(reason.get()) == CRL_REASON_REMOVE_FROM_CRL ? Says::Removed : Says::Revoked;
}

/// Whether a delta CRL may know of revocations that `base` does not have; `base` may be null.
bool isLaterDelta(const X509_CRL* delta, const X509_CRL* base) {
    if (!baseNumber(delta)) {
        return false;
    }
    if (base == nullptr) {
        return true;
    }
    const std::partial_ordering numbers = compareCrlNumbers(delta, base);
    return sameScope(delta, base) && numbers != std::partial_ordering::unordered
               ? numbers == std::partial_ordering::greater
               : ASN1_TIME_compare(X509_CRL_get0_lastUpdate(delta), X509_CRL_get0_lastUpdate(base)) > 0;
}

/// Whether the list is of the certificate's issuer or of that of its base CRL.
bool isOfIssuer(const X509_CRL* crl, const X509* certificate, const X509_CRL* base) {
    const X509_NAME* const issuer = X509_CRL_get_issuer(crl);
    return X509_NAME_cmp(issuer, X509_get_issuer_name(certificate)) == 0 ||
           (base != nullptr && X509_NAME_cmp(issuer, X509_CRL_get_issuer(base)) == 0);
}

/// What the delta CRLs, the newest first, say of the certificate. Where one revokes it, `applied` has that list.
Says saysOfDeltas(const PathCrls& crls, X509* certificate, std::time_t time, AppliedCrls& applied) {
    const X509_CRL* const base = applied.base.get();
    for (const auto& crl : crls.lists) {
        if (!isLaterDelta(crl.get(), base) || !isOfIssuer(crl.get(), certificate, base)) {
            continue;
        }
        const Says says = saysOf(crl.get(), certificate, time);
        if (says == Says::Revoked) {
            applied.delta = crl;
        }
        // Only a delta of the base at hand removes an entry of it.
        if (says == Says::Revoked || (says == Says::Removed && base != nullptr && isDeltaOf(crl.get(), base))) {
            return says;
        }
    }
    return Says::Nothing;
}

/// Holds the certificate against further lists; whether one of them revokes it. Then `applied` has that list.
bool isRevokedByFurther(const PathCrls& crls, X509* certificate, std::time_t time, AppliedCrls& applied) {
    const Says deltas = saysOfDeltas(crls, certificate, time, applied);
    if (deltas != Says::Nothing || !applied.base) {
        return deltas == Says::Revoked;
    }
    if (saysOf(applied.base.get(), certificate, time) == Says::Removed) {
        return true; // a complete CRL removes nothing
    }
    const auto twin = std::ranges::find_if(crls.lists, [&](const auto& crl) {
        return isTwinOf(crl.get(), applied.base.get()) && saysOf(crl.get(), certificate, time) != Says::Nothing;
    });
    if (twin == crls.lists.end()) {
        return false;
    }
    applied.base = *twin;
    return true;
}

/// Holds an anchor against the lists of its own issuer, of which the newest complete one of its scope counts, with the
/// deltas after it; whether one revokes it. Then `applied` has that list.
bool isAnchorRevoked(const PathCrls& crls, X509* anchor, std::time_t time, AppliedCrls& applied) {
    std::vector<const X509_CRL*> complete;
    for (const auto& crl : crls.ofAnchor) {
        const bool isDelta = baseNumber(crl.get()) != nullptr;
        const bool replaced = std::ranges::any_of(complete, [&](const X509_CRL* newer) {
            return sameScope(newer, crl.get()) && !isTwinOf(crl.get(), newer);
        });
        const Says says = replaced ? Says::Nothing : saysOf(crl.get(), anchor, time);
        if (says == Says::Revoked || (says == Says::Removed && !isDelta)) {
            applied.base = crl;
            return true;
        }
        if (!isDelta) {
            complete.push_back(crl.get());
        }
    }
    return false;
}

} // namespace

void applyFurtherLists(const Path& path, const PathCrls& crls, std::time_t time, PathJudgement& judgement) {
    for (std::size_t i = 0; i < path.certificates.size(); ++i) {
        AppliedCrls& applied = judgement.crls[i];
        if ((judgement.findings.ofElement(i) & capi::CERT_TRUST_IS_REVOKED) == 0 &&
            isRevokedByFurther(crls, path.certificates[i]->x509.get(), time, applied)) {
            judgement.findings.note(X509_V_ERR_CERT_REVOKED, static_cast<int>(i));
        }
    }
    const std::size_t last = path.certificates.size() - 1;
    if (isAnchorRevoked(crls, path.certificates[last]->x509.get(), time, judgement.crls[last])) {
        judgement.findings.note(X509_V_ERR_CERT_REVOKED, static_cast<int>(last));
    }
}

} // namespace klunortredi::csp
