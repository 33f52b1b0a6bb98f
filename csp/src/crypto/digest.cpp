#include "crypto/digest.hpp"

#include "core/error.hpp"
#include "crypto/engine.hpp"
#include "crypto/sha.hpp"

#include <array>

namespace klunortredi::csp {

namespace {

/// GOST R 34.11-94 of no data, with the CryptoPro parameters (RFC 5831, RFC 4357). The engine hashes a block of zeros
/// there, although the standard has none.
constexpr std::array<std::uint8_t, 32> gost94OfNothing{0x98, 0x1e, 0x5f, 0x3c, 0xa3, 0x0c, 0x84, 0x14, 0x87, 0x83, 0x0f,
                                                       0x84, 0xfb, 0x43, 0x3e, 0x13, 0xac, 0x11, 0x01, 0x56, 0x9b, 0x9c,
                                                       0x13, 0x58, 0x4a, 0xc4, 0x83, 0x23, 0x4c, 0xd6, 0x56, 0xc0};

ossl::MdCtx newContext() {
    ossl::MdCtx context(EVP_MD_CTX_new());
    if (!context) {
        throw std::bad_alloc();
    }
    return context;
}

} // namespace

Digest::Digest(const DigestAlgorithm& algorithm) : algorithm_(&algorithm), context_(newContext()) {
    const ossl::ErrorMark mark;
    const EVP_MD* const method = digestMethod(algorithm);
    if (EVP_DigestInit_ex(context_.get(), method, algorithm.gost ? gostEngine() : nullptr) != 1) {
        fail(capi::NTE_BAD_ALGID);
    }
}

Digest::Digest(const Digest& other) : algorithm_(other.algorithm_), context_(newContext()), empty_(other.empty_) {
    const ossl::ErrorMark mark;
    if (EVP_MD_CTX_copy_ex(context_.get(), other.context_.get()) != 1) {
        fail(capi::NTE_FAIL);
    }
}

void Digest::update(ByteView data) {
    empty_ = empty_ && data.empty();
    const ossl::ErrorMark mark;
    if (EVP_DigestUpdate(context_.get(), data.data(), data.size()) != 1) {
        fail(capi::NTE_FAIL);
    }
}

Bytes Digest::finish() {
    const ossl::ErrorMark mark;
    Bytes value(algorithm_->size);
    unsigned int length = 0;
    if (EVP_MD_CTX_get_size(context_.get()) != static_cast<int>(value.size()) ||
        EVP_DigestFinal_ex(context_.get(), value.data(), &length) != 1 || length != value.size()) {
        fail(capi::NTE_FAIL);
    }
    if (empty_ && algorithm_->id == capi::CALG_GR3411) {
        value.assign(gost94OfNothing.begin(), gost94OfNothing.end());
    }
    return value;
}

Bytes Digest::of(const DigestAlgorithm& algorithm, ByteView data) {
    if (auto value = shaOf(algorithm, data)) {
        return *std::move(value);
    }
    Digest digest(algorithm);
    digest.update(data);
    return digest.finish();
}

} // namespace klunortredi::csp
