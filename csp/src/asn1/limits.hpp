#pragma once

/// What an encoding may cost, whatever it holds.

#include <cstddef>

namespace klunortredi::csp::limits {

/// Open elements. SignedData itself needs 8; the rest is for octet strings nested in octet strings and for time-stamps
/// inside time-stamps in unsigned attributes, each of which costs about 9.
inline constexpr std::size_t nestingDepth = 64;

} // namespace klunortredi::csp::limits
