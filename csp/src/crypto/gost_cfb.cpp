#include "crypto/gost_cfb.hpp"

#include "core/error.hpp"

#include <openssl/crypto.h>

#include <algorithm>

namespace klunortredi::csp {

namespace {
/// Octets under one key (RFC 4357, 2.3.2).
constexpr std::size_t meshingInterval = 1024;
} // namespace

GostCfb::GostCfb(const Gost28147ParamSet& set, GostKeyView key, const Gost28147::Block& iv)
    : cipher_(set, key), test_(set.test), register_(iv) {}

GostCfb::~GostCfb() {
    OPENSSL_cleanse(gamma_.data(), gamma_.size());
}

void GostCfb::meshIfDue() {
    if (sinceMeshing_ == meshingInterval) {
        if (test_) {
            fail(capi::NTE_BAD_ALGID);
        }
        cipher_.mesh(register_);
        sinceMeshing_ = 0;
    }
}

void GostCfb::nextGamma() {
    meshIfDue();
    gamma_ = register_;
    cipher_.encrypt(gamma_);
    used_ = 0;
    sinceMeshing_ += Gost28147::blockSize;
}

void GostCfb::encrypt(std::span<std::uint8_t> data) {
    for (std::uint8_t& octet : data) {
        if (used_ == Gost28147::blockSize) {
            nextGamma();
        }
        octet ^= gamma_[used_];
        register_[used_++] = octet;
    }
}

/// Decrypts whole blocks from the start of `data`, up to the next meshing; the octets done. Each block's gamma comes
/// from the ciphertext before it, which is all there, so the blocks do not wait for each other.
std::size_t GostCfb::decryptBlocks(std::span<std::uint8_t> data) {
    meshIfDue();
    std::array<std::uint8_t, meshingInterval> gamma{};
    const std::size_t size =
        std::min(data.size(), meshingInterval - sinceMeshing_) / Gost28147::blockSize * Gost28147::blockSize;
    std::ranges::copy(register_, gamma.begin());
    std::copy_n(data.begin(), size - Gost28147::blockSize, gamma.begin() + Gost28147::blockSize);
    std::copy_n(data.begin() + static_cast<std::ptrdiff_t>(size - Gost28147::blockSize), Gost28147::blockSize,
                register_.begin());
    cipher_.encryptBlocks(ByteView(gamma).first(size), gamma.data());
    for (std::size_t i = 0; i < size; ++i) {
        data[i] ^= gamma[i];
    }
    OPENSSL_cleanse(gamma.data(), size);
    sinceMeshing_ += size;
    return size;
}

void GostCfb::decrypt(std::span<std::uint8_t> data) {
    while (!data.empty()) {
        if (used_ == Gost28147::blockSize && data.size() >= Gost28147::blockSize) {
            data = data.subspan(decryptBlocks(data));
            continue;
        }
        if (used_ == Gost28147::blockSize) {
            nextGamma();
        }
        register_[used_] = data.front();
        data.front() ^= gamma_[used_++];
        data = data.subspan(1);
    }
}

} // namespace klunortredi::csp
