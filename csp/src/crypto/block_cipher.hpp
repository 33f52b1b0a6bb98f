#pragma once

/// Block ciphers as the modes of this room use them: encryption of whole blocks under a key of 256 bits.

#include "core/bytes.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace klunortredi::csp {

inline constexpr std::size_t gostKeySize = 32;
using GostKeyView = std::span<const std::uint8_t, gostKeySize>;

/// One cipher with one key. Not thread-safe. The round keys are wiped when it is destroyed or gets another key.
class BlockCipher {
public:
    BlockCipher() = default;
    BlockCipher(const BlockCipher&) = delete;
    BlockCipher& operator=(const BlockCipher&) = delete;
    virtual ~BlockCipher() = default;

    /// Octets of a block: 8 or 16.
    [[nodiscard]] virtual std::size_t blockSize() const noexcept = 0;
    virtual void setKey(GostKeyView key) noexcept = 0;
    /// Encrypts each block of `in` alone (ECB) to `out`, which has room for as many and may be `in`.
    virtual void encryptBlocks(ByteView in, std::uint8_t* out) const noexcept = 0;
};

/// The largest block of these ciphers.
inline constexpr std::size_t largestBlock = 16;

/// GOST R 34.12-2015 (RFC 8891, RFC 7801).
enum class Gost2015 { Magma, Kuznyechik };
std::unique_ptr<BlockCipher> makeBlockCipher(Gost2015 cipher, GostKeyView key);

} // namespace klunortredi::csp
