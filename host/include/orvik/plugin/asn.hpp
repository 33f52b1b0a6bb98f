#pragma once

/// Small DER encoders and readers.

#include "orvik/plugin/export.hpp"

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/utility/string_view.hpp>

#include <string>

namespace orvik::plugin::asn {

/// DER of a UTF8String.
ORVIK_EXPORT std::string utf8String(boost::string_view text);

namespace converter {

/// Parses the leading digits of an ASN.1 time by a strftime-like `format`; what stands behind them is ignored.
/// not_a_date_time when they do not fit.
ORVIK_EXPORT boost::posix_time::ptime utc_time_to_ptime(const std::string& value, const std::string& format);

} // namespace converter

} // namespace orvik::plugin::asn
