#pragma once

/// Octets in lower-case hexadecimal.

#include "core/bytes.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace klunortredi::csp {

std::string toHex(ByteView octets);
/// Either case; nothing for an odd number of digits or anything else than digits.
std::optional<Bytes> fromHex(std::string_view text);

} // namespace klunortredi::csp
