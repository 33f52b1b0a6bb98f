#pragma once

/// What a message answers to a control (CryptMsgControl) that it does not have.

#include "capi/types.h"

namespace klunortredi::csp {

/// Throws ApiError: CRYPT_E_INVALID_MSG_TYPE for a control of another kind of message, CRYPT_E_CONTROL_TYPE for one
/// that no message has.
[[noreturn]] void refuseControl(DWORD type);

} // namespace klunortredi::csp
