#include "chains/certificate_form.hpp"

#include "capi/constants.hpp"

#include <algorithm>
#include <array>
#include <set>
#include <vector>

namespace klunortredi::csp {

namespace {

using Policies = std::unique_ptr<CERTIFICATEPOLICIES, ossl::Deleter<CERTIFICATEPOLICIES_free>>;

bool hasUniqueIdentifiers(const X509* certificate) {
    const ASN1_BIT_STRING* issuer = nullptr;
    const ASN1_BIT_STRING* subject = nullptr;
    X509_get0_uids(certificate, &issuer, &subject);
    return issuer != nullptr || subject != nullptr;
}

/// Whether the version allows what the certificate has (RFC 5280, 4.1.2.1, 4.1.2.8 and 4.1.2.9).
bool fitsVersion(const X509* certificate) {
    const long version = X509_get_version(certificate);
    if (version < X509_VERSION_1 || version > X509_VERSION_3) {
        return false;
    }
    return (version == X509_VERSION_3 || X509_get_ext_count(certificate) <= 0) &&
           (version != X509_VERSION_1 || !hasUniqueIdentifiers(certificate));
}

/// RFC 5280, 4.2: one instance of an extension at most.
bool repeatsExtension(const X509* certificate) {
    std::set<std::vector<unsigned char>> seen;
    for (int i = 0; i < X509_get_ext_count(certificate); ++i) {
        const ASN1_OBJECT* const oid = X509_EXTENSION_get_object(X509_get_ext(certificate, i));
        const unsigned char* const octets = OBJ_get0_data(oid);
        if (!seen.emplace(octets, octets + OBJ_length(oid)).second) {
            return true;
        }
    }
    return false;
}

bool isKnownQualifier(const POLICYQUALINFO* qualifier) {
    const int nid = OBJ_obj2nid(qualifier->pqualid);
    return nid == NID_id_qt_cps || nid == NID_id_qt_unotice;
}

/// RFC 5280, 4.2.1.4: who accepts critical policies must be able to interpret all their qualifiers.
bool hasUnknownCriticalQualifier(const X509* certificate) {
    int critical = 0;
    const Policies policies(
        static_cast<CERTIFICATEPOLICIES*>(X509_get_ext_d2i(certificate, NID_certificate_policies, &critical, nullptr)));
    if (critical <= 0) {
        return false;
    }
    for (int i = 0; i < sk_POLICYINFO_num(policies.get()); ++i) {
        const auto* const qualifiers = sk_POLICYINFO_value(policies.get(), i)->qualifiers;
        for (int j = 0; j < sk_POLICYQUALINFO_num(qualifiers); ++j) {
            if (!isKnownQualifier(sk_POLICYQUALINFO_value(qualifiers, j))) {
                return true;
            }
        }
    }
    return false;
}

/// RFC 5280, 4.1.2.2: at most 20 octets. Zero and negative numbers are to be handled gracefully.
bool hasLongSerial(const X509* certificate) {
    constexpr int longest = 20;
    return ASN1_STRING_length(X509_get0_serialNumber(certificate)) > longest;
}

/// Extensions whose list has at least one member (RFC 5280, appendix A.2: SIZE (1..MAX)).
constexpr std::array neverEmpty{
    NID_certificate_policies,    NID_ext_key_usage,   NID_subject_alt_name, NID_issuer_alt_name,
    NID_crl_distribution_points, NID_policy_mappings, NID_info_access,      NID_sinfo_access};

bool isEmptyList(X509_EXTENSION* extension) {
    constexpr int headerSize = 2; // 30 00
    return ASN1_STRING_length(X509_EXTENSION_get_data(extension)) <= headerSize &&
           std::ranges::find(neverEmpty, OBJ_obj2nid(X509_EXTENSION_get_object(extension))) != neverEmpty.end();
}

/// An extension that is known and does not decode says something that nobody can judge.
bool hasMalformedExtension(const X509* certificate) {
    for (int i = 0; i < X509_get_ext_count(certificate); ++i) {
        X509_EXTENSION* const extension = X509_get_ext(certificate, i);
        const X509V3_EXT_METHOD* const method = X509V3_EXT_get(extension);
        if (isEmptyList(extension)) {
            return true;
        }
        if (method == nullptr || method->it == nullptr) {
            continue;
        }
        const ASN1_OCTET_STRING* const value = X509_EXTENSION_get_data(extension);
        const unsigned char* position = ASN1_STRING_get0_data(value);
        const unsigned char* const end = position + ASN1_STRING_length(value);
        ASN1_VALUE* const decoded =
            ASN1_item_d2i(nullptr, &position, ASN1_STRING_length(value), ASN1_ITEM_ptr(method->it));
        ASN1_item_free(decoded, ASN1_ITEM_ptr(method->it));
        if (decoded == nullptr || position != end) {
            return true;
        }
    }
    return false;
}

} // namespace

DWORD formErrors(X509* certificate) {
    DWORD errors = 0;
    if (!fitsVersion(certificate) || repeatsExtension(certificate) || hasLongSerial(certificate) ||
        hasMalformedExtension(certificate)) {
        errors |= capi::CERT_TRUST_INVALID_EXTENSION;
    }
    if (hasUnknownCriticalQualifier(certificate)) {
        errors |= capi::CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT;
    }
    return errors;
}

} // namespace klunortredi::csp
