#include "self_signed.hpp"

namespace conformance {

namespace {

constexpr FILETIME begin{0x69050000, 0x01D5C036}; // 2020-01-01
constexpr FILETIME end{0x5D520000, 0x01F1C82B};   // 2045-01-01

/// DER of a Name with one common name.
Bytes nameOf(std::string_view commonName) {
    const auto wrapped = [](std::uint8_t tag, const Bytes& content) {
        Bytes element{tag, static_cast<std::uint8_t>(content.size())};
        element.insert(element.end(), content.begin(), content.end());
        return element;
    };
    constexpr std::uint8_t utf8String = 0x0C;
    constexpr std::uint8_t sequence = 0x30;
    constexpr std::uint8_t set = 0x31;
    Bytes attribute = fromHex("0603550403");
    const Bytes value = wrapped(utf8String, octets(commonName));
    attribute.insert(attribute.end(), value.begin(), value.end());
    return wrapped(sequence, wrapped(set, wrapped(sequence, attribute)));
}

CRYPTOAPI_BLOB blob(Bytes& bytes) {
    return {sizeOf(bytes), bytes.data()};
}

} // namespace

ToBeSigned::ToBeSigned(unsigned long context, DWORD keySpec, const ProviderKind& kind)
    : signatureOid_(kind.signatureOid), name_(nameOf("Conformance " + std::to_string(keySpec))),
      serial_{static_cast<std::uint8_t>(keySpec), 0x20}, publicKey_(publicKeyOf(context, keySpec)) {
    constexpr DWORD version3 = 2;
    info_.dwVersion = version3;
    info_.SerialNumber = blob(serial_);
    info_.SignatureAlgorithm.pszObjId = signatureOid_.data();
    info_.Issuer = blob(name_);
    info_.Subject = blob(name_);
    info_.NotBefore = begin;
    info_.NotAfter = end;
    info_.SubjectPublicKeyInfo = as<CERT_PUBLIC_KEY_INFO>(publicKey_);
}

Bytes selfSigned(unsigned long context, DWORD keySpec, const ProviderKind& kind) {
    ToBeSigned wanted(context, keySpec, kind);
    return fetch([&](void* buffer, DWORD* size) {
        return api().CryptSignAndEncodeCertificate(context, keySpec, capi::X509_ASN_ENCODING,
                                                   numbered(capi::X509_CERT_TO_BE_SIGNED), wanted.info(),
                                                   wanted.algorithm(), nullptr, static_cast<BYTE*>(buffer), size) != 0;
    });
}

} // namespace conformance
