#include "orvik/plugin/converter.hpp"
#include "time_text.hpp"

#include <boost/algorithm/string/predicate.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <array>
#include <locale>
#include <stdexcept>

namespace orvik::plugin::converter {

namespace {

using boost::posix_time::ptime;

const ptime& epoch() {
    static const ptime value(boost::gregorian::date(1970, 1, 1));
    return value;
}

// The years that Boost.Date_Time's calendar knows.
constexpr std::int64_t earliest = -17987443200; // 1400-01-01T00:00:00Z
constexpr std::int64_t latest = 253402300799;   // 9999-12-31T23:59:59Z

constexpr std::array<const char*, 4> yesWords = {"true", "1", "yes", "on"};

} // namespace

ptime to_ptime(const std::time_t& seconds) {
    if (seconds < earliest || seconds > latest) {
        return {};
    }
    constexpr std::time_t day = 24 * 60 * 60;
    // A time_duration counts in microseconds in 64 bits, enough for these years; days apart keep it plain.
    return epoch() + boost::gregorian::days(seconds / day) + boost::posix_time::seconds(seconds % day);
}

ptime to_ptime(const std::string& text, const std::string& format) {
    const internal::ParsedTime parsed = internal::parseTime(text, format);
    return parsed.length == text.size() ? parsed.time : ptime();
}

std::int64_t to_time_t_64(const ptime& time) {
    if (time.is_special()) {
        throw std::range_error("a time that is no date has no seconds since 1970");
    }
    return (time - epoch()).total_seconds();
}

bool to_bool(boost::string_view text) {
    return std::any_of(yesWords.begin(), yesWords.end(),
                       [&](const char* word) { return boost::algorithm::iequals(text, word, std::locale::classic()); });
}

} // namespace orvik::plugin::converter
