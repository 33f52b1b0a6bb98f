#pragma once

#include "capi/types.h"

#include <vector>

namespace orvik::plugin::wincrypt {

/// Description of a message that streams, of a length that nobody knows beforehand, into `output`.
CMSG_STREAM_INFO streamInto(std::vector<unsigned char>& output);

/// Passes octets to a message, not as the last ones. Throws ApplicationException cancelled when the person dismissed a
/// dialogue of the service, SystemException for every other failure; both as of function "validateCryptMsgUpdate" of
/// `file`. Throws boost::numeric::positive_overflow for 4 GiB or more.
void updateMessage(void* hMsg, const unsigned char* data, std::size_t size, const char* file);

} // namespace orvik::plugin::wincrypt
