#include "text/unicode.hpp"

#include <iconv.h>
#include <openssl/asn1.h>

#include <array>
#include <cstdint>
#include <memory>

namespace klunortredi::csp {

namespace {

/// An iconv descriptor that closes itself.
struct IconvCloser {
    void operator()(void* descriptor) const noexcept { iconv_close(descriptor); }
};
using Iconv = std::unique_ptr<void, IconvCloser>;

Iconv openIconv(const char* to, const char* from) {
    iconv_t const descriptor = iconv_open(to, from);
    // iconv_open tells failure by the pointer -1.
    return Iconv(reinterpret_cast<std::intptr_t>(descriptor) == -1 ? nullptr : descriptor);
}

} // namespace

std::optional<std::wstring> wideFromUtf8(std::string_view utf8) {
    const auto* at = reinterpret_cast<const unsigned char*>(utf8.data());
    std::size_t left = utf8.size();
    std::wstring wide;
    wide.reserve(left);
    constexpr int longestCharacter = 4;
    while (left != 0) {
        unsigned long character = 0;
        const int visible = left < longestCharacter ? static_cast<int>(left) : longestCharacter;
        const int used = UTF8_getc(at, visible, &character);
        if (used <= 0 || !isUnicodeScalar(static_cast<char32_t>(character))) {
            return std::nullopt;
        }
        wide.push_back(static_cast<wchar_t>(character));
        at += used;
        left -= static_cast<std::size_t>(used);
    }
    return wide;
}

std::optional<std::string> utf8FromWide(std::wstring_view wide) {
    std::string utf8;
    utf8.reserve(wide.size());
    for (const wchar_t character : wide) {
        std::array<unsigned char, 6> octets{};
        if (!isUnicodeScalar(static_cast<char32_t>(character))) {
            return std::nullopt;
        }
        const int used =
            UTF8_putc(octets.data(), static_cast<int>(octets.size()), static_cast<unsigned long>(character));
        if (used <= 0) {
            return std::nullopt;
        }
        utf8.append(octets.begin(), octets.begin() + used);
    }
    return utf8;
}

std::optional<std::string> cp1251FromUtf8(std::string_view utf8) {
    const Iconv converter = openIconv("CP1251", "UTF-8");
    if (!converter) {
        return std::nullopt;
    }
    // Every character of Windows-1251 is one octet, so the result is never longer than the UTF-8.
    std::string text(utf8.size(), '\0');
    std::string input(utf8);
    char* from = input.data();
    std::size_t fromLeft = input.size();
    char* to = text.data();
    std::size_t toLeft = text.size();
    if (iconv(converter.get(), &from, &fromLeft, &to, &toLeft) != 0 || fromLeft != 0) {
        return std::nullopt;
    }
    text.resize(text.size() - toLeft);
    return text;
}

} // namespace klunortredi::csp
