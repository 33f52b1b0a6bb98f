#pragma once

/// Certificate revocation lists, as far as stores carry them.

#include "core/bytes.hpp"

#include <optional>

namespace klunortredi::csp {

/// DER of the CRL that a file holds as DER or PEM; nothing when it holds none.
std::optional<Bytes> crlFromFile(ByteView contents);

} // namespace klunortredi::csp
