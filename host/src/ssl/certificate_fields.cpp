#include "ssl/certificate_fields.hpp"

// clang-format off
namespace orvik::plugin::ssl::internal {

namespace {

ASN1_SEQUENCE(PublicKeyFields) = {
    ASN1_SIMPLE(PublicKeyFields, algorithm, X509_ALGOR),
    ASN1_SIMPLE(PublicKeyFields, key, ASN1_BIT_STRING),
} static_ASN1_SEQUENCE_END(PublicKeyFields)

ASN1_SEQUENCE(BodyFields) = {
    ASN1_EXP_OPT(BodyFields, version, ASN1_INTEGER, 0),
    ASN1_SIMPLE(BodyFields, serialNumber, ASN1_INTEGER),
    ASN1_SIMPLE(BodyFields, signatureAlgorithm, X509_ALGOR),
    ASN1_SIMPLE(BodyFields, issuer, X509_NAME),
    ASN1_SIMPLE(BodyFields, validity, X509_VAL),
    ASN1_SIMPLE(BodyFields, subject, X509_NAME),
    ASN1_SIMPLE(BodyFields, publicKey, PublicKeyFields),
    ASN1_IMP_OPT(BodyFields, issuerUniqueId, ASN1_BIT_STRING, 1),
    ASN1_IMP_OPT(BodyFields, subjectUniqueId, ASN1_BIT_STRING, 2),
    ASN1_EXP_SEQUENCE_OF_OPT(BodyFields, extensions, X509_EXTENSION, 3),
} static_ASN1_SEQUENCE_END(BodyFields)

ASN1_SEQUENCE(CertificateFields) = {
    ASN1_SIMPLE(CertificateFields, body, BodyFields),
    ASN1_SIMPLE(CertificateFields, signatureAlgorithm, X509_ALGOR),
    ASN1_SIMPLE(CertificateFields, signature, ASN1_BIT_STRING),
} static_ASN1_SEQUENCE_END(CertificateFields)

} // namespace
// clang-format on

namespace {

CertificateFields* decode(CertificateFields** /*unused*/, const unsigned char** in, long size) {
    return reinterpret_cast<CertificateFields*>(ASN1_item_d2i(nullptr, in, size, ASN1_ITEM_rptr(CertificateFields)));
}

} // namespace

void freeCertificateFields(CertificateFields* fields) noexcept {
    ASN1_item_free(reinterpret_cast<ASN1_VALUE*>(fields), ASN1_ITEM_rptr(CertificateFields));
}

CertificateFieldsPtr decodeCertificateFields(const std::string& der) {
    return fromDer<CertificateFieldsPtr>(der, decode);
}

} // namespace orvik::plugin::ssl::internal
