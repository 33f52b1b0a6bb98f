#include "crypto/key_pair.hpp"

#include "core/error.hpp"
#include "crypto/engine.hpp"
#include "crypto/public_key_info.hpp"
#include "crypto/signature.hpp"

#include <openssl/rsa.h>

#include <algorithm>

namespace klunortredi::csp {

namespace {

// Shorter keys are broken within reach; longer ones make signing slow without a use in the profiles served here.
constexpr DWORD rsaMinimumBits = 2048;
constexpr DWORD rsaMaximumBits = 4096;
constexpr DWORD rsaStepBits = 64;

ossl::Pkey generate(EVP_PKEY_CTX* context) {
    EVP_PKEY* key = nullptr;
    if (EVP_PKEY_keygen(context, &key) != 1) {
        fail(capi::NTE_FAIL);
    }
    return ossl::Pkey(key);
}

} // namespace

ossl::Pkey generateGostKey(const KeyAlgorithm& algorithm, const GostParamSet& set) {
    const ossl::ErrorMark mark;
    if (!set.generate) {
        fail(capi::NTE_BAD_ALGID);
    }
    const ossl::PkeyCtx context(EVP_PKEY_CTX_new_id(algorithm.pkeyType, gostEngine()));
    if (!context || EVP_PKEY_keygen_init(context.get()) != 1 ||
        EVP_PKEY_CTX_ctrl_str(context.get(), "paramset", set.engineName) != 1) {
        fail(capi::NTE_BAD_ALGID);
    }
    return generate(context.get());
}

ossl::Pkey generateRsaKey(DWORD bits) {
    const ossl::ErrorMark mark;
    if (bits < rsaMinimumBits || bits > rsaMaximumBits || bits % rsaStepBits != 0) {
        fail(capi::NTE_BAD_LEN);
    }
    const ossl::PkeyCtx context(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr));
    if (!context || EVP_PKEY_keygen_init(context.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), static_cast<int>(bits)) != 1) {
        fail(capi::NTE_FAIL);
    }
    return generate(context.get());
}

Bytes publicKeyInfo(EVP_PKEY* key) {
    const KeyAlgorithm& algorithm = keyAlgorithm(key);
    const ossl::ErrorMark mark;
    unsigned char* encoded = nullptr;
    const int size = i2d_PUBKEY(key, &encoded);
    if (size <= 0) {
        fail(capi::NTE_BAD_KEY);
    }
    Bytes info(encoded, encoded + size);
    OPENSSL_free(encoded);
    if (!algorithm.gost) {
        return info;
    }
    const spki::Parts parts = spki::split(info);
    const GostParamSet* const set = gostParamSetOf(algorithm, parts.parameters);
    if (set == nullptr) {
        fail(capi::NTE_BAD_ALGID);
    }
    return spki::join(algorithm.oid, encodeGostParams(algorithm, *set), parts.key);
}

bool samePublicKey(ByteView left, ByteView right) {
    if (std::ranges::equal(left, right)) { // decoding takes a third of the time of a signature
        return true;
    }
    const ossl::Pkey one = publicKeyFromInfo(left);
    const ossl::Pkey other = publicKeyFromInfo(right);
    const ossl::ErrorMark mark;
    return EVP_PKEY_eq(one.get(), other.get()) == 1;
}

DWORD keyBits(const EVP_PKEY* key) noexcept {
    return static_cast<DWORD>(EVP_PKEY_get_bits(key));
}

std::size_t signatureSize(const EVP_PKEY* key) noexcept {
    return static_cast<std::size_t>(EVP_PKEY_get_size(key));
}

} // namespace klunortredi::csp
