#include "crypto/gost_modes.hpp"

#include "core/error.hpp"
#include "crypto/digest.hpp"

#include <openssl/crypto.h>

#include <algorithm>

namespace klunortredi::csp {

namespace {

/// D of ACPKM (RFC 8645, 6.2.1): 0x80 to 0x9F.
constexpr std::array<std::uint8_t, gostKeySize> acpkmConstant = [] {
    constexpr unsigned first = 0x80;
    std::array<std::uint8_t, gostKeySize> octets{};
    for (unsigned i = 0; i < octets.size(); ++i) {
        octets[i] = static_cast<std::uint8_t>(first + i);
    }
    return octets;
}();

/// Doubles a block as a polynomial (GOST R 34.13-2015, 5.6.1), without a branch on its value.
void doubleBlock(std::span<std::uint8_t> block) noexcept {
    constexpr unsigned reduction64 = 0x1B;
    constexpr unsigned reduction128 = 0x87;
    const unsigned carryOut = static_cast<unsigned>(block.front()) >> 7U;
    for (std::size_t i = 0; i < block.size(); ++i) {
        const unsigned next = i + 1 < block.size() ? static_cast<unsigned>(block[i + 1]) >> 7U : 0U;
        block[i] = static_cast<std::uint8_t>(static_cast<unsigned>(block[i]) << 1U | next);
    }
    const unsigned reduction = block.size() == largestBlock ? reduction128 : reduction64;
    block.back() ^= static_cast<std::uint8_t>((0U - carryOut) & reduction);
}

} // namespace

CtrMode::CtrMode(Gost2015 cipher, GostKeyView key, ByteView iv, std::size_t sectionSize)
    : cipher_(makeBlockCipher(cipher, key)), sectionSize_(sectionSize), sectionLeft_(sectionSize) {
    std::copy_n(iv.begin(), cipher_->blockSize() / 2, counter_.begin());
}

CtrMode::~CtrMode() {
    OPENSSL_cleanse(gamma_.data(), gamma_.size());
}

void CtrMode::count() noexcept {
    for (std::size_t i = cipher_->blockSize(); i > 0 && ++counter_[i - 1] == 0; --i) {
    }
}

void CtrMode::rekey() {
    std::array<std::uint8_t, gostKeySize> next{};
    cipher_->encryptBlocks(acpkmConstant, next.data());
    cipher_->setKey(next);
    OPENSSL_cleanse(next.data(), next.size());
}

/// Makes gamma for `wanted` octets, or for as many as one batch and the section have.
void CtrMode::refill(std::size_t wanted) {
    const std::size_t block = cipher_->blockSize();
    if (sectionSize_ != noRekeying && sectionLeft_ == 0) {
        rekey();
        sectionLeft_ = sectionSize_;
    }
    std::size_t size = std::min((wanted + block - 1) / block * block, gamma_.size());
    if (sectionSize_ != noRekeying) {
        size = std::min(size, sectionLeft_);
        sectionLeft_ -= size;
    }
    for (std::size_t at = 0; at < size; at += block) {
        std::copy_n(counter_.begin(), block, gamma_.begin() + static_cast<std::ptrdiff_t>(at));
        count();
    }
    cipher_->encryptBlocks(ByteView(gamma_).first(size), gamma_.data());
    gammaBegin_ = 0;
    gammaEnd_ = size;
}

void CtrMode::apply(std::span<std::uint8_t> data) {
    while (!data.empty()) {
        if (gammaBegin_ == gammaEnd_) {
            refill(data.size());
        }
        const std::size_t size = std::min(data.size(), gammaEnd_ - gammaBegin_);
        for (std::size_t i = 0; i < size; ++i) {
            data[i] ^= gamma_[gammaBegin_ + i];
        }
        gammaBegin_ += size;
        data = data.subspan(size);
    }
}

Omac::Omac(Gost2015 cipher, GostKeyView key) : cipher_(makeBlockCipher(cipher, key)) {}

Omac::~Omac() {
    OPENSSL_cleanse(state_.data(), state_.size());
    OPENSSL_cleanse(pending_.data(), pending_.size());
}

void Omac::update(ByteView data) {
    const std::size_t block = cipher_->blockSize();
    while (!data.empty()) {
        if (pendingSize_ == block) { // the last block is kept back: it is treated differently
            for (std::size_t i = 0; i < block; ++i) {
                state_[i] ^= pending_[i];
            }
            cipher_->encryptBlocks(ByteView(state_).first(block), state_.data());
            pendingSize_ = 0;
        }
        const std::size_t size = std::min(block - pendingSize_, data.size());
        std::copy_n(data.begin(), size, pending_.begin() + static_cast<std::ptrdiff_t>(pendingSize_));
        pendingSize_ += size;
        data = data.subspan(size);
    }
}

Bytes Omac::finish() {
    const std::size_t block = cipher_->blockSize();
    std::array<std::uint8_t, largestBlock> subkey{};
    cipher_->encryptBlocks(ByteView(subkey).first(block), subkey.data());
    doubleBlock(std::span(subkey).first(block));
    if (pendingSize_ < block) {
        constexpr std::uint8_t paddingStart = 0x80;
        doubleBlock(std::span(subkey).first(block));
        std::fill(pending_.begin() + static_cast<std::ptrdiff_t>(pendingSize_), pending_.end(), std::uint8_t{0});
        pending_[pendingSize_] = paddingStart;
    }
    for (std::size_t i = 0; i < block; ++i) {
        state_[i] ^= static_cast<std::uint8_t>(pending_[i] ^ subkey[i]);
    }
    OPENSSL_cleanse(subkey.data(), subkey.size());
    cipher_->encryptBlocks(ByteView(state_).first(block), state_.data());
    return {state_.begin(), state_.begin() + static_cast<std::ptrdiff_t>(block)};
}

SecretBytes hmacStreebog256(ByteView key, ByteView data) {
    constexpr std::size_t block = 64;
    constexpr std::uint8_t inner = 0x36;
    constexpr std::uint8_t outer = 0x5C;
    const DigestAlgorithm& streebog = *findDigest(capi::CALG_GR3411_2012_256);
    if (key.size() > block) {
        fail(capi::NTE_BAD_LEN);
    }
    SecretBytes padded(block);
    std::ranges::copy(key, padded.begin());
    const auto keyed = [&](std::uint8_t pad, ByteView content) {
        SecretBytes mixed = padded;
        for (std::uint8_t& octet : mixed) {
            octet ^= pad;
        }
        Digest digest(streebog);
        digest.update(mixed);
        digest.update(content);
        Bytes value = digest.finish();
        SecretBytes result(value.begin(), value.end());
        OPENSSL_cleanse(value.data(), value.size());
        return result;
    };
    return keyed(outer, keyed(inner, data));
}

SecretBytes kdfTree512(ByteView key, std::string_view label, ByteView seed) {
    SecretBytes result;
    for (std::uint8_t part = 1; part <= 2; ++part) {
        Bytes input{part};
        input.insert(input.end(), label.begin(), label.end());
        input.push_back(0);
        input.insert(input.end(), seed.begin(), seed.end());
        input.insert(input.end(), {0x02, 0x00}); // 512 bits
        const SecretBytes value = hmacStreebog256(key, input);
        result.insert(result.end(), value.begin(), value.end());
    }
    return result;
}

namespace {

Bytes omacOfKey(Gost2015 cipher, GostKeyView macKey, ByteView iv, ByteView key) {
    Omac omac(cipher, macKey);
    omac.update(iv);
    omac.update(key);
    return omac.finish();
}

} // namespace

Bytes exportKey(Gost2015 cipher, ByteView key, GostKeyView macKey, GostKeyView encryptionKey, ByteView iv) {
    const Bytes mac = omacOfKey(cipher, macKey, iv, key);
    Bytes exported;
    exported.reserve(key.size() + mac.size());
    exported.insert(exported.end(), key.begin(), key.end());
    exported.insert(exported.end(), mac.begin(), mac.end());
    CtrMode(cipher, encryptionKey, iv).apply(exported);
    return exported;
}

SecretBytes importKey(Gost2015 cipher, ByteView exported, GostKeyView macKey, GostKeyView encryptionKey, ByteView iv) {
    const std::size_t block = blockSizeOf(cipher);
    if (exported.size() <= block) {
        fail(capi::NTE_BAD_DATA);
    }
    SecretBytes key(exported.begin(), exported.end());
    CtrMode(cipher, encryptionKey, iv).apply(key);
    const SecretBytes mac(key.end() - static_cast<std::ptrdiff_t>(block), key.end());
    key.resize(key.size() - block);
    if (CRYPTO_memcmp(omacOfKey(cipher, macKey, iv, key).data(), mac.data(), block) != 0) {
        fail(capi::NTE_BAD_DATA);
    }
    return key;
}

} // namespace klunortredi::csp
