#pragma once

/// CryptSetKeyParam(KP_CERTIFICATE) gives a pointer and no length.

#include "core/bytes.hpp"

namespace klunortredi::csp {

/// The certificate that starts at `data`, as long as its own DER header says. Throws ApiError(NTE_BAD_DATA) when no DER
/// SEQUENCE of a believable size starts there; nothing behind the header is read before.
ByteView certificateArgument(const std::uint8_t* data);

} // namespace klunortredi::csp
