#include "orvik/plugin/asn.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/tools.hpp"

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

#include <clocale>
#include <limits>
#include <stdexcept>

namespace {

namespace converter = orvik::plugin::converter;
using boost::posix_time::ptime;
using boost::posix_time::time_from_string;
using orvik::plugin::crypto::constant::timestampFormat;
using orvik::plugin::crypto::tools::likelyUnixTimestamp;

constexpr const char* asn1Format = "%Y%m%d%H%M%S";

TEST(TimeFromSeconds, CountsFrom1970) {
    EXPECT_EQ(converter::to_ptime(0), time_from_string("1970-01-01 00:00:00"));
    EXPECT_EQ(converter::to_ptime(1700000000), time_from_string("2023-11-14 22:13:20"));
    EXPECT_EQ(converter::to_ptime(-1), time_from_string("1969-12-31 23:59:59"));
}

TEST(TimeFromSeconds, KnowsTheYears1400To9999) {
    EXPECT_EQ(converter::to_ptime(-17987443200), time_from_string("1400-01-01 00:00:00"));
    EXPECT_EQ(converter::to_ptime(253402300799), time_from_string("9999-12-31 23:59:59"));
    EXPECT_TRUE(converter::to_ptime(-17987443201).is_special());
    EXPECT_TRUE(converter::to_ptime(253402300800).is_special());
    EXPECT_TRUE(converter::to_ptime(std::numeric_limits<std::time_t>::max()).is_special());
    EXPECT_TRUE(converter::to_ptime(std::numeric_limits<std::time_t>::min()).is_special());
}

TEST(TimeToSeconds, IsTheReverse) {
    for (const std::time_t seconds : {std::time_t{0}, std::time_t{1700000000}, std::time_t{-1},
                                      std::time_t{-17987443200}, std::time_t{253402300799}}) {
        EXPECT_EQ(converter::to_time_t_64(converter::to_ptime(seconds)), seconds);
    }
}

TEST(TimeToSeconds, RefusesATimeThatIsNoDate) {
    EXPECT_THROW(converter::to_time_t_64(ptime()), std::range_error);
    EXPECT_THROW(converter::to_time_t_64(ptime(boost::date_time::pos_infin)), std::range_error);
}

TEST(TimeFromText, ReadsTheTimestampFormat) {
    EXPECT_EQ(converter::to_ptime("2023-11-14T22:13:20Z", timestampFormat), time_from_string("2023-11-14 22:13:20"));
    EXPECT_EQ(converter::to_ptime("2024-02-29T00:00:00Z", timestampFormat), time_from_string("2024-02-29 00:00:00"));
}

TEST(TimeFromText, RefusesWhatDoesNotFitWhole) {
    for (const auto* text : {"", "yesterday", "2023-11-14T22:13:20", "2023-11-14T22:13:20Z ", "2023-11-14T22:13:20ZZ",
                             " 2023-11-14T22:13:20Z", "2023-11-14 22:13:20Z", "2023-1-14T22:13:20Z"}) {
        EXPECT_TRUE(converter::to_ptime(text, timestampFormat).is_special()) << text;
    }
    EXPECT_TRUE(converter::to_ptime(std::string("2023-11-14T22:13:20Z\0", 21), timestampFormat).is_special());
}

TEST(TimeFromText, RefusesDaysAndHoursThatDoNotExist) {
    for (const auto* text : {"2023-02-29T00:00:00Z", "2023-04-31T00:00:00Z", "2023-13-01T00:00:00Z",
                             "2023-01-01T24:00:00Z", "2023-01-01T00:00:60Z", "0001-01-01T00:00:00Z"}) {
        EXPECT_TRUE(converter::to_ptime(text, timestampFormat).is_special()) << text;
    }
}

TEST(TimeFromText, DoesNotDependOnTheLocale) {
    ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
    EXPECT_EQ(converter::to_ptime("14 Nov 2023", "%d %b %Y"), time_from_string("2023-11-14 00:00:00"));
}

TEST(Asn1Time, IgnoresWhatStandsBehindTheDigits) {
    const auto expected = time_from_string("2023-11-14 22:13:20");
    EXPECT_EQ(orvik::plugin::asn::converter::utc_time_to_ptime("20231114221320Z", asn1Format), expected);
    EXPECT_EQ(orvik::plugin::asn::converter::utc_time_to_ptime("20231114221320", asn1Format), expected);
    EXPECT_EQ(orvik::plugin::asn::converter::utc_time_to_ptime("20231114221320.5Z", asn1Format), expected);
    EXPECT_EQ(orvik::plugin::asn::converter::utc_time_to_ptime("231114221320Z", "%y%m%d%H%M%S"), expected);
}

TEST(Asn1Time, RefusesTooFewDigitsAndOtherText) {
    for (const auto* text : {"", "Z", "2023111422132Z", "20231114 21320Z", "20231314221320Z", "x20231114221320Z"}) {
        EXPECT_TRUE(orvik::plugin::asn::converter::utc_time_to_ptime(text, asn1Format).is_special()) << text;
    }
}

TEST(ToBool, KnowsFourWordsInAnyCase) {
    for (const auto* word : {"true", "TRUE", "True", "1", "yes", "YES", "on", "On"}) {
        EXPECT_TRUE(converter::to_bool(word)) << word;
    }
}

TEST(ToBool, IsFalseForEverythingElse) {
    for (const auto* word : {"", "false", "0", "no", "off", "2", "11", "y", " true", "true ", "да"}) {
        EXPECT_FALSE(converter::to_bool(word)) << word;
    }
}

TEST(LikelyUnixTimestamp, IsADecimalNumberPerhapsSigned) {
    for (const auto* text : {"0", "1700000000", "-1", "+5", "99999999999999999999999"}) {
        EXPECT_TRUE(likelyUnixTimestamp(text)) << text;
    }
    for (const auto* text : {"", "-", "+", "--1", "1.5", "0x10", " 1", "1 ", "2023-11-14T22:13:20Z", "yesterday"}) {
        EXPECT_FALSE(likelyUnixTimestamp(text)) << text;
    }
}

} // namespace
