#include "stores/search_keys.hpp"

#include "core/error.hpp"
#include "x509/blob.hpp"
#include "x509/x509_der.hpp"

namespace klunortredi::csp {

namespace {

/// FNV-1a, 64 bits. Whoever makes certificates can make numbers meet; that costs comparisons, never a wrong answer.
class Number {
public:
    Number& add(ByteView octets) {
        constexpr std::uint64_t prime = 0x100000001B3;
        for (const std::uint8_t octet : octets) {
            value_ = (value_ ^ octet) * prime;
        }
        value_ = (value_ ^ octets.size()) * prime; // so that the borders of the parts count
        return *this;
    }
    [[nodiscard]] std::uint64_t value() const noexcept { return value_; }

private:
    std::uint64_t value_ = 0xCBF29CE484222325;
};

std::uint64_t numberOfKeyIdentifier(const Certificate& certificate) {
    try {
        return keyIdentifierNumber(certificate.keyIdentifier());
    } catch (const ApiError&) {
        return 0; // a malformed extension names no key
    }
}

} // namespace

SearchKeys searchKeysOf(const Certificate& certificate) {
    const CERT_INFO& info = certificate.info();
    return {subjectNumber(blobView(info.Subject)), issuerAndSerialNumber(info),
            publicKeyNumber(info.SubjectPublicKeyInfo), numberOfKeyIdentifier(certificate)};
}

std::uint64_t subjectNumber(ByteView name) {
    const ossl::ErrorMark mark;
    const auto decoded = ossl::fromDer<ossl::X509NamePtr>(d2i_X509_NAME, name);
    int done = 0;
    const unsigned long hash = decoded ? X509_NAME_hash_ex(decoded.get(), nullptr, nullptr, &done) : 0;
    // A name that OpenSSL cannot read is nobody's issuer; it is found by its very octets.
    return done == 0 ? Number().add(name).value() : subjectNumber(hash);
}

std::uint64_t subjectNumber(unsigned long hash) noexcept {
    return hash;
}

std::uint64_t issuerAndSerialNumber(const CERT_INFO& info) {
    return Number().add(blobView(info.Issuer)).add(blobView(info.SerialNumber)).value();
}

std::uint64_t publicKeyNumber(const CERT_PUBLIC_KEY_INFO& key) {
    return Number().add(blobView(key.PublicKey)).value();
}

std::uint64_t keyIdentifierNumber(ByteView identifier) {
    return Number().add(identifier).value();
}

} // namespace klunortredi::csp
