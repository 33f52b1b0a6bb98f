// The encoding tools over the embedded service's own encoder.
#include "crypto/wincrypt/tools_encode.hpp"

#include "crypto/wincrypt/wincrypt_handler.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <gtest/gtest.h>

namespace {

namespace tools = orvik::plugin::wincrypt::tools;
using boost::posix_time::ptime;

FILETIME fileTime(int year, int month, int day, const boost::posix_time::time_duration& time = {}) {
    const auto count = static_cast<std::uint64_t>(orvik::plugin::wincrypt::converter::to_filetime(
        ptime({static_cast<unsigned short>(year), static_cast<unsigned short>(month), static_cast<unsigned short>(day)},
              time)));
    return {static_cast<DWORD>(count), static_cast<DWORD>(count >> 32U)};
}

const FILETIME inUtcTime = fileTime(2023, 11, 14, {22, 13, 20});
const FILETIME inGeneralizedTime = fileTime(2050, 1, 1);

TEST(EncodeEmbedded, IntegersAreTheShortestPossible) {
    EXPECT_EQ(tools::encodeInteger(0), std::string("\x02\x01\x00", 3));
    EXPECT_EQ(tools::encodeInteger(0x7F), "\x02\x01\x7F");
    EXPECT_EQ(tools::encodeInteger(0x80), std::string("\x02\x02\x00\x80", 4));
}

TEST(EncodeEmbedded, TimesBefore2050AreUtcTimeAndLaterOnesGeneralizedTime) {
    EXPECT_EQ(tools::encodeTime(inUtcTime), "\x17\x0D"
                                            "231114221320Z");
    EXPECT_EQ(tools::encodeTime(fileTime(2049, 12, 31, {23, 59, 59})), "\x17\x0D"
                                                                       "491231235959Z");
    EXPECT_EQ(tools::encodeTime(inGeneralizedTime), "\x18\x0F"
                                                    "20500101000000Z");
}

TEST(EncodeEmbedded, TextsAndOctetsHaveTheirTags) {
    EXPECT_EQ(tools::encodeString(L""), std::string("\x0C\x00", 2));
    EXPECT_EQ(tools::encodeString(boost::string_view()), std::string("\x0C\x00", 2));
    EXPECT_EQ(tools::encodeString(L"Имя"), "\x0C\x06Имя");
    EXPECT_EQ(tools::encodeString(boost::string_view("Имя")), "\x0C\x06Имя");
    EXPECT_EQ(tools::encodeOctetString("abc"), "\x04\x03"
                                               "abc");
}

TEST(EncodeEmbedded, KeyPeriodIsTwoPlainTimesWithoutTags) {
    EXPECT_EQ(tools::encodePrivateKeyUsagePeriod({inUtcTime, inGeneralizedTime}), "\x30\x20\x17\x0D"
                                                                                  "231114221320Z\x18\x0F"
                                                                                  "20500101000000Z");
}

TEST(EncodeEmbedded, ClientInformationBeginsWithTheNumberFive) {
    const auto info = tools::encodeClientInfo();
    ASSERT_GT(info.size(), 5U);
    EXPECT_EQ(info[0], '\x30');
    EXPECT_EQ(info.substr(info[1] == '\x81' ? 3 : 2, 4), "\x02\x01\x05\x0C");
    EXPECT_EQ(tools::encodeOsVersion().substr(0, 1), "\x0C");
}

} // namespace
