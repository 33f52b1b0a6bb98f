#pragma once

/// What the framework's parser reads of a certificate (RFC 5280, 4.1). The public key stays encoded: OpenSSL's X509
/// looks for a decoder of the key at once, which takes longer than everything else in it.

#include "ossl/owners.hpp"

#include <openssl/asn1t.h>
#include <openssl/x509.h>

#include <string>

namespace orvik::plugin::ssl::internal {

struct PublicKeyFields {
    X509_ALGOR* algorithm;
    ASN1_BIT_STRING* key;
};

/// TBSCertificate. Optional fields are null when absent.
struct BodyFields {
    ASN1_INTEGER* version;
    ASN1_INTEGER* serialNumber;
    X509_ALGOR* signatureAlgorithm;
    X509_NAME* issuer;
    X509_VAL* validity;
    X509_NAME* subject;
    PublicKeyFields* publicKey;
    ASN1_BIT_STRING* issuerUniqueId;
    ASN1_BIT_STRING* subjectUniqueId;
    STACK_OF(X509_EXTENSION) * extensions;
};

struct CertificateFields {
    BodyFields* body;
    X509_ALGOR* signatureAlgorithm;
    ASN1_BIT_STRING* signature;
};

void freeCertificateFields(CertificateFields* fields) noexcept;
using CertificateFieldsPtr = Owned<CertificateFields, freeCertificateFields>;

/// The fields of a certificate; null when `der` is not exactly one.
CertificateFieldsPtr decodeCertificateFields(const std::string& der);

} // namespace orvik::plugin::ssl::internal
