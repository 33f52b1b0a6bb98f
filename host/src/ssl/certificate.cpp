#include "orvik/plugin/ssl/certificate.hpp"

#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/hex.hpp"
#include "ossl/owners.hpp"
#include "ssl/certificate_fields.hpp"

#include <openssl/asn1.h>
#include <openssl/objects.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <new>

namespace orvik::plugin::ssl {

namespace {

using crypto::exception::CryptoException;

[[noreturn]] void refuse(const char* function) {
    plugin::exception::raise(CryptoException(CryptoException::Code::badCertificateData), {"certificate", function});
}

std::string dotted(const ASN1_OBJECT* oid) {
    std::array<char, 128> text{};
    const int size = OBJ_obj2txt(text.data(), static_cast<int>(text.size()), oid, 1);
    if (size < static_cast<int>(text.size())) {
        return text.data();
    }
    std::string longText(static_cast<std::size_t>(size) + 1, '\0');
    OBJ_obj2txt(longText.data(), size + 1, oid, 1);
    longText.pop_back();
    return longText;
}

/// UTF-8 of a string type; a value of another type as "#" and the hexadecimal DER (RFC 4514, 2.4).
std::string text(const ASN1_STRING* value) {
    unsigned char* utf8 = nullptr;
    const int size = ASN1_STRING_to_UTF8(&utf8, value);
    if (size >= 0) {
        std::string out(reinterpret_cast<const char*>(utf8), static_cast<std::size_t>(size));
        OPENSSL_free(utf8);
        return out;
    }
    const internal::Owned<ASN1_TYPE, ASN1_TYPE_free> any(ASN1_TYPE_new());
    if (!any || ASN1_TYPE_set1(any.get(), ASN1_STRING_type(value), value) != 1) {
        throw std::bad_alloc();
    }
    return "#" + hex::encode(internal::toDer(any.get(), i2d_ASN1_TYPE));
}

crypto::NameInfo nameInfo(const X509_NAME* name) {
    crypto::NameInfo info;
    for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
        const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
        info.attributes.emplace_back(dotted(X509_NAME_ENTRY_get_object(entry)), text(X509_NAME_ENTRY_get_data(entry)));
    }
    return info;
}

} // namespace

struct Certificate::Impl {
    internal::CertificateFieldsPtr fields;
};

Certificate::Certificate(const std::string& der)
    : impl_(std::make_unique<Impl>(Impl{internal::decodeCertificateFields(der)})) {
    if (!impl_->fields) {
        refuse("Certificate");
    }
}

Certificate::~Certificate() = default;

crypto::NameInfo Certificate::issuerNameInfo() const {
    return nameInfo(impl_->fields->body->issuer);
}

crypto::NameInfo Certificate::subjectNameInfo() const {
    return nameInfo(impl_->fields->body->subject);
}

crypto::EnhancedKeyUsage Certificate::enhancedKeyUsage() const {
    constexpr int absent = -1;
    int found = 0;
    const internal::Owned<EXTENDED_KEY_USAGE, EXTENDED_KEY_USAGE_free> usages(static_cast<EXTENDED_KEY_USAGE*>(
        X509V3_get_d2i(impl_->fields->body->extensions, NID_ext_key_usage, &found, nullptr)));
    if (!usages && found != absent) {
        refuse("enhancedKeyUsage"); // present, but twice or malformed: not the same as unrestricted
    }
    crypto::EnhancedKeyUsage oids;
    for (int i = 0; usages && i < sk_ASN1_OBJECT_num(usages.get()); ++i) {
        oids.push_back(dotted(sk_ASN1_OBJECT_value(usages.get(), i)));
    }
    return oids;
}

} // namespace orvik::plugin::ssl
