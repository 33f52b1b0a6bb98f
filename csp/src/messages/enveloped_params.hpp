#pragma once

/// Parameters (CryptMsgGetParam) of a message of enveloped data.

#include "capi/types.h"

namespace klunortredi::csp {

class EnvelopedDecoder;

/// Gives parameter `type` by the two-call protocol. Throws ApiError: CRYPT_E_INVALID_MSG_TYPE for one that such a
/// message does not have, CRYPT_E_INVALID_INDEX, CRYPT_E_STREAM_MSG_NOT_READY for what is not read yet,
/// CRYPT_E_NOT_DECRYPTED for what only decryption gives.
void giveEnvelopedParam(const EnvelopedDecoder& message, DWORD type, DWORD index, void* data, DWORD* size);

} // namespace klunortredi::csp
