#pragma once

/// Public keys with which signatures prove nothing.

#include <openssl/types.h>

namespace klunortredi::csp {

/// Whether anybody may make signatures that verify with the key: RSA and DSA under 1024 bits (829 bits were factored in
/// 2020), curves under 160 bits (logarithms on one of 112 bits were computed in 2009), and RSA exponents that are even,
/// 1, or over 256 bits (FIPS 186-5, A.1.1): with 1, or one that was chosen to act like it, the padded hash is the
/// signature.
bool isBrokenKey(const EVP_PKEY* key);

/// Whether an elliptic curve is given by its parameters and not by its name (RFC 5480, 2.1.1 forbids it): who chooses
/// the base point knows a private key for any public one.
bool hasExplicitCurve(const EVP_PKEY* key);

} // namespace klunortredi::csp
