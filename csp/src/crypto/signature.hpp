#pragma once

/// Signing and verifying of hash values.

#include "core/bytes.hpp"
#include "core/ossl.hpp"
#include "crypto/algorithms.hpp"

#include <cstdint>

namespace klunortredi::csp {

/// The key of a DER SubjectPublicKeyInfo; accepts the agreement OIDs (1.2.643.7.1.1.6.x) for GOST keys.
/// Throws ApiError(NTE_BAD_PUBLIC_KEY) on anything else than one well-formed key of a known algorithm.
ossl::Pkey publicKeyFromInfo(ByteView subjectPublicKeyInfo);

/// The row of a key's algorithm; throws ApiError(NTE_BAD_ALGID) for a key of another kind.
const KeyAlgorithm& keyAlgorithm(const EVP_PKEY* key);

/// How RSA keys sign (RFC 8017, 8); other keys have one way only.
enum class RsaScheme : std::uint8_t {
    pkcs1, ///< RSASSA-PKCS1-v1_5
    pss,   ///< RSASSA-PSS: mask generation 1 with the digest itself, a salt as long as the digest's value
};

/// Signature of `digest` (a value of `algorithm`) in the octet order of X.509 and CMS: GOST R 34.10 as s || r, both
/// big-endian (RFC 4491, RFC 9215); RSA big-endian (RFC 8017). ApiError(NTE_BAD_ALGID) for a digest that the key does
/// not sign.
Bytes signDigest(EVP_PKEY* key, const DigestAlgorithm& algorithm, ByteView digest, RsaScheme scheme = RsaScheme::pkcs1);

/// Whether `signature` (order as above) is the key's signature of `digest`. Lengths are exact: one octet more or less
/// is no signature. A false answer is an answer; only a failing library throws.
bool verifyDigest(EVP_PKEY* key, const DigestAlgorithm& algorithm, ByteView digest, ByteView signature);

} // namespace klunortredi::csp
