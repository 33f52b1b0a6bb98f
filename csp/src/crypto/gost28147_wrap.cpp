#include "crypto/gost28147_wrap.hpp"

#include "core/error.hpp"
#include "crypto/gost_cfb.hpp"

#include <openssl/crypto.h>

#include <algorithm>

namespace klunortredi::csp {

namespace {

using Key = std::array<std::uint8_t, gostKeySize>;
using Block = Gost28147::Block;

/// CryptoPro KEK diversification (RFC 4357, 6.5): eight times the key is encrypted under itself in CFB, its
/// initialisation vector made of sums of its own words, picked by the bits of the UKM.
void diversify(const Gost28147ParamSet& set, std::span<std::uint8_t, gostKeySize> key, const Block& ukm) {
    constexpr std::size_t word = 4;
    for (const std::uint8_t selector : ukm) {
        std::array<std::uint32_t, 2> sums{}; // of the words whose bit is 1, and of the others
        for (unsigned i = 0; i < gostKeySize / word; ++i) {
            std::uint32_t value = 0;
            for (unsigned octet = word; octet-- > 0;) {
                value = value << 8U | key[i * word + octet];
            }
            sums[(selector >> i & 1U) == 1 ? 0 : 1] += value;
        }
        Block iv{};
        for (unsigned i = 0; i < iv.size(); ++i) {
            iv[i] = static_cast<std::uint8_t>(sums[i / word] >> (8 * (i % word)));
        }
        GostCfb cfb(set, GostKeyView(key), iv);
        cfb.encrypt(key);
    }
}

/// The key that encrypts, under what the UKM does to it.
SecretBytes effectiveKey(Gost28147Wrap wrap, const Gost28147ParamSet& set, GostKeyView key, const Block& ukm) {
    SecretBytes effective(key.begin(), key.end());
    if (wrap == Gost28147Wrap::CryptoPro) {
        diversify(set, std::span<std::uint8_t, gostKeySize>(effective), ukm);
    }
    return effective;
}

template <class Step>
void eachBlock(std::span<std::uint8_t> octets, Step step) {
    for (std::size_t at = 0; at < octets.size(); at += Gost28147::blockSize) {
        Block block{};
        const auto place = octets.begin() + static_cast<std::ptrdiff_t>(at);
        std::copy_n(place, block.size(), block.begin());
        step(block);
        std::ranges::copy(block, place);
        OPENSSL_cleanse(block.data(), block.size());
    }
}

} // namespace

Gost28147WrappedKey wrapGost28147(Gost28147Wrap wrap, const Gost28147ParamSet& set, GostKeyView keyEncryptionKey,
                                  const Block& ukm, GostKeyView key) {
    const SecretBytes effective = effectiveKey(wrap, set, keyEncryptionKey, ukm);
    const Gost28147 cipher(set, GostKeyView(effective));
    Gost28147WrappedKey wrapped{{}, cipher.mac(ukm, key)};
    std::ranges::copy(key, wrapped.encryptedKey.begin());
    eachBlock(wrapped.encryptedKey, [&](Block& block) { cipher.encrypt(block); });
    return wrapped;
}

SecretBytes unwrapGost28147(Gost28147Wrap wrap, const Gost28147ParamSet& set, GostKeyView keyEncryptionKey,
                            const Block& ukm, const Gost28147WrappedKey& wrapped) {
    const SecretBytes effective = effectiveKey(wrap, set, keyEncryptionKey, ukm);
    const Gost28147 cipher(set, GostKeyView(effective));
    SecretBytes key(wrapped.encryptedKey.begin(), wrapped.encryptedKey.end());
    eachBlock(key, [&](Block& block) { cipher.decrypt(block); });
    const Gost28147::Mac mac = cipher.mac(ukm, key);
    if (CRYPTO_memcmp(mac.data(), wrapped.mac.data(), mac.size()) != 0) {
        fail(capi::NTE_BAD_DATA);
    }
    return key;
}

} // namespace klunortredi::csp
