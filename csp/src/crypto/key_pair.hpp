#pragma once

/// Key pairs: making them, and the public half in the form of X.509.

#include "core/bytes.hpp"
#include "core/ossl.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/gost_params.hpp"

namespace klunortredi::csp {

/// A new GOST key pair of that parameter set. Throws ApiError(NTE_BAD_ALGID) for a set that is only verified with.
ossl::Pkey generateGostKey(const KeyAlgorithm& algorithm, const GostParamSet& set);
/// A new RSA key pair of 2048 to 4096 bits, in steps of 64. Throws ApiError(NTE_BAD_LEN) otherwise.
ossl::Pkey generateRsaKey(DWORD bits);

/// DER SubjectPublicKeyInfo of a key, GOST parameters as RFC 4491 and RFC 9215 want them.
/// Throws ApiError(NTE_BAD_ALGID) for a key of an unknown algorithm or parameter set.
Bytes publicKeyInfo(EVP_PKEY* key);

/// Whether two SubjectPublicKeyInfos are the same key, however their parameters are written (with or without the
/// digest's OID, under the signature's or the agreement's OID). The same octets are the same key whatever they are;
/// otherwise throws as publicKeyFromInfo does.
bool samePublicKey(ByteView left, ByteView right);

/// Size of a key in bits: the RSA modulus, the GOST coordinate.
DWORD keyBits(const EVP_PKEY* key) noexcept;
/// Size of its signatures in octets.
std::size_t signatureSize(const EVP_PKEY* key) noexcept;

} // namespace klunortredi::csp
