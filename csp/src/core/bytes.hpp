#pragma once

/// Octet strings, as every room of the service passes them.

#include <cstdint>
#include <span>
#include <vector>

namespace klunortredi::csp {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

} // namespace klunortredi::csp
