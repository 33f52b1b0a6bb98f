#pragma once

/// Key wrapping with GOST 28147-89 (RFC 4357, 6).

#include "core/secret.hpp"
#include "crypto/gost28147.hpp"

namespace klunortredi::csp {

enum class Gost28147Wrap {
    Plain,    ///< id-Gost28147-89-None-KeyWrap: RFC 4357, 6.1 and 6.2
    CryptoPro ///< id-Gost28147-89-CryptoPro-KeyWrap: RFC 4357, 6.3 to 6.5
};

/// A wrapped key of 256 bits.
struct Gost28147WrappedKey {
    std::array<std::uint8_t, gostKeySize> encryptedKey;
    Gost28147::Mac mac;
};

/// `ukm`: the user keying material that goes with the key-encryption key, 8 octets.
Gost28147WrappedKey wrapGost28147(Gost28147Wrap wrap, const Gost28147ParamSet& set, GostKeyView keyEncryptionKey,
                                  const Gost28147::Block& ukm, GostKeyView key);
/// Throws ApiError(NTE_BAD_DATA) when the MAC is wrong.
SecretBytes unwrapGost28147(Gost28147Wrap wrap, const Gost28147ParamSet& set, GostKeyView keyEncryptionKey,
                            const Gost28147::Block& ukm, const Gost28147WrappedKey& wrapped);

} // namespace klunortredi::csp
