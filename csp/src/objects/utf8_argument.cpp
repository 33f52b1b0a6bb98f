#include "objects/utf8_argument.hpp"

#include "core/bytes.hpp"
#include "core/error.hpp"
#include "text/unicode.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace klunortredi::csp {

namespace {

constexpr std::size_t WideSize = sizeof(wchar_t);
constexpr std::uint32_t LastCharacter = 0x10FFFF;

/// May stand for octets of any type.
using AliasingWord [[gnu::may_alias]] = std::uint32_t;

bool isAligned(const BYTE* data) {
    return reinterpret_cast<std::uintptr_t>(data) % WideSize == 0;
}

/// The aligned word at `data`, of which only the first octet need be the caller's. An aligned word lies within one
/// page, so reading it cannot fault; the sanitizer, which knows the exact end, is told so.
__attribute__((no_sanitize("address"), noinline)) std::uint32_t alignedWord(const BYTE* data) {
    return *reinterpret_cast<const volatile AliasingWord*>(data);
}

/// No octet of text: NUL, and the control characters but TAB, LF and CR.
bool isControl(BYTE octet) {
    return (octet < 0x20 && octet != '\t' && octet != '\n' && octet != '\r') || octet == 0x7F;
}

std::string_view asText(ByteView octets) {
    return {reinterpret_cast<const char*>(octets.data()), octets.size()};
}

/// Whether every complete group of four octets can be a wide character.
bool looksWide(ByteView octets) {
    for (; octets.size() >= WideSize; octets = octets.subspan(WideSize)) {
        if (octets[3] != 0 || octets[2] > (LastCharacter >> 16U)) {
            return false;
        }
    }
    return true;
}

bool isWide(ByteView visible) {
    if (visible.size() >= WideSize) {
        return looksWide(visible);
    }
    const bool text = std::ranges::none_of(visible, isControl);
    if ((text && visible.size() > 1) || !isAligned(visible.data())) {
        return false;
    }
    const std::uint32_t word = alignedWord(visible.data());
    const bool terminatedLetter = text && word % 0x100 < 0x80 && (word & 0xFF00U) == 0;
    return word <= LastCharacter && !terminatedLetter;
}

/// `count` is the number of characters, or of octets when a zero stands where the octets end.
std::wstring readWide(const BYTE* data, std::size_t count) {
    std::wstring text;
    for (std::size_t i = 0; i < count; ++i) {
        wchar_t character = 0;
        std::memcpy(&character, data + i * WideSize, WideSize);
        if (character == 0) {
            if (i * WideSize != count) {
                fail(capi::CRYPT_E_BAD_ENCODE);
            }
            break;
        }
        text.push_back(character);
    }
    return text;
}

/// The octets that `value` counts.
ByteView visibleOctets(const CRYPTOAPI_BLOB& value) {
    if (value.cbData != 0 && value.pbData == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    return {value.pbData, value.cbData};
}

std::string utf8Of(std::wstring_view text) {
    if (const auto utf8 = utf8FromWide(text)) {
        return *utf8;
    }
    fail(capi::CRYPT_E_BAD_ENCODE);
}

std::string utf8Of(ByteView octets) {
    if (std::ranges::find(octets, 0) == octets.end() && wideFromUtf8(asText(octets))) {
        return std::string(asText(octets));
    }
    fail(capi::CRYPT_E_BAD_ENCODE);
}

} // namespace

std::string utf8Argument(const CRYPTOAPI_BLOB& value) {
    const ByteView visible = visibleOctets(value);
    if (!visible.empty() && isWide(visible)) {
        return utf8Of(readWide(value.pbData, value.cbData));
    }
    return utf8Of(visible);
}

std::string utf8ArgumentInOctets(const CRYPTOAPI_BLOB& value) {
    const ByteView octets = visibleOctets(value);
    if (octets.empty() || octets.size() % WideSize != 0 || !looksWide(octets)) {
        return utf8Of(octets);
    }
    std::wstring text(octets.size() / WideSize, L'\0');
    std::memcpy(text.data(), octets.data(), octets.size());
    if (text.find(L'\0') != std::wstring::npos) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    return utf8Of(text);
}

} // namespace klunortredi::csp
