#include "core/hex.hpp"

#include <charconv>

namespace klunortredi::csp {

std::string toHex(ByteView octets) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(octets.size() * 2);
    for (const std::uint8_t octet : octets) {
        text += digits[octet >> 4U];
        text += digits[octet & 0x0FU];
    }
    return text;
}

std::optional<Bytes> fromHex(std::string_view text) {
    if (text.size() % 2 != 0) {
        return std::nullopt;
    }
    Bytes octets(text.size() / 2);
    for (std::size_t i = 0; i < octets.size(); ++i) {
        const char* const end = text.data() + 2 * i + 2;
        if (std::from_chars(end - 2, end, octets[i], 16).ptr != end) {
            return std::nullopt;
        }
    }
    return octets;
}

} // namespace klunortredi::csp
