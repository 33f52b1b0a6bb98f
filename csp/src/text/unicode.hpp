#pragma once

/// Text between UTF-8, the four-octet wide characters of the interface and Windows-1251.

#include <optional>
#include <string>
#include <string_view>

namespace klunortredi::csp {

/// A character that text may hold: U+0000 to U+10FFFF without the surrogates.
constexpr bool isUnicodeScalar(char32_t character) noexcept {
    return character < 0xD800 || (character > 0xDFFF && character <= 0x10FFFF);
}

/// Nothing when the text is not well-formed: overlong forms, surrogates, characters above U+10FFFF.
std::optional<std::wstring> wideFromUtf8(std::string_view utf8);
std::optional<std::string> utf8FromWide(std::wstring_view wide);
/// Nothing when the text is not well-formed or has a character that Windows-1251 lacks.
std::optional<std::string> cp1251FromUtf8(std::string_view utf8);

} // namespace klunortredi::csp
