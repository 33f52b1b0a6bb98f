#include "printable.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::cli {

namespace {

constexpr std::size_t longestName = 512; // characters, some lines of a terminal; real names are far shorter

struct Character {
    std::size_t octets;
    unsigned code; ///< of a stray octet its own value
    bool stray;    ///< it is not of a UTF-8 character
};

struct Range {
    unsigned first;
    unsigned last;
};

/// Forms of UTF-8 (RFC 3629, 3), in order of their length. Smaller codes are overlong forms, which are not UTF-8.
struct Form {
    unsigned mask;
    unsigned lead;
    unsigned smallest;
};
constexpr std::array<Form, 4> forms = {
    {{0x80U, 0x00U, 0U}, {0xE0U, 0xC0U, 0x80U}, {0xF0U, 0xE0U, 0x800U}, {0xF8U, 0xF0U, 0x10000U}}};

constexpr unsigned largestCode = 0x10FFFFU;
constexpr Range surrogates = {0xD800U, 0xDFFFU};

/// What is never shown raw.
constexpr std::array<Range, 12> hidden = {{
    {0x00U, 0x1FU},       // controls (C0)
    {0x7FU, 0x9FU},       // DEL, controls (C1)
    {0xADU, 0xADU},       // soft hyphen
    {0x061CU, 0x061CU},   // Arabic letter mark
    {0x180EU, 0x180EU},   // Mongolian vowel separator
    {0x200BU, 0x200FU},   // without width, marks of direction
    {0x2028U, 0x202EU},   // separators of lines and paragraphs, embedded direction
    {0x2060U, 0x206FU},   // word joiner, invisible operators, isolated direction, deprecated format characters
    {0xFE00U, 0xFE0FU},   // variation selectors
    {0xFEFFU, 0xFEFFU},   // byte order mark
    {0xFFF9U, 0xFFFBU},   // interlinear annotation
    {0xE0000U, 0xE01EFU}, // tags, more variation selectors
}};

bool isIn(const Range& range, unsigned code) {
    return code >= range.first && code <= range.last;
}

bool isHidden(unsigned code) {
    return std::any_of(hidden.begin(), hidden.end(), [code](const Range& range) { return isIn(range, code); });
}

/// The first character of a text that is not empty.
Character firstOf(std::string_view text) {
    const auto octet = [&](std::size_t i) { return static_cast<unsigned>(static_cast<unsigned char>(text[i])); };
    const Character stray{1, octet(0), true};
    const auto* form =
        std::find_if(forms.begin(), forms.end(), [&](const Form& f) { return (octet(0) & f.mask) == f.lead; });
    if (form == forms.end()) {
        return stray;
    }
    const auto length = static_cast<std::size_t>(form - forms.begin()) + 1;
    if (text.size() < length) {
        return stray;
    }
    unsigned code = octet(0) & ~form->mask;
    for (std::size_t i = 1; i < length; ++i) {
        if ((octet(i) & 0xC0U) != 0x80U) {
            return stray;
        }
        code = code << 6U | (octet(i) & 0x3FU);
    }
    const bool valid = code >= form->smallest && code <= largestCode && !isIn(surrogates, code);
    return valid ? Character{length, code, false} : stray;
}

enum class Case { lower, upper };

/// The last `digits` hexadecimal digits of a number.
std::string hexadecimal(unsigned number, std::size_t digits, Case letters) {
    const char* const alphabet = letters == Case::upper ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string text(digits, '0');
    for (std::size_t i = digits; i-- > 0; number >>= 4U) {
        text[i] = alphabet[number & 0xFU];
    }
    return text;
}

std::string escape(unsigned code) {
    if (code < 0x100U) {
        return "\\x" + hexadecimal(code, 2, Case::upper);
    }
    return code < 0x10000U ? "\\u" + hexadecimal(code, 4, Case::upper) : "\\U" + hexadecimal(code, 8, Case::upper);
}

/// As JSON writes it (RFC 8259, 7).
std::string jsonEscape(unsigned code) {
    const auto unit = [](unsigned value) { return "\\u" + hexadecimal(value, 4, Case::lower); };
    if (code < 0x10000U) {
        return unit(code);
    }
    const unsigned offset = code - 0x10000U;
    return unit(0xD800U + (offset >> 10U)) + unit(0xDC00U + (offset & 0x3FFU));
}

} // namespace

std::string printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const Character character = firstOf(text);
        if (character.stray || isHidden(character.code)) {
            shown += escape(character.code);
        } else {
            shown += text.substr(0, character.octets);
        }
        text.remove_prefix(character.octets);
    }
    return shown;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const Character character = firstOf(text);
        if (character.stray) {
            return false;
        }
        text.remove_prefix(character.octets);
    }
    return true;
}

std::string asUtf8(std::string_view text) {
    std::string valid;
    while (!text.empty()) {
        const Character character = firstOf(text);
        valid += character.stray ? escape(character.code) : std::string(text.substr(0, character.octets));
        text.remove_prefix(character.octets);
    }
    return valid;
}

std::string printableName(std::string_view name) {
    std::size_t octets = 0;
    for (std::size_t count = 0; count < longestName && octets < name.size(); ++count) {
        octets += firstOf(name.substr(octets)).octets;
    }
    return printable(name.substr(0, octets)) + (octets < name.size() ? "..." : "");
}

std::string printableJson(std::string_view json) {
    std::string shown;
    while (!json.empty()) {
        const Character character = firstOf(json);
        if (character.code >= 0x7FU && isHidden(character.code)) { // smaller ones: white space between values
            shown += jsonEscape(character.code);
        } else {
            shown += json.substr(0, character.octets);
        }
        json.remove_prefix(character.octets);
    }
    return shown;
}

} // namespace klunortredi::cli
