#pragma once

/// Conversions of texts and times. Wide text is UTF-32 in 4-byte wchar_t.

#include "orvik/plugin/export.hpp"

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/utility/string_view.hpp>

#include <cstdint>
#include <ctime>
#include <string>

namespace orvik::plugin::converter {

/// All throw std::range_error for malformed or unrepresentable text.
ORVIK_EXPORT std::wstring utf8_to_utf16(boost::string_view text);
ORVIK_EXPORT std::string utf16_to_utf8(boost::wstring_view text);
ORVIK_EXPORT std::wstring cp1251_to_utf16(boost::string_view text);
ORVIK_EXPORT std::string cp1251_to_utf8(boost::string_view text);

/// Seconds since 1970-01-01 UTC.
ORVIK_EXPORT boost::posix_time::ptime to_ptime(const std::time_t& seconds);
/// Parses by a strptime-like `format`; not_a_date_time when the text does not fit whole.
ORVIK_EXPORT boost::posix_time::ptime to_ptime(const std::string& text, const std::string& format);
ORVIK_EXPORT std::int64_t to_time_t_64(const boost::posix_time::ptime& time);

/// True for "true", "1", "yes", "on" in any case; false for everything else.
ORVIK_EXPORT bool to_bool(boost::string_view text);

} // namespace orvik::plugin::converter
