#include "objects/time.hpp"

#include "core/error.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace klunortredi::csp {

namespace {

namespace chrono = std::chrono;

/// The unit of a FILETIME.
using Ticks = chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
using Moment = chrono::time_point<chrono::system_clock, Ticks>; // system_clock counts from 1970 (C++20)

constexpr chrono::sys_days FileTimeEpoch = chrono::year(1601) / 1 / 1;
constexpr std::size_t FractionDigits = 7; // of a tick

std::uint64_t ticksOf(const FILETIME& time) {
    return (static_cast<std::uint64_t>(time.dwHighDateTime) << 32U) | time.dwLowDateTime;
}

FILETIME fileTime(Moment moment) {
    const auto ticks = static_cast<std::uint64_t>((moment - FileTimeEpoch).count());
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32U)};
}

/// A moment taken apart; the weekday is for SYSTEMTIME.
struct Civil {
    chrono::year_month_day date;
    chrono::hh_mm_ss<Ticks> time;
    chrono::weekday weekday;
};

Civil civil(Moment moment) {
    const auto day = chrono::floor<chrono::days>(moment);
    return {day, chrono::hh_mm_ss<Ticks>(moment - day), chrono::weekday(day)};
}

Civil civil(const FILETIME& time) {
    const std::uint64_t ticks = ticksOf(time);
    // Year 9999 ends long before half the range, so what does not fit is refused with what no encoding can tell.
    if (ticks > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    const Civil parts = civil(Moment(FileTimeEpoch) + Ticks(static_cast<std::int64_t>(ticks)));
    if (parts.date.year() > chrono::year(9999)) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    return parts;
}

/// Nothing when there is no such moment. A leap second counts as none: no clock that we serve can tell it.
std::optional<Moment> moment(unsigned year, unsigned month, unsigned day, unsigned hour, unsigned minute,
                             unsigned second, Ticks fraction) {
    const chrono::year_month_day date(chrono::year(static_cast<int>(year)), chrono::month(month), chrono::day(day));
    if (!date.ok() || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    return Moment(chrono::sys_days(date)) + chrono::hours(hour) + chrono::minutes(minute) + chrono::seconds(second) +
           fraction;
}

/// `number` in at least `digits` decimal digits.
std::string padded(std::int64_t number, std::size_t digits) {
    const std::string text = std::to_string(number);
    return std::string(digits - std::min(digits, text.size()), '0') + text;
}

/// What follows the year in either type: month to second.
std::string afterYear(const Civil& parts) {
    return padded(static_cast<unsigned>(parts.date.month()), 2) + padded(static_cast<unsigned>(parts.date.day()), 2) +
           padded(parts.time.hours().count(), 2) + padded(parts.time.minutes().count(), 2) +
           padded(parts.time.seconds().count(), 2);
}

Bytes element(std::uint8_t identifier, std::string_view text) {
    return der::element(identifier, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

/// Takes `digits` decimal digits off the front of `text`.
unsigned take(std::string_view& text, std::size_t digits) {
    unsigned value = 0;
    if (text.size() < digits) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    for (const char digit : text.substr(0, digits)) {
        if (digit < '0' || digit > '9') {
            fail(capi::CRYPT_E_ASN1_CORRUPT);
        }
        value = value * 10 + static_cast<unsigned>(digit - '0');
    }
    text.remove_prefix(digits);
    return value;
}

Ticks takeFraction(std::string_view& text) {
    if (!text.starts_with('.')) {
        return Ticks(0);
    }
    text.remove_prefix(1);
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    if (digits == 0) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    std::string kept(text.substr(0, std::min(digits, FractionDigits)));
    kept.resize(FractionDigits, '0');
    text.remove_prefix(digits);
    std::string_view rest = kept;
    return Ticks(take(rest, FractionDigits));
}

FILETIME parse(std::string_view text, unsigned year, bool fractions) {
    std::array<unsigned, 5> fields{};
    for (unsigned& field : fields) {
        field = take(text, 2);
    }
    const Ticks fraction = fractions ? takeFraction(text) : Ticks(0);
    const auto when = moment(year, fields[0], fields[1], fields[2], fields[3], fields[4], fraction);
    if (!when || text != "Z") {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    if (*when < Moment(FileTimeEpoch)) {
        fail(capi::CRYPT_E_ASN1_LARGE);
    }
    return fileTime(*when);
}

std::string_view textOf(ByteView content) {
    return {reinterpret_cast<const char*>(content.data()), content.size()};
}

} // namespace

Bytes encodeChoiceOfTime(const FILETIME& time) {
    const Civil parts = civil(time);
    const int year = static_cast<int>(parts.date.year());
    if (year < 1950 || year >= 2050) {
        return encodeGeneralizedTime(time);
    }
    return element(der::tag::UtcTime, padded(year % 100, 2) + afterYear(parts) + "Z");
}

Bytes encodeGeneralizedTime(const FILETIME& time) {
    const Civil parts = civil(time);
    return element(der::tag::GeneralizedTime, padded(static_cast<int>(parts.date.year()), 4) + afterYear(parts) + "Z");
}

Bytes encodeGeneralizedTimeWithFraction(const FILETIME& time) {
    const Civil parts = civil(time);
    std::string text = padded(static_cast<int>(parts.date.year()), 4) + afterYear(parts);
    std::string fraction = padded(parts.time.subseconds().count(), FractionDigits);
    fraction.erase(fraction.find_last_not_of('0') + 1);
    if (!fraction.empty()) {
        text.append(".").append(fraction);
    }
    return element(der::tag::GeneralizedTime, text + "Z");
}

FILETIME decodeChoiceOfTime(const der::Element& element) {
    if (element.tag == der::tag::GeneralizedTime) {
        return decodeGeneralizedTime(element.content);
    }
    if (element.tag != der::tag::UtcTime) {
        fail(capi::CRYPT_E_ASN1_BADTAG);
    }
    std::string_view text = textOf(element.content);
    const unsigned year = take(text, 2);
    return parse(text, year < 50 ? 2000 + year : 1900 + year, false);
}

FILETIME decodeGeneralizedTime(ByteView content) {
    std::string_view text = textOf(content);
    const unsigned year = take(text, 4);
    return parse(text, year, true);
}

SYSTEMTIME systemTimeNow() {
    const Civil now = civil(chrono::time_point_cast<Ticks>(chrono::system_clock::now()));
    const auto word = [](auto value) { return static_cast<WORD>(value); };
    return {word(static_cast<int>(now.date.year())),
            word(static_cast<unsigned>(now.date.month())),
            word(now.weekday.c_encoding()),
            word(static_cast<unsigned>(now.date.day())),
            word(now.time.hours().count()),
            word(now.time.minutes().count()),
            word(now.time.seconds().count()),
            word(chrono::duration_cast<chrono::milliseconds>(now.time.subseconds()).count())};
}

FILETIME fileTimeOf(const SYSTEMTIME& time) {
    constexpr WORD lastYear = 30827; // the CryptoAPI's
    const bool inRange = time.wYear >= 1601 && time.wYear <= lastYear && time.wMilliseconds < 1000;
    const auto when = inRange ? moment(time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond,
                                       chrono::milliseconds(time.wMilliseconds))
                              : std::nullopt;
    if (!when) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    // A count from 1970 reaches the year 30827, one from 1601 as well: both stay below 2^63.
    return fileTime(*when);
}

} // namespace klunortredi::csp
