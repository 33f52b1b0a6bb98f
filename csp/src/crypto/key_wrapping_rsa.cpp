#include "asn1/der.hpp"
#include "core/error.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/engine.hpp"
#include "crypto/key_wrapping_rows.hpp"

#include <openssl/core_names.h>
#include <openssl/hmac.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <array>

namespace klunortredi::csp::wrapping {

namespace {

constexpr std::string_view rsaEncryptionOid = "1.2.840.113549.1.1.1";
constexpr std::string_view rsaesOaepOid = "1.2.840.113549.1.1.7";
constexpr std::string_view mgf1Oid = "1.2.840.113549.1.1.8";
constexpr std::string_view pSpecifiedOid = "1.2.840.113549.1.1.9";
constexpr std::string_view sha1Oid = "1.3.14.3.2.26";

/// 00 02, eight octets of padding, 00 (RFC 8017, 7.2).
constexpr std::size_t pkcs1Overhead = 11;
/// Octets of an OAEP label: it is hashed, and nobody has a long one.
constexpr std::size_t longestLabel = 4096;

std::size_t modulusSize(const EVP_PKEY* key) {
    return static_cast<std::size_t>(EVP_PKEY_get_size(key));
}

ossl::PkeyCtx operation(EVP_PKEY* key, int (*initialise)(EVP_PKEY_CTX*), int padding) {
    ossl::PkeyCtx context(EVP_PKEY_CTX_new(key, nullptr));
    if (!context || initialise(context.get()) != 1 || EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) != 1) {
        fail(capi::NTE_FAIL);
    }
    return context;
}

/// RSAES-OAEP-params (RFC 4055, 4.1).
struct Oaep {
    const DigestAlgorithm* digest;
    const DigestAlgorithm* maskDigest;
    Bytes label;
};

const DigestAlgorithm* digestOf(ByteView algorithm) {
    der::Reader fields(der::readOnly(algorithm, der::tag::Sequence).content);
    const std::string oid = der::toOid(fields.read(der::tag::ObjectIdentifier));
    fields.readIf(der::tag::Null);
    fields.finish();
    const DigestAlgorithm* const digest = findDigest(std::string_view(oid));
    if (digest == nullptr || digest->gost) {
        fail(capi::NTE_BAD_ALGID);
    }
    return digest;
}

const DigestAlgorithm* maskDigestOf(ByteView algorithm) {
    der::Reader fields(der::readOnly(algorithm, der::tag::Sequence).content);
    if (der::toOid(fields.read(der::tag::ObjectIdentifier)) != mgf1Oid) {
        fail(capi::NTE_BAD_ALGID);
    }
    const DigestAlgorithm* const digest = digestOf(fields.read(der::tag::Sequence).whole);
    fields.finish();
    return digest;
}

Bytes labelOf(ByteView algorithm) {
    der::Reader fields(der::readOnly(algorithm, der::tag::Sequence).content);
    if (der::toOid(fields.read(der::tag::ObjectIdentifier)) != pSpecifiedOid) {
        fail(capi::NTE_BAD_ALGID);
    }
    const ByteView label = fields.read(der::tag::OctetString).content;
    fields.finish();
    if (label.size() > longestLabel) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    return {label.begin(), label.end()};
}

Oaep decodeOaep(ByteView parameters) {
    const DigestAlgorithm* const sha1 = findDigest(sha1Oid);
    Oaep oaep{sha1, sha1, {}};
    if (parameters.empty()) {
        return oaep;
    }
    try {
        der::Reader fields(der::readOnly(parameters, der::tag::Sequence).content);
        if (const auto hash = fields.readIf(der::tag::contextConstructed(0))) {
            oaep.digest = digestOf(hash->content);
        }
        if (const auto mask = fields.readIf(der::tag::contextConstructed(1))) {
            oaep.maskDigest = maskDigestOf(mask->content);
        }
        if (const auto source = fields.readIf(der::tag::contextConstructed(2))) {
            oaep.label = labelOf(source->content);
        }
        fields.finish();
    } catch (const ApiError& error) {
        fail(error.code() == capi::NTE_BAD_ALGID ? capi::NTE_BAD_ALGID : capi::CRYPT_E_BAD_ENCODE);
    }
    return oaep;
}

void apply(EVP_PKEY_CTX* context, const Oaep& oaep) {
    if (EVP_PKEY_CTX_set_rsa_oaep_md(context, digestMethod(*oaep.digest)) != 1 ||
        EVP_PKEY_CTX_set_rsa_mgf1_md(context, digestMethod(*oaep.maskDigest)) != 1) {
        fail(capi::NTE_BAD_ALGID);
    }
    if (oaep.label.empty()) {
        return;
    }
    void* const copied = OPENSSL_memdup(oaep.label.data(), oaep.label.size());
    if (EVP_PKEY_CTX_set0_rsa_oaep_label(context, copied, static_cast<int>(oaep.label.size())) != 1) {
        OPENSSL_free(copied);
        fail(capi::NTE_FAIL);
    }
}

SecretBytes decrypt(EVP_PKEY_CTX* context, std::size_t room, ByteView encrypted) {
    SecretBytes plain(room);
    std::size_t size = plain.size();
    if (EVP_PKEY_decrypt(context, plain.data(), &size, encrypted.data(), encrypted.size()) != 1) {
        fail(capi::NTE_BAD_DATA);
    }
    plain.resize(size);
    return plain;
}

SecretBytes hmacSha256(ByteView key, ByteView data) {
    SecretBytes value(EVP_MAX_MD_SIZE);
    unsigned size = 0;
    if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), data.data(), data.size(), value.data(), &size) ==
        nullptr) {
        fail(capi::NTE_FAIL);
    }
    value.resize(size);
    return value;
}

/// What an encrypted key decrypts to when its padding is wrong: a value that only the holder of the private key can
/// compute, always the same for the same ciphertext.
SecretBytes rejectionKey(EVP_PKEY* key, ByteView encrypted, std::size_t keySize) {
    BIGNUM* number = nullptr;
    if (EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_D, &number) != 1) {
        fail(capi::NTE_NO_KEY);
    }
    const ossl::Bn exponent(number);
    SecretBytes octets(modulusSize(key));
    if (BN_bn2binpad(exponent.get(), octets.data(), static_cast<int>(octets.size())) < 0) {
        fail(capi::NTE_FAIL);
    }
    SecretBytes result = hmacSha256(hmacSha256(octets, encrypted), encrypted);
    if (keySize > result.size()) {
        fail(capi::NTE_BAD_LEN);
    }
    result.resize(keySize);
    return result;
}

/// 0xFF when `value` (up to 32 bits) is 0, else 0x00; without a branch.
std::uint8_t maskOfZero(std::uint32_t value) noexcept {
    const std::uint64_t borrow = static_cast<std::uint64_t>(value) - 1U;
    return static_cast<std::uint8_t>(borrow >> 56U);
}

/// Undoes the padding of RFC 8017, 7.2 in a time that does not depend on it: the size of the key is known from the
/// content's algorithm, so the octet before it must be the separator and all padding before that not zero.
SecretBytes unpad(ByteView padded, SecretBytes rejected) {
    const std::size_t separator = padded.size() - rejected.size() - 1;
    std::uint32_t wrong = padded[0];
    wrong |= padded[1] ^ 2U;
    for (std::size_t i = 2; i < separator; ++i) {
        wrong |= maskOfZero(padded[i]);
    }
    wrong |= padded[separator];
    const std::uint8_t good = maskOfZero(wrong);
    for (std::size_t i = 0; i < rejected.size(); ++i) {
        rejected[i] = static_cast<std::uint8_t>((padded[separator + 1 + i] & good) |
                                                (rejected[i] & static_cast<std::uint8_t>(~good)));
    }
    return rejected;
}

SecretBytes unwrapPkcs1(EVP_PKEY* key, const TransportedKey& wrapped, std::size_t keySize) {
    const std::size_t modulus = modulusSize(key);
    if (!wrapped.parameters.empty() && wrapped.parameters != der::null()) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    if (keySize + pkcs1Overhead > modulus) {
        fail(capi::NTE_BAD_LEN);
    }
    SecretBytes rejected = rejectionKey(key, wrapped.encryptedKey, keySize);
    const ossl::PkeyCtx context = operation(key, EVP_PKEY_decrypt_init, RSA_NO_PADDING);
    // Fails only for a number that is not below the modulus, which everybody can see.
    const SecretBytes padded = decrypt(context.get(), modulus, wrapped.encryptedKey);
    if (padded.size() != modulus) {
        fail(capi::NTE_FAIL);
    }
    return unpad(padded, std::move(rejected));
}

SecretBytes unwrapOaep(EVP_PKEY* key, const TransportedKey& wrapped, std::size_t keySize) {
    const ossl::PkeyCtx context = operation(key, EVP_PKEY_decrypt_init, RSA_PKCS1_OAEP_PADDING);
    apply(context.get(), decodeOaep(wrapped.parameters));
    SecretBytes unwrapped = decrypt(context.get(), modulusSize(key), wrapped.encryptedKey);
    if (unwrapped.size() != keySize) {
        fail(capi::NTE_BAD_DATA);
    }
    return unwrapped;
}

Bytes encodeOaep(const Oaep& oaep) {
    const Bytes digest = der::sequence({der::objectIdentifier(oaep.digest->oid), der::null()});
    const Bytes mask = der::sequence({der::objectIdentifier(mgf1Oid), digest});
    return der::sequence({der::explicitTag(0, digest), der::explicitTag(1, mask)});
}

Bytes encrypt(EVP_PKEY_CTX* context, std::size_t modulus, ByteView contentKey) {
    Bytes encrypted(modulus);
    std::size_t size = encrypted.size();
    if (EVP_PKEY_encrypt(context, encrypted.data(), &size, contentKey.data(), contentKey.size()) != 1) {
        fail(capi::NTE_BAD_LEN);
    }
    encrypted.resize(size);
    return encrypted;
}

} // namespace

SecretBytes unwrapRsa(EVP_PKEY* key, const TransportedKey& wrapped, std::size_t keySize) {
    const ossl::ErrorMark mark;
    if (wrapped.oid != rsaEncryptionOid && wrapped.oid != rsaesOaepOid) {
        fail(capi::NTE_BAD_ALGID);
    }
    if (wrapped.encryptedKey.size() != modulusSize(key)) {
        fail(capi::NTE_BAD_DATA);
    }
    return wrapped.oid == rsaEncryptionOid ? unwrapPkcs1(key, wrapped, keySize) : unwrapOaep(key, wrapped, keySize);
}

TransportedKey wrapRsa(EVP_PKEY* recipient, TransportForm form, ByteView contentKey) {
    const ossl::ErrorMark mark;
    const std::size_t modulus = modulusSize(recipient);
    if (form == TransportForm::RsaPkcs1) {
        const ossl::PkeyCtx context = operation(recipient, EVP_PKEY_encrypt_init, RSA_PKCS1_PADDING);
        return {std::string(rsaEncryptionOid), der::null(), encrypt(context.get(), modulus, contentKey)};
    }
    if (form != TransportForm::RsaOaep) {
        fail(capi::NTE_BAD_ALGID);
    }
    const DigestAlgorithm* const sha256 = findDigest(capi::CALG_SHA_256);
    const Oaep oaep{sha256, sha256, {}};
    const ossl::PkeyCtx context = operation(recipient, EVP_PKEY_encrypt_init, RSA_PKCS1_OAEP_PADDING);
    apply(context.get(), oaep);
    return {std::string(rsaesOaepOid), encodeOaep(oaep), encrypt(context.get(), modulus, contentKey)};
}

} // namespace klunortredi::csp::wrapping
