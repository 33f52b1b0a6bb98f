#include "text/binary_text.hpp"

#include "core/error.hpp"
#include "core/hex.hpp"

#include <openssl/evp.h>

#include <array>
#include <limits>
#include <string_view>

namespace klunortredi::csp {

namespace {

constexpr std::size_t Base64Line = 64; // RFC 7468, section 2

std::string base64(ByteView data) {
    std::string text((data.size() + 2) / 3 * 4 + 1, '\0');
    const int size =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), data.data(), static_cast<int>(data.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

struct Format {
    DWORD flag;
    std::string (*encode)(ByteView);
    std::size_t lineLength; ///< 0: all in one line
    std::string_view label; ///< of the armour; empty when none
};

constexpr std::array formats{
    Format{capi::CRYPT_STRING_BASE64HEADER, base64, Base64Line, "CERTIFICATE"},
    Format{capi::CRYPT_STRING_BASE64, base64, Base64Line, ""},
    Format{capi::CRYPT_STRING_BASE64REQUESTHEADER, base64, Base64Line, "NEW CERTIFICATE REQUEST"},
    Format{capi::CRYPT_STRING_HEXRAW, toHex, 0, ""},
};

const Format& findFormat(DWORD flag) {
    for (const Format& format : formats) {
        if (format.flag == flag) {
            return format;
        }
    }
    fail(capi::ERROR_INVALID_PARAMETER);
}

std::string_view lineEnd(DWORD flags) {
    if ((flags & capi::CRYPT_STRING_NOCRLF) != 0) {
        return "";
    }
    return (flags & capi::CRYPT_STRING_NOCR) != 0 ? "\n" : "\r\n";
}

} // namespace

std::string binaryToText(ByteView data, DWORD flags) {
    const Format& format = findFormat(flags & ~(capi::CRYPT_STRING_NOCRLF | capi::CRYPT_STRING_NOCR));
    // OpenSSL counts in int, and the text is up to twice as long.
    if (data.empty() || data.size() > std::numeric_limits<int>::max() / 2) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    const std::string_view end = lineEnd(flags);
    const std::string body = format.encode(data);
    const std::size_t step = format.lineLength == 0 ? body.size() : format.lineLength;
    std::string text;
    const auto armour = [&](std::string_view word) {
        if (!format.label.empty()) {
            text.append("-----").append(word).append(" ").append(format.label).append("-----").append(end);
        }
    };
    armour("BEGIN");
    for (std::size_t at = 0; at < body.size(); at += step) {
        text.append(body, at, step).append(end);
    }
    armour("END");
    return text;
}

} // namespace klunortredi::csp
