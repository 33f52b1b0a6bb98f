#include "x509/certificate_fields.hpp"

#include "x509/x509_der.hpp"

namespace klunortredi::csp {

// clang-format off
namespace {

ASN1_SEQUENCE(KeyFields) = {
    ASN1_SIMPLE(KeyFields, algorithm, X509_ALGOR),
    ASN1_SIMPLE(KeyFields, key, ASN1_BIT_STRING),
} static_ASN1_SEQUENCE_END(KeyFields)

ASN1_SEQUENCE(SignedFields) = {
    ASN1_EXP_OPT(SignedFields, version, ASN1_INTEGER, 0),
    ASN1_SIMPLE(SignedFields, serialNumber, ASN1_INTEGER),
    ASN1_SIMPLE(SignedFields, signatureAlgorithm, X509_ALGOR),
    ASN1_SIMPLE(SignedFields, issuer, X509_NAME),
    ASN1_SIMPLE(SignedFields, validity, X509_VAL),
    ASN1_SIMPLE(SignedFields, subject, X509_NAME),
    ASN1_SIMPLE(SignedFields, subjectPublicKeyInfo, KeyFields),
    ASN1_IMP_OPT(SignedFields, issuerUniqueId, ASN1_BIT_STRING, 1),
    ASN1_IMP_OPT(SignedFields, subjectUniqueId, ASN1_BIT_STRING, 2),
    ASN1_EXP_SEQUENCE_OF_OPT(SignedFields, extensions, X509_EXTENSION, 3),
} static_ASN1_SEQUENCE_END(SignedFields)

ASN1_SEQUENCE(CertificateFields) = {
    ASN1_SIMPLE(CertificateFields, toBeSigned, SignedFields),
    ASN1_SIMPLE(CertificateFields, signatureAlgorithm, X509_ALGOR),
    ASN1_SIMPLE(CertificateFields, signature, ASN1_BIT_STRING),
} static_ASN1_SEQUENCE_END(CertificateFields)

} // namespace
// clang-format on

namespace {

CertificateFields* decode(CertificateFields** /*unused*/, const unsigned char** in, long size) {
    return reinterpret_cast<CertificateFields*>(ASN1_item_d2i(nullptr, in, size, ASN1_ITEM_rptr(CertificateFields)));
}

int encode(const KeyFields* fields, unsigned char** out) {
    return ASN1_item_i2d(reinterpret_cast<const ASN1_VALUE*>(fields), out, ASN1_ITEM_rptr(KeyFields));
}

} // namespace

void freeCertificateFields(CertificateFields* fields) noexcept {
    ASN1_item_free(reinterpret_cast<ASN1_VALUE*>(fields), ASN1_ITEM_rptr(CertificateFields));
}

CertificateFieldsPtr decodeCertificateFields(ByteView der) {
    return ossl::fromDer<CertificateFieldsPtr>(decode, der);
}

Bytes encodeKeyFields(const KeyFields* fields) {
    return ossl::toDer(encode, fields);
}

} // namespace klunortredi::csp
