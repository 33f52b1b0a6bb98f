#include "printable.hpp"

#include <array>
#include <cstdio>

namespace klunortredi::cli {

namespace {

struct Character {
    std::size_t octets;
    unsigned code; ///< 0xFFFD for those that are never hidden: of four octets, and stray octets
};

/// The first character of a UTF-8 text.
Character firstOf(std::string_view text) {
    const auto octet = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const auto follows = [&](std::size_t i) { return (octet(i) & 0xC0U) == 0x80U; };
    const auto tail = [&](std::size_t i) { return octet(i) & 0x3FU; };
    if (octet(0) < 0x80U) {
        return {1, octet(0)};
    }
    if ((octet(0) & 0xE0U) == 0xC0U && follows(1)) {
        return {2, (octet(0) & 0x1FU) << 6U | tail(1)};
    }
    if ((octet(0) & 0xF0U) == 0xE0U && follows(1) && follows(2)) {
        return {3, (octet(0) & 0x0FU) << 12U | tail(1) << 6U | tail(2)};
    }
    return {1, 0xFFFDU};
}

bool isHidden(unsigned code) {
    const bool control = code < 0x20U || (code >= 0x7FU && code < 0xA0U);
    const bool direction =
        code == 0x061CU || code == 0x200EU || code == 0x200FU || (code >= 0x2066U && code <= 0x2069U);
    return control || direction || (code >= 0x2028U && code <= 0x202EU); // separators, and more of direction
}

} // namespace

std::string printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const Character character = firstOf(text);
        if (isHidden(character.code)) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), character.code < 0x100U ? "\\x%02X" : "\\u%04X",
                          character.code);
            shown += escape.data();
        } else {
            shown += text.substr(0, character.octets);
        }
        text.remove_prefix(character.octets);
    }
    return shown;
}

} // namespace klunortredi::cli
