#pragma once

#include <string>

namespace orvik::plugin::internal {

/// The text, with "?" for every octet outside ASCII when it is not UTF-8: what the system says of itself is not
/// promised to be.
std::string asUtf8(std::string text);

} // namespace orvik::plugin::internal
