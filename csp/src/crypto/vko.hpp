#pragma once

/// Key agreement of GOST R 34.10 keys: VKO (RFC 4357, 5.2; RFC 7836, 4.3) and KEG (RFC 9189, 8.3.1).

#include "core/bytes.hpp"
#include "core/ossl.hpp"
#include "core/secret.hpp"

namespace klunortredi::csp {

/// The public half of a GOST key: its parameters as they were written (DER, empty when absent) and its point.
struct GostPublicKey {
    std::string oid;
    Bytes parameters;
    Bytes point; ///< x and y, least significant octet first
};

/// Takes a SubjectPublicKeyInfo (or the originator's key of a message, which has the same fields) apart. Throws
/// ApiError(NTE_BAD_PUBLIC_KEY) when it is malformed.
GostPublicKey gostPublicKey(ByteView info);

/// Octets of a coordinate of the key's curve: 32 or 64.
std::size_t gostCoordinateSize(const EVP_PKEY* key);

/// The key agreed upon by `key` (private) and `other`: 32 octets, by GOST R 34.11-94 for GOST R 34.10-2001 keys and
/// VKO_GOSTR3410_2012_256 for the others. `ukm`: least significant octet first, not zero.
///
/// The other point must lie on the key's curve, in the subgroup of the base point, and the parameter set beside it be a
/// known one or absent; NTE_BAD_PUBLIC_KEY otherwise. NTE_BAD_ALGID for a key that is not a GOST key,
/// CRYPT_E_BAD_ENCODE for a UKM of zero.
SecretBytes vko(EVP_PKEY* key, const GostPublicKey& other, ByteView ukm);

/// Octets of the UKM of KEG.
inline constexpr std::size_t kegUkmSize = 32;
/// KEG for GOST R 34.10-2012 keys: 64 octets, the OMAC key and the encryption key of KExp15. Errors as of `vko`;
/// CRYPT_E_BAD_ENCODE for a UKM of another size, NTE_BAD_ALGID for a GOST R 34.10-2001 key.
SecretBytes keg(EVP_PKEY* key, const GostPublicKey& other, ByteView ukm);

} // namespace klunortredi::csp
