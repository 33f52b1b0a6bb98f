#pragma once

/// Private keys on disk: PKCS#8 EncryptedPrivateKeyInfo, PBES2 with scrypt and AES-256-CBC (RFC 5208, 8018, 7914).

#include "core/bytes.hpp"
#include "core/ossl.hpp"

#include <string_view>

namespace klunortredi::csp {

/// DER of the key encrypted with `pin`.
Bytes encryptKey(EVP_PKEY* key, std::string_view pin);

/// The key; null when `pin` is not the one it was encrypted with. Throws ApiError(NTE_KEYSET_ENTRY_BAD) when
/// `encrypted` is no EncryptedPrivateKeyInfo. A GOST key wants the engine loaded.
ossl::Pkey decryptKey(ByteView encrypted, std::string_view pin);

} // namespace klunortredi::csp
