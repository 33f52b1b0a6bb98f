#pragma once

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstddef>

namespace klunortredi::cli {

/// The value of a signing-time attribute (RFC 5652, 11.3), DER, UTC; not set when it is empty or cannot be read.
boost::posix_time::ptime signingTimeOf(const unsigned char* der, std::size_t size);

} // namespace klunortredi::cli
