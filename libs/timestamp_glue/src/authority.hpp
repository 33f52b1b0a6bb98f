#pragma once

#include <boost/date_time/posix_time/ptime.hpp>

#include <string>

namespace orvik::plugin::crypto {
class ICertificate;
}

namespace orvik::plugin::timestamp_glue {

/// Why a certificate may not sign time-stamps (RFC 3161, 2.3) of that time, in English; empty when it may: a critical
/// extended key usage with timeStamping alone, a key usage that allows signatures where there is one, and a validity
/// that covers the time.
std::string refusalOf(const crypto::ICertificate& certificate, const boost::posix_time::ptime& time);

} // namespace orvik::plugin::timestamp_glue
