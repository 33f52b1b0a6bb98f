#pragma once

/// The fields of a certificate as OpenSSL decodes them (RFC 5280, 4.1), but for the public key, which stays as it is
/// encoded: OpenSSL's X509 looks for a decoder of the key at once, which takes longer than everything else in it.

#include "core/bytes.hpp"
#include "core/ossl.hpp"

#include <openssl/asn1t.h>

namespace klunortredi::csp {

/// SubjectPublicKeyInfo, its key not decoded.
struct KeyFields {
    X509_ALGOR* algorithm;
    ASN1_BIT_STRING* key;
};

/// TBSCertificate. Owned by its CertificateFields; optional fields are null when absent.
struct SignedFields {
    ASN1_INTEGER* version; ///< null for version 1
    ASN1_INTEGER* serialNumber;
    X509_ALGOR* signatureAlgorithm;
    X509_NAME* issuer;
    X509_VAL* validity;
    X509_NAME* subject;
    KeyFields* subjectPublicKeyInfo;
    ASN1_BIT_STRING* issuerUniqueId;
    ASN1_BIT_STRING* subjectUniqueId;
    STACK_OF(X509_EXTENSION) * extensions;
};

struct CertificateFields {
    SignedFields* toBeSigned;
    X509_ALGOR* signatureAlgorithm;
    ASN1_BIT_STRING* signature;
};

void freeCertificateFields(CertificateFields* fields) noexcept;
using CertificateFieldsPtr = std::unique_ptr<CertificateFields, ossl::Deleter<freeCertificateFields>>;

/// The fields of a certificate; null when `der` is not exactly one.
CertificateFieldsPtr decodeCertificateFields(ByteView der);

/// DER of a SubjectPublicKeyInfo. ApiError(CRYPT_E_BAD_ENCODE) when OpenSSL refuses.
Bytes encodeKeyFields(const KeyFields* fields);

} // namespace klunortredi::csp
