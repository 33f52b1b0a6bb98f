#pragma once

#include "capi/types.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvik::plugin::wincrypt {

/// Description of a message that streams, of a length that nobody knows beforehand, into `output`.
CMSG_STREAM_INFO streamInto(std::vector<unsigned char>& output);

/// Passes octets to a message, not as the last ones. Throws ApplicationException cancelled when the person dismissed a
/// dialogue of the service, SystemException for every other failure; both as of function "validateCryptMsgUpdate" of
/// `file`. Throws boost::numeric::positive_overflow for 4 GiB or more.
void updateMessage(void* hMsg, const unsigned char* data, std::size_t size, const char* file);

/// The octet of a stream that waits for what follows it, so that the final update of a message carries data.
struct HeldBackOctet {
    bool& pending;
    std::uint8_t& octet;
};

/// Passes `size` octets to a message but for the last one, which is held back; the octet held back before goes first.
/// Null `data` passes that one only. `consumed`, when given, gets `size`. Throws as updateMessage() does.
void feedMessage(void* hMsg, HeldBackOctet heldBack, const unsigned char* data, std::size_t size, std::size_t* consumed,
                 const char* file);

} // namespace orvik::plugin::wincrypt
