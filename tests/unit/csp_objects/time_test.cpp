#include "objects/time.hpp"

#include "exports/export.hpp"
#include "support.hpp"

#include <chrono>
#include <ctime>

namespace klunortredi::csp::test {

namespace {

using namespace capi;

FILETIME ticks(std::uint64_t value) {
    return {static_cast<DWORD>(value), static_cast<DWORD>(value >> 32U)};
}

std::uint64_t ticks(const FILETIME& value) {
    return (static_cast<std::uint64_t>(value.dwHighDateTime) << 32U) | value.dwLowDateTime;
}

/// Seconds since 1970.
FILETIME unixTime(std::int64_t seconds) {
    return ticks(static_cast<std::uint64_t>(seconds * 10'000'000 + 116'444'736'000'000'000));
}

Bytes utc(std::string_view text) {
    return der::element(der::tag::UtcTime, Bytes(text.begin(), text.end()));
}

Bytes generalized(std::string_view text) {
    return der::element(der::tag::GeneralizedTime, Bytes(text.begin(), text.end()));
}

TEST(TimeCodec, ChoosesUtcTimeFrom1950To2049) {
    EXPECT_EQ(encode(X509_CHOICE_OF_TIME, unixTime(1700000000)), utc("231114221320Z"));
    EXPECT_EQ(encode(X509_CHOICE_OF_TIME, unixTime(2524607999)), utc("491231235959Z"));
    EXPECT_EQ(encode(X509_CHOICE_OF_TIME, unixTime(2524608000)), generalized("20500101000000Z"));
    EXPECT_EQ(encode(X509_CHOICE_OF_TIME, unixTime(-631152000)), utc("500101000000Z"));
    EXPECT_EQ(encode(X509_CHOICE_OF_TIME, unixTime(-631152001)), generalized("19491231235959Z"));
    EXPECT_EQ(encode(X509_CHOICE_OF_TIME, ticks(0)), generalized("16010101000000Z"));
    EXPECT_EQ(encode(szOID_RSA_signingTime, unixTime(1700000000)), utc("231114221320Z"));
}

TEST(TimeCodec, AgreesWithTheCLibraryOnEveryDayOfFourCenturies) {
    for (std::int64_t day = -100'000; day < 50'000; ++day) {
        const std::time_t seconds = day * 86400 + 12345;
        std::tm parts{};
        gmtime_r(&seconds, &parts);
        std::array<char, 32> text{};
        const auto size = std::strftime(text.data(), text.size(), "%Y%m%d%H%M%SZ", &parts);
        const std::string_view whole(text.data(), size);
        const bool shortYear = parts.tm_year >= 50 && parts.tm_year < 150;
        const Bytes expected = shortYear ? utc(whole.substr(2)) : generalized(whole);
        ASSERT_EQ(encode(X509_CHOICE_OF_TIME, unixTime(seconds)), expected);
        ASSERT_EQ(ticks(*decode<FILETIME>(X509_CHOICE_OF_TIME, expected)), ticks(unixTime(seconds)));
    }
}

TEST(TimeCodec, RefusesAfterTheYear9999) {
    EXPECT_EQ(encode(X509_CHOICE_OF_TIME, unixTime(253402300799)), generalized("99991231235959Z"));
    EXPECT_EQ(failureOf([] { encode(X509_CHOICE_OF_TIME, unixTime(253402300800)); }), CRYPT_E_BAD_ENCODE);
    EXPECT_EQ(failureOf([] { encode(X509_CHOICE_OF_TIME, ticks(~std::uint64_t{0})); }), CRYPT_E_BAD_ENCODE);
}

TEST(TimeCodec, RefusesMomentsThatDoNotExist) {
    for (const char* const text : {"231114221320", "2311142213Z", "231114221320+0300", "231314221320Z", "230230000000Z",
                                   "231114241320Z", "231114226020Z", "231114221360Z", "23111422132 Z", "", "Z",
                                   "231114221320.5Z", "231114221320ZZ", "-31114221320Z"}) {
        EXPECT_EQ(failureOf([&] { decode<FILETIME>(X509_CHOICE_OF_TIME, utc(text)); }), CRYPT_E_ASN1_CORRUPT) << text;
    }
    for (const char* const text : {"20231114221320", "20231114221320.Z", "20230229000000Z"}) {
        EXPECT_EQ(failureOf([&] { decode<FILETIME>(X509_CHOICE_OF_TIME, generalized(text)); }), CRYPT_E_ASN1_CORRUPT)
            << text;
    }
    for (const char* const text : {"16001231235959Z", "00000101000000Z"}) {
        EXPECT_EQ(failureOf([&] { decode<FILETIME>(X509_CHOICE_OF_TIME, generalized(text)); }), CRYPT_E_ASN1_LARGE);
    }
    EXPECT_EQ(failureOf([] { decode<FILETIME>(X509_CHOICE_OF_TIME, hex("02 01 05")); }), CRYPT_E_ASN1_BADTAG);
}

TEST(TimeCodec, ReadsFractionsTo100Nanoseconds) {
    const auto read = [](std::string_view text) {
        return ticks(decodeGeneralizedTime(Bytes(text.begin(), text.end())));
    };
    const std::uint64_t whole = ticks(unixTime(1700000000));
    EXPECT_EQ(read("20231114221320.125Z"), whole + 1'250'000);
    EXPECT_EQ(read("20231114221320.0000001Z"), whole + 1);
    EXPECT_EQ(read("20231114221320.12345678999Z"), whole + 1'234'567);
    EXPECT_EQ(encodeGeneralizedTimeWithFraction(ticks(whole + 1'250'000)), generalized("20231114221320.125Z"));
    EXPECT_EQ(encodeGeneralizedTimeWithFraction(ticks(whole + 1)), generalized("20231114221320.0000001Z"));
    EXPECT_EQ(encodeGeneralizedTimeWithFraction(ticks(whole)), generalized("20231114221320Z"));
}

TEST(SystemTime, IsTheCurrentMomentInUtc) {
    const std::time_t before = std::time(nullptr);
    SYSTEMTIME now{};
    exports::GetSystemTime(&now);
    FILETIME fileTime{};
    ASSERT_TRUE(exports::SystemTimeToFileTime(&now, &fileTime));
    const std::time_t after = std::time(nullptr);
    EXPECT_GE(ticks(fileTime) + 10'000, ticks(unixTime(before)));
    EXPECT_LE(ticks(fileTime), ticks(unixTime(after + 1)));
    std::tm parts{};
    gmtime_r(&after, &parts);
    EXPECT_EQ(now.wYear, parts.tm_year + 1900);
    EXPECT_LT(now.wDayOfWeek, 7);
}

TEST(SystemTime, ConvertsTheEpochAndMilliseconds) {
    const SYSTEMTIME epoch{1970, 1, 6, 1, 0, 0, 0, 0};
    EXPECT_EQ(ticks(fileTimeOf(epoch)), 116'444'736'000'000'000U);
    const SYSTEMTIME precise{2023, 11, 0, 14, 22, 13, 20, 999};
    EXPECT_EQ(ticks(fileTimeOf(precise)), ticks(unixTime(1700000000)) + 9'990'000);
    const SYSTEMTIME last{30827, 12, 0, 31, 23, 59, 59, 999};
    EXPECT_LT(ticks(fileTimeOf(last)), std::uint64_t{1} << 63U);
}

TEST(SystemTime, RefusesMomentsThatDoNotExist) {
    FILETIME out{};
    for (const SYSTEMTIME& time : {SYSTEMTIME{1600, 12, 0, 31, 0, 0, 0, 0}, SYSTEMTIME{30828, 1, 0, 1, 0, 0, 0, 0},
                                   SYSTEMTIME{2023, 0, 0, 1, 0, 0, 0, 0}, SYSTEMTIME{2023, 13, 0, 1, 0, 0, 0, 0},
                                   SYSTEMTIME{2023, 2, 0, 29, 0, 0, 0, 0}, SYSTEMTIME{2023, 1, 0, 0, 0, 0, 0, 0},
                                   SYSTEMTIME{2023, 1, 0, 1, 24, 0, 0, 0}, SYSTEMTIME{2023, 1, 0, 1, 0, 60, 0, 0},
                                   SYSTEMTIME{2023, 1, 0, 1, 0, 0, 60, 0}, SYSTEMTIME{2023, 1, 0, 1, 0, 0, 0, 1000}}) {
        setLastError(0);
        EXPECT_FALSE(exports::SystemTimeToFileTime(&time, &out));
        EXPECT_EQ(lastError(), ERROR_INVALID_PARAMETER);
    }
    EXPECT_FALSE(exports::SystemTimeToFileTime(nullptr, &out));
}

} // namespace

} // namespace klunortredi::csp::test
