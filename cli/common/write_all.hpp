#pragma once

#include <string_view>

namespace klunortredi::cli {

/// Writes all octets to a descriptor. Returns 0, or the errno of what failed; interrupted calls are repeated.
int writeAll(int fd, std::string_view octets);

} // namespace klunortredi::cli
