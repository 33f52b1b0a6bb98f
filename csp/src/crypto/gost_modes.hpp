#pragma once

/// Modes of the GOST block ciphers and functions over GOST R 34.11-2012 that key wrapping and content encryption need.

#include "core/secret.hpp"
#include "crypto/block_cipher.hpp"

#include <string_view>

namespace klunortredi::csp {

/// CTR (GOST R 34.13-2015), with or without the rekeying ACPKM (RFC 8645, 6.2): after each section of `sectionSize`
/// octets the key is replaced by one derived from it. Encryption and decryption are the same. Not thread-safe.
class CtrMode {
public:
    static constexpr std::size_t noRekeying = 0;

    /// `iv`: half a block; the other half counts from zero. `sectionSize`: a multiple of the block.
    CtrMode(Gost2015 cipher, GostKeyView key, ByteView iv, std::size_t sectionSize = noRekeying);
    CtrMode(const CtrMode&) = delete;
    CtrMode& operator=(const CtrMode&) = delete;
    ~CtrMode();

    /// Encrypts or decrypts in place, any number of octets.
    void apply(std::span<std::uint8_t> data);

private:
    void refill(std::size_t wanted);
    void count() noexcept;
    void rekey();

    static constexpr std::size_t batch = 64 * largestBlock;

    std::unique_ptr<BlockCipher> cipher_;
    std::size_t sectionSize_;
    std::size_t sectionLeft_;
    std::array<std::uint8_t, largestBlock> counter_{};
    std::array<std::uint8_t, batch> gamma_{};
    std::size_t gammaBegin_ = 0;
    std::size_t gammaEnd_ = 0;
};

/// OMAC (GOST R 34.13-2015, 5.6), a whole block long. Not thread-safe.
class Omac {
public:
    Omac(Gost2015 cipher, GostKeyView key);
    Omac(const Omac&) = delete;
    Omac& operator=(const Omac&) = delete;
    ~Omac();

    void update(ByteView data);
    /// Call once, after the last update.
    Bytes finish();

private:
    std::unique_ptr<BlockCipher> cipher_;
    std::array<std::uint8_t, largestBlock> state_{};
    std::array<std::uint8_t, largestBlock> pending_{};
    std::size_t pendingSize_ = 0;
};

/// HMAC_GOSTR3411_2012_256 (RFC 7836, 4.1.1).
SecretBytes hmacStreebog256(ByteView key, ByteView data);
/// KDF_TREE_GOSTR3411_2012_256 with R = 1 (RFC 7836, 4.5), 64 octets.
SecretBytes kdfTree512(ByteView key, std::string_view label, ByteView seed);

/// The label with which content keys and KEG derive.
inline constexpr std::string_view kdfTreeLabel = "kdf tree";

/// KExp15 (RFC 9189, 8.2.1): `key` with its OMAC, encrypted in CTR. `iv`: half a block.
Bytes exportKey(Gost2015 cipher, ByteView key, GostKeyView macKey, GostKeyView encryptionKey, ByteView iv);
/// KImp15. Throws ApiError(NTE_BAD_DATA) when the OMAC is wrong.
SecretBytes importKey(Gost2015 cipher, ByteView exported, GostKeyView macKey, GostKeyView encryptionKey, ByteView iv);

/// Octets of the cipher's block.
constexpr std::size_t blockSizeOf(Gost2015 cipher) noexcept {
    constexpr std::size_t magma = 8;
    return cipher == Gost2015::Magma ? magma : largestBlock;
}

} // namespace klunortredi::csp
