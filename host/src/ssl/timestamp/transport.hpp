#pragma once

#include <string>

namespace orvik::plugin::ssl::internal {

/// Sends a DER TimeStampReq to the authority over HTTP or HTTPS (RFC 3161, 3.4) and returns the body of its answer,
/// which is of media type application/timestamp-reply and not judged further. The address of the authority may be
/// private: the user names it. Throws ApplicationException timestampRefused, with the address and the reason as its
/// text, when there is no such answer.
std::string exchangeTimestamp(const std::string& authority, const std::string& request);

} // namespace orvik::plugin::ssl::internal
