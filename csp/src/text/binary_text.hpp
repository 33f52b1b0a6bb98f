#pragma once

/// Octets as text: the formats of CryptBinaryToString.

#include "capi/types.h"
#include "core/bytes.hpp"

#include <string>

namespace klunortredi::csp {

/// `data` in the format and with the line ends that `flags` (CRYPT_STRING_...) tell: Base64 in lines of 64 characters,
/// bare or between the armour of a certificate or of a request, or plain hexadecimal in lower case. Every line ends in
/// CR LF; NOCR leaves LF, NOCRLF leaves nothing. ApiError(ERROR_INVALID_PARAMETER) for any other format or no data.
std::string binaryToText(ByteView data, DWORD flags);

} // namespace klunortredi::csp
