// Time-stamp requests, responses and tokens: what the service decodes it encodes again, and the result is decoded and
// encoded to the same octets. Built with libFuzzer, and replayed by a test.

#include "capi/constants.hpp"
#include "capi/types.h"
#include "exports/export.hpp"
#include "require.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace {

namespace api = klunortredi::csp::exports;
using Octets = std::vector<BYTE>;

const char* structType(DWORD number) {
    return reinterpret_cast<const char*>(std::uintptr_t{number});
}

/// A decoded structure, aligned as its members need; nothing when the service refuses.
std::optional<std::vector<std::max_align_t>> decode(DWORD type, const BYTE* data, std::size_t length) {
    DWORD size = 0;
    const auto count = static_cast<DWORD>(length);
    if (api::CryptDecodeObject(capi::X509_AND_PKCS_7, structType(type), data, count, 0, nullptr, &size) == 0) {
        return std::nullopt;
    }
    std::vector<std::max_align_t> structure(size / sizeof(std::max_align_t) + 1);
    require(api::CryptDecodeObject(capi::X509_AND_PKCS_7, structType(type), data, count, 0, structure.data(), &size) !=
                0,
            "what has a size is decoded");
    return structure;
}

Octets encode(DWORD type, const void* structure) {
    DWORD size = 0;
    require(api::CryptEncodeObject(capi::X509_AND_PKCS_7, structType(type), structure, nullptr, &size) != 0,
            "what is decoded is encoded");
    Octets encoded(size);
    require(api::CryptEncodeObject(capi::X509_AND_PKCS_7, structType(type), structure, encoded.data(), &size) != 0,
            "what has a size is encoded");
    encoded.resize(size);
    return encoded;
}

void checkStable(DWORD type, const BYTE* data, std::size_t size) {
    const auto structure = decode(type, data, size);
    if (!structure) {
        return;
    }
    const Octets once = encode(type, structure->data());
    const auto again = decode(type, once.data(), once.size());
    require(again.has_value(), "what is encoded is decoded");
    require(encode(type, again->data()) == once, "encoding is stable");
}

Octets param(void* message, DWORD type) {
    DWORD size = 0;
    if (api::CryptMsgGetParam(message, type, 0, nullptr, &size) == 0) {
        return {};
    }
    Octets value(size);
    require(api::CryptMsgGetParam(message, type, 0, value.data(), &size) != 0, "what has a size is given");
    return value;
}

/// Reads a token's content and its attributes as a caller does who checks it.
void readToken(const BYTE* data, std::size_t size) {
    void* const message = api::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, 0, 0, nullptr, nullptr);
    require(message != nullptr, "a message opens");
    if (api::CryptMsgUpdate(message, data, static_cast<DWORD>(size), 1) != 0) {
        const Octets content = param(message, capi::CMSG_CONTENT_PARAM);
        checkStable(capi::TIMESTAMP_INFO, content.data(), content.size());
        param(message, capi::CMSG_SIGNER_INFO_PARAM);
        param(message, capi::CMSG_SIGNER_AUTH_ATTR_PARAM);
        param(message, capi::CMSG_CERT_PARAM);
    }
    require(api::CryptMsgClose(message) != 0, "a message closes");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    checkStable(capi::TIMESTAMP_REQUEST, data, size);
    checkStable(capi::TIMESTAMP_RESPONSE, data, size);
    checkStable(capi::TIMESTAMP_INFO, data, size);
    readToken(data, size);
    if (const auto response = decode(capi::TIMESTAMP_RESPONSE, data, size)) {
        const auto& token = reinterpret_cast<const CRYPT_TIMESTAMP_RESPONSE*>(response->data())->ContentInfo;
        readToken(token.pbData, token.cbData);
    }
    return 0;
}
