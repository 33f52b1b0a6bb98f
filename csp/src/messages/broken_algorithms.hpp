#pragma once

/// Algorithms whose signatures are never accepted, because anybody can make them: what is refused here is not
/// "unknown", it is known to be worthless.

#include <openssl/types.h>

#include <string_view>

namespace klunortredi::csp {

/// ApiError(NTE_BAD_ALGID) for MD2, MD4 and MD5 (RFC 6149, 6150, 6151), as a digest or within a signature algorithm.
/// Every other OID, unknown ones included, passes.
void refuseBrokenDigest(std::string_view oid);

/// ApiError(NTE_BAD_KEY) for a key that is broken, NTE_BAD_PUBLIC_KEY for a curve given by its parameters: see
/// crypto/broken_key.hpp.
void refuseBrokenKey(const EVP_PKEY* key);

} // namespace klunortredi::csp
