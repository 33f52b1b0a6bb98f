#pragma once

#include <boost/date_time/posix_time/ptime.hpp>

#include <string>

namespace orvik::plugin::internal {

/// A time read from the front of a text, and how many of its octets made it.
struct ParsedTime {
    boost::posix_time::ptime time;
    std::size_t length = 0;
};

/// Reads by a strptime format in the C locale, strictly: what the format writes for the result is what stood there, so
/// short fields, blanks for digits and days that no month has are refused (not_a_date_time).
ParsedTime parseTime(const std::string& text, const std::string& format);

} // namespace orvik::plugin::internal
