#pragma once

#include "capi/types.h"

namespace capi {

/// A parameter that only the embedded service knows, of a message that it refused with CRYPT_E_ASN1_LARGE: text that
/// names the limit ("more than 256 signers"), ASCII, with a final zero. Any other service refuses it.
inline constexpr DWORD CMSG_EXCEEDED_LIMIT_PARAM = 0x4B4C0005;

} // namespace capi
