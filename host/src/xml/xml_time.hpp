#pragma once

#include <boost/date_time/posix_time/ptime.hpp>

#include <string>

namespace orvik::plugin::xml::internal {

/// The UTC time of an xsd:dateTime with a time zone, fractions of a second cut off; not_a_date_time for any other text,
/// and without a time zone, where it is not known which time is meant.
boost::posix_time::ptime timeOf(const std::string& text);

/// "YYYY-MM-DDThh:mm:ssZ".
std::string dateTime(const boost::posix_time::ptime& time);

} // namespace orvik::plugin::xml::internal
