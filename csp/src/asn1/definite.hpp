#pragma once

/// One form for what may come in several: BER rewritten with definite lengths.

#include "core/bytes.hpp"

#include <cstdint>

namespace klunortredi::csp {

/// `ber`, one element, with definite lengths of the fewest octets and with octet strings in one piece. DER comes back
/// unchanged. The order of sets and the content of other primitive elements stay as they are.
/// What lies deeper than limits::nestingDepth in an element of definite length stays as it is, and is not looked at.
/// ApiError(CRYPT_E_ASN1_...) for what is not one element of BER, or with other forms deeper than that.
Bytes toDefinite(ByteView ber);

/// Identifier and length octets of an element with `length` octets of content; any length of 64 bits.
Bytes definiteHeader(std::uint8_t identifier, std::uint64_t length);

} // namespace klunortredi::csp
