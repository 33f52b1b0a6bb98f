#pragma once

/// Private keys on disk: PKCS#8 EncryptedPrivateKeyInfo, PBES2 with scrypt and AES-256-CBC (RFC 5208, 8018, 7914).

#include "core/bytes.hpp"
#include "core/ossl.hpp"

#include <string_view>

namespace klunortredi::csp {

/// DER of the key encrypted with `pin`. `binding`, 32 octets or none, is written in clear as the end of the salt:
/// whoever changes it changes the derived key, so that no PIN opens the file any more.
Bytes encryptKey(EVP_PKEY* key, std::string_view pin, ByteView binding);

/// What the file was bound to; empty for none, as earlier versions wrote it. Throws ApiError(NTE_KEYSET_ENTRY_BAD) when
/// `encrypted` is not an EncryptedPrivateKeyInfo with scrypt and a salt that `encryptKey` writes.
Bytes bindingOf(ByteView encrypted);

/// The key; null when `pin` is not the one it was encrypted with. Throws ApiError(NTE_KEYSET_ENTRY_BAD) when
/// `encrypted` is no EncryptedPrivateKeyInfo. A GOST key wants the engine loaded.
ossl::Pkey decryptKey(ByteView encrypted, std::string_view pin);

} // namespace klunortredi::csp
