#pragma once

/// The block cipher GOST 28147-89 (RFC 5830) with the S-boxes of RFC 4357 and RFC 7836, its MAC, and Magma, which is
/// the same cipher with other S-boxes and the other octet order (RFC 8891).
///
/// Tables are looked up by secret values: as with the GOST engine, somebody who shares the processor's cache with the
/// service could learn of the key.

#include "crypto/block_cipher.hpp"

#include <string_view>

namespace klunortredi::csp {

/// S-boxes of a parameter set, ready for look-up: byte by byte, rotated by 11.
using Gost28147Tables = std::array<std::array<std::uint32_t, 256>, 4>;

struct Gost28147ParamSet {
    std::string_view oid;
    const Gost28147Tables* tables;
    bool test; ///< id-Gost28147-89-TestParamSet: without key meshing, and not encrypted with
};

/// Null when unknown.
const Gost28147ParamSet* findGost28147ParamSet(std::string_view oid) noexcept;
/// id-tc26-gost-28147-param-Z.
const Gost28147ParamSet& gost28147SetZ() noexcept;

/// The cipher with one key. Not thread-safe; the key is wiped at the end.
class Gost28147 {
public:
    static constexpr std::size_t blockSize = 8;
    using Block = std::array<std::uint8_t, blockSize>;
    using Mac = std::array<std::uint8_t, 4>;

    Gost28147(const Gost28147ParamSet& set, GostKeyView key) noexcept;
    Gost28147(const Gost28147&) = delete;
    Gost28147& operator=(const Gost28147&) = delete;
    ~Gost28147();

    void setKey(GostKeyView key) noexcept;
    void encrypt(Block& block) const noexcept;
    /// Encrypts each block of `in` alone to `out`, which has room for as many and may be `in`.
    void encryptBlocks(ByteView in, std::uint8_t* out) const noexcept;
    void decrypt(Block& block) const noexcept;
    /// One step of the MAC: 16 rounds.
    void macStep(Block& state) const noexcept;
    /// The MAC of whole blocks, starting from `iv`, first 32 bits (RFC 5830, 8; RFC 4357, 6).
    [[nodiscard]] Mac mac(const Block& iv, ByteView blocks) const noexcept;

    /// CryptoPro key meshing (RFC 4357, 2.3.2): another key, and `iv` encrypted under it.
    void mesh(Block& iv) noexcept;

private:
    const Gost28147Tables* tables_;
    std::array<std::uint32_t, 8> key_{};
};

} // namespace klunortredi::csp
