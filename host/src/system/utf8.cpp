#include "utf8.hpp"

#include "orvik/plugin/converter.hpp"

#include <algorithm>
#include <stdexcept>

namespace orvik::plugin::internal {

std::string asUtf8(std::string text) {
    try {
        converter::utf8_to_utf16(text);
    } catch (const std::range_error&) {
        std::replace_if(
            text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) > 0x7F; }, '?');
    }
    return text;
}

} // namespace orvik::plugin::internal
