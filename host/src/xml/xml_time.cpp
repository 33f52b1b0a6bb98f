#include "xml_time.hpp"

#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/constant.hpp"

#include <boost/algorithm/string/trim.hpp>
#include <boost/date_time/posix_time/posix_time_duration.hpp>
#include <boost/date_time/posix_time/time_formatters.hpp>

#include <algorithm>
#include <optional>
#include <string_view>

namespace orvik::plugin::xml::internal {

namespace {

namespace times = boost::posix_time;

constexpr std::size_t secondsEnd = 19; // "YYYY-MM-DDThh:mm:ss"
constexpr int mostZoneHours = 14;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

int number(std::string_view twoDigits) {
    return (twoDigits[0] - '0') * 10 + twoDigits[1] - '0';
}

/// The offset of "Z" or "+hh:mm"; nullopt for anything else.
std::optional<times::time_duration> zoneOf(std::string_view text) {
    if (text == "Z") {
        return times::time_duration();
    }
    constexpr std::string_view form = "+00:00";
    const bool fits = text.size() == form.size() && (text[0] == '+' || text[0] == '-') && isDigit(text[1]) &&
                      isDigit(text[2]) && text[3] == ':' && isDigit(text[4]) && isDigit(text[5]);
    if (!fits || number(text.substr(1, 2)) > mostZoneHours || number(text.substr(4, 2)) > 59) {
        return std::nullopt;
    }
    const times::time_duration size(number(text.substr(1, 2)), number(text.substr(4, 2)), 0);
    return text[0] == '-' ? -size : size;
}

} // namespace

times::ptime timeOf(const std::string& text) {
    const std::string trimmed = boost::algorithm::trim_copy_if(
        text, [](char c) { return std::string_view(" \t\r\n").find(c) != std::string_view::npos; });
    if (trimmed.size() <= secondsEnd) {
        return {};
    }
    std::string_view rest = std::string_view(trimmed).substr(secondsEnd);
    if (rest.front() == '.') {
        const auto digits = std::find_if_not(rest.begin() + 1, rest.end(), isDigit) - rest.begin();
        rest.remove_prefix(static_cast<std::size_t>(digits));
    }
    const auto zone = zoneOf(rest);
    const auto time = converter::to_ptime(trimmed.substr(0, secondsEnd) + "Z", crypto::constant::timestampFormat);
    return zone && !time.is_special() ? time - *zone : times::ptime();
}

std::string dateTime(const times::ptime& time) {
    return times::to_iso_extended_string(time).substr(0, secondsEnd) + "Z";
}

} // namespace orvik::plugin::xml::internal
