#include "crypto/gost_cfb.hpp"

#include "core/error.hpp"

#include <openssl/crypto.h>

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

void GostCfb::nextGamma() {
    if (sinceMeshing_ == meshingInterval) {
        if (test_) {
            fail(capi::NTE_BAD_ALGID);
        }
        cipher_.mesh(register_);
        sinceMeshing_ = 0;
    }
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

void GostCfb::decrypt(std::span<std::uint8_t> data) {
    for (std::uint8_t& octet : data) {
        if (used_ == Gost28147::blockSize) {
            nextGamma();
        }
        register_[used_] = octet;
        octet ^= gamma_[used_++];
    }
}

} // namespace klunortredi::csp
