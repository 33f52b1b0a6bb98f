#include "issuer_serial.hpp"

#include <openssl/x509v3.h>

#include <cstddef>
#include <new>

namespace orvik::plugin::xml::internal {

namespace {

using ssl::internal::Owned;
using NamesPtr = Owned<GENERAL_NAMES, GENERAL_NAMES_free>;
constexpr std::size_t longestEncoding = 65536; // octets of an IssuerSerial; names decode to many times their size
constexpr int longestSerial = 64;              // octets; certificates have 20 at most, and the conversion is not linear

using IntegerPtr = Owned<ASN1_INTEGER, ASN1_INTEGER_free>;

/// IssuerSerial ::= SEQUENCE { issuer GeneralNames, serialNumber CertificateSerialNumber }
std::string sequence(const std::string& contents) {
    std::string der(static_cast<std::size_t>(ASN1_object_size(1, static_cast<int>(contents.size()), V_ASN1_SEQUENCE)),
                    '\0');
    auto* at = reinterpret_cast<unsigned char*>(der.data());
    ASN1_put_object(&at, 1, static_cast<int>(contents.size()), V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    return der.replace(der.size() - contents.size(), contents.size(), contents);
}

NamesPtr directoryName(const X509_NAME* name) {
    NamesPtr names(GENERAL_NAMES_new());
    Owned<GENERAL_NAME, GENERAL_NAME_free> general(GENERAL_NAME_new());
    X509_NAME* const copy = X509_NAME_dup(name);
    if (!names || !general || copy == nullptr) {
        X509_NAME_free(copy);
        throw std::bad_alloc();
    }
    GENERAL_NAME_set0_value(general.get(), GEN_DIRNAME, copy);
    if (sk_GENERAL_NAME_push(names.get(), general.get()) == 0) {
        throw std::bad_alloc();
    }
    general.release(); // NOLINT(bugprone-unused-return-value): the names own it
    return names;
}

bool isNameAlone(const GENERAL_NAMES* names, const X509_NAME* expected) {
    if (names == nullptr || sk_GENERAL_NAME_num(names) != 1) {
        return false;
    }
    const GENERAL_NAME* const name = sk_GENERAL_NAME_value(names, 0);
    return name->type == GEN_DIRNAME && X509_NAME_cmp(name->d.directoryName, expected) == 0;
}

} // namespace

std::string issuerSerialOf(const X509& certificate) {
    const auto names = directoryName(X509_get_issuer_name(&certificate));
    return sequence(ssl::internal::toDer(names.get(), i2d_GENERAL_NAMES) +
                    ssl::internal::toDer(X509_get0_serialNumber(&certificate), i2d_ASN1_INTEGER));
}

bool isIssuerSerialOf(const std::string& der, const X509& certificate) {
    if (der.size() > longestEncoding) {
        return false;
    }
    const ssl::internal::ErrorMark mark;
    const auto* at = reinterpret_cast<const unsigned char*>(der.data());
    const auto* const end = at + der.size();
    long length = 0;
    int tag = 0;
    int kind = 0;
    const int form = ASN1_get_object(&at, &length, &tag, &kind, static_cast<long>(der.size()));
    if (form != V_ASN1_CONSTRUCTED || tag != V_ASN1_SEQUENCE || kind != V_ASN1_UNIVERSAL || end - at != length) {
        return false;
    }
    const NamesPtr names(d2i_GENERAL_NAMES(nullptr, &at, end - at));
    const IntegerPtr serial(names ? d2i_ASN1_INTEGER(nullptr, &at, end - at) : nullptr);
    return serial && at == end && isNameAlone(names.get(), X509_get_issuer_name(&certificate)) &&
           ASN1_INTEGER_cmp(serial.get(), X509_get0_serialNumber(&certificate)) == 0;
}

std::string serialNumberOf(const X509& certificate) {
    const ASN1_INTEGER* const serial = X509_get0_serialNumber(&certificate);
    if (ASN1_STRING_length(serial) > longestSerial) {
        return {};
    }
    const Owned<BIGNUM, BN_free> number(ASN1_INTEGER_to_BN(serial, nullptr));
    char* const text = number ? BN_bn2dec(number.get()) : nullptr;
    const std::string out = text == nullptr ? std::string() : text;
    OPENSSL_free(text);
    return out;
}

} // namespace orvik::plugin::xml::internal
