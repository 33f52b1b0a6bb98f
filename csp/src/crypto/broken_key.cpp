#include "crypto/broken_key.hpp"

#include "core/ossl.hpp"

#include <openssl/core_names.h>

namespace klunortredi::csp {

namespace {

constexpr int smallestModulus = 1024;
constexpr int smallestCurve = 160;
constexpr int largestExponent = 256;

bool isRsa(const EVP_PKEY* key) {
    const int type = EVP_PKEY_get_base_id(key);
    return type == EVP_PKEY_RSA || type == EVP_PKEY_RSA_PSS;
}

bool hasBrokenExponent(const EVP_PKEY* key) {
    BIGNUM* number = nullptr;
    const ossl::ErrorMark mark;
    if (EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &number) != 1) {
        return true;
    }
    const ossl::Bn exponent(number);
    return BN_is_odd(number) == 0 || BN_is_one(number) != 0 || BN_num_bits(number) > largestExponent;
}

} // namespace

bool isBrokenKey(const EVP_PKEY* key) {
    const int type = EVP_PKEY_get_base_id(key);
    if (type == EVP_PKEY_EC) {
        return EVP_PKEY_get_bits(key) < smallestCurve;
    }
    const bool modular = isRsa(key) || type == EVP_PKEY_DSA;
    return modular && (EVP_PKEY_get_bits(key) < smallestModulus || (isRsa(key) && hasBrokenExponent(key)));
}

bool hasExplicitCurve(const EVP_PKEY* key) {
    int isExplicit = 0;
    const ossl::ErrorMark mark;
    return EVP_PKEY_get_base_id(key) == EVP_PKEY_EC &&
           EVP_PKEY_get_int_param(key, OSSL_PKEY_PARAM_EC_DECODED_FROM_EXPLICIT_PARAMS, &isExplicit) == 1 &&
           isExplicit != 0;
}

} // namespace klunortredi::csp
