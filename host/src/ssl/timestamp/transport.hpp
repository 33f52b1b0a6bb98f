#pragma once

#include <string>

namespace orvik::plugin::ssl::internal {

/// Posts a DER TimeStampReq to the authority over HTTP or HTTPS (RFC 3161, 3.4) and gives the body of its answer.
/// Throws ApplicationException timestampRefused, with what went wrong as its text, for everything but a time-stamp
/// reply.
std::string exchangeTimestamp(const std::string& authority, const std::string& request);

} // namespace orvik::plugin::ssl::internal
