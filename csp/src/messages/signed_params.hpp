#pragma once

/// Parameters of a SignedData message that was read (CryptMsgGetParam).

#include "capi/types.h"

namespace klunortredi::csp {

class SignedDecoder;

/// Gives a parameter by the two-call protocol. ApiError: CRYPT_E_INVALID_MSG_TYPE for one that this kind of message
/// does not have, CRYPT_E_INVALID_INDEX, CRYPT_E_ATTRIBUTES_MISSING for attributes that the signer has none of.
void giveSignedParam(const SignedDecoder& message, DWORD type, DWORD index, void* data, DWORD* size);

} // namespace klunortredi::csp
