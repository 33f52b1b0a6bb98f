#include "crypto/digest.hpp"

#include "core/error.hpp"
#include "crypto/engine.hpp"

namespace klunortredi::csp {

namespace {

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

Digest::Digest(const Digest& other) : algorithm_(other.algorithm_), context_(newContext()) {
    const ossl::ErrorMark mark;
    if (EVP_MD_CTX_copy_ex(context_.get(), other.context_.get()) != 1) {
        fail(capi::NTE_FAIL);
    }
}

void Digest::update(ByteView data) {
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
    return value;
}

Bytes Digest::of(const DigestAlgorithm& algorithm, ByteView data) {
    Digest digest(algorithm);
    digest.update(data);
    return digest.finish();
}

} // namespace klunortredi::csp
