#include "crypto/sha.hpp"

#include "core/error.hpp"

#include <openssl/sha.h>

namespace klunortredi::csp {

namespace {

template <class Context, auto Init, auto Update, auto Final>
Bytes hash(std::size_t size, ByteView data) {
    Context context{};
    Bytes value(size);
    if (Init(&context) != 1 || Update(&context, data.data(), data.size()) != 1 || Final(value.data(), &context) != 1) {
        fail(capi::NTE_FAIL);
    }
    return value;
}

} // namespace

std::optional<Bytes> shaOf(const DigestAlgorithm& algorithm, ByteView data) {
    switch (algorithm.id) {
    case capi::CALG_SHA1:
        return hash<SHA_CTX, SHA1_Init, SHA1_Update, SHA1_Final>(SHA_DIGEST_LENGTH, data);
    case capi::CALG_SHA_256:
        return hash<SHA256_CTX, SHA256_Init, SHA256_Update, SHA256_Final>(SHA256_DIGEST_LENGTH, data);
    case capi::CALG_SHA_384:
        return hash<SHA512_CTX, SHA384_Init, SHA384_Update, SHA384_Final>(SHA384_DIGEST_LENGTH, data);
    case capi::CALG_SHA_512:
        return hash<SHA512_CTX, SHA512_Init, SHA512_Update, SHA512_Final>(SHA512_DIGEST_LENGTH, data);
    default:
        return std::nullopt;
    }
}

} // namespace klunortredi::csp
