#pragma once

/// Distinguished names as text: the formats of CertNameToStr.

#include "capi/types.h"
#include "core/bytes.hpp"

#include <string>

namespace klunortredi::csp {

/// The text of a DER Name, in the order of the encoding (with CERT_NAME_STR_REVERSE_FLAG in the other one).
///
/// `type` is CERT_SIMPLE_NAME_STR (values alone), CERT_OID_NAME_STR (dotted type, "=", value) or CERT_X500_NAME_STR
/// (short key or "OID." and the dotted type), with CERT_NAME_STR_... flags for separators and quoting. The values of
/// all character string types are text; any other, or one that is malformed or holds a zero character, which would cut
/// the text short, is "#" and its DER in upper-case hexadecimal.
///
/// ApiError(ERROR_INVALID_PARAMETER) for another type, CRYPT_E_ASN1_... for what is no Name.
std::wstring nameToText(ByteView name, DWORD type);

} // namespace klunortredi::csp
