#include "chains/distrust.hpp"

#include "core/skipped.hpp"
#include "core/warning.hpp"
#include "crypto/algorithms.hpp"
#include "stores/system_store.hpp"
#include "x509/x509_der.hpp"

#include <openssl/core_names.h>

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

constexpr std::string_view ecPublicKey = "1.2.840.10045.2.1";

std::string algorithmOf(const X509* certificate) {
    ASN1_OBJECT* algorithm = nullptr;
    X509_PUBKEY_get0_param(&algorithm, nullptr, nullptr, nullptr, X509_get_X509_PUBKEY(certificate));
    return ossl::oidText(algorithm);
}

/// The octets of a point (SEC 1, 2.3.3) that a key and its negative share: the x coordinate. Who has the private key of
/// one has that of the other.
Bytes abscissa(ByteView point) {
    constexpr std::array<std::uint8_t, 3> bothCoordinates{4, 6, 7}; // not compressed, and hybrid
    if (point.empty()) {
        return {};
    }
    const bool both = std::ranges::find(bothCoordinates, point.front()) != bothCoordinates.end();
    const ByteView coordinates = point.subspan(1);
    const ByteView x = coordinates.first(both ? coordinates.size() / 2 : coordinates.size());
    return {x.begin(), x.end()};
}

/// The octets by which a key is known, whatever algorithm and parameters it is named with. Those of a GOST key are the
/// first half of its point, without the OCTET STRING around it, whose length may be written in several ways (RFC 9215,
/// 4.3).
Bytes keyOctets(const X509* certificate) {
    const ByteView bits = ossl::octets(X509_get0_pubkey_bitstr(certificate));
    const std::string oid = algorithmOf(certificate);
    if (oid == ecPublicKey) {
        return abscissa(bits);
    }
    const KeyAlgorithm* const algorithm = findKey(oid);
    if (algorithm != nullptr && algorithm->gost) {
        const auto point = ossl::fromDer<ossl::OctetString>(d2i_ASN1_OCTET_STRING, bits);
        if (point) {
            const ByteView octets = ossl::octets(point.get());
            const ByteView x = octets.first(octets.size() / 2);
            return {x.begin(), x.end()};
        }
    }
    return {bits.begin(), bits.end()};
}

/// The modulus of an RSA key, be it for one kind of padding alone; null for other keys.
ossl::Bn modulusOf(const EVP_PKEY* key) {
    BIGNUM* number = nullptr;
    const int kind = EVP_PKEY_get_base_id(key);
    if (kind == EVP_PKEY_RSA || kind == EVP_PKEY_RSA_PSS) {
        EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &number);
    }
    return ossl::Bn(number);
}

/// Who can sign with one exponent knows the factors, and can sign with any.
bool sameRsaKey(const EVP_PKEY* left, const EVP_PKEY* right) {
    const ossl::Bn a = modulusOf(left);
    const ossl::Bn b = modulusOf(right);
    return a && b && BN_cmp(a.get(), b.get()) == 0;
}

/// The same key, also under another algorithm (RSA and RSASSA-PSS, the GOST algorithms of one point), with other
/// parameters, with its point or its numbers written in another way, and what its holder makes of it without another
/// secret. Independent keys never have the same octets, so the octets alone decide where they are the same.
bool sameKey(const X509* left, const X509* right) {
    const ossl::ErrorMark mark;
    if (std::ranges::equal(keyOctets(left), keyOctets(right))) {
        return true;
    }
    const EVP_PKEY* const a = X509_get0_pubkey(left);
    const EVP_PKEY* const b = X509_get0_pubkey(right);
    return a != nullptr && b != nullptr && (EVP_PKEY_eq(a, b) == 1 || sameRsaKey(a, b));
}

} // namespace

Distrust::Distrust() {
    const auto store = SystemStore::open("disallowed");
    for (auto& certificate : store->certificates()) {
        auto x509 = ossl::fromDer<ossl::X509Ptr>(d2i_X509, certificate->encoded());
        if (!x509) {
            fail(capi::ERROR_INVALID_DATA);
        }
        entries_.push_back({std::move(certificate), std::move(x509)});
    }
    for (const UnusableEntry& entry : store->unusable()) {
        noteSkipped(entry.file, entry.code);
        warn("an entry of store \"disallowed\" cannot be read, so no chain can be judged: " + entry.file);
        fail(entry.code);
    }
}

bool Distrust::holds(const Certificate& certificate, const X509* x509) const {
    return std::ranges::any_of(entries_, [&](const Entry& entry) {
        return entry.certificate->thumbprint() == certificate.thumbprint() ||
               X509_issuer_and_serial_cmp(entry.x509.get(), x509) == 0 || sameKey(entry.x509.get(), x509);
    });
}

} // namespace klunortredi::csp
