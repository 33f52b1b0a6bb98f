// FILETIME and back.

#include "binding.hpp"

#include <boost/date_time/posix_time/posix_time.hpp>

namespace wincrypt_binding {
namespace {

using boost::posix_time::ptime;
using boost::posix_time::time_from_string;

constexpr std::int64_t epoch = 116444736000000000;

FILETIME fileTime(std::int64_t value) {
    constexpr unsigned halfBits = 32;
    return {static_cast<DWORD>(value), static_cast<DWORD>(value >> halfBits)};
}

TEST(FileTime, OfTheEpochIs1970AndBack) {
    const ptime start = time_from_string("1970-01-01 00:00:00");
    EXPECT_EQ(wincrypt::converter::to_ptime(fileTime(epoch)), start);
    EXPECT_EQ(wincrypt::converter::to_filetime(start), epoch);
}

TEST(FileTime, LosesPartsOfASecond) {
    EXPECT_EQ(wincrypt::converter::to_ptime(fileTime(epoch + 19'999'999)), time_from_string("1970-01-01 00:00:01"));
}

TEST(FileTime, LosesPartsOfASecondBeforeTheEpochDownwardsToo) {
    EXPECT_EQ(wincrypt::converter::to_ptime(fileTime(epoch - 5'000'000)), time_from_string("1969-12-31 23:59:59"));
}

TEST(FileTime, OfADateGoesBothWays) {
    const ptime time = time_from_string("2023-11-14 22:13:20");
    EXPECT_EQ(wincrypt::converter::to_filetime(time), 133444736000000000);
    EXPECT_EQ(wincrypt::converter::to_ptime(fileTime(133444736000000000)), time);
}

TEST(FileTime, BeforeAndAfterTheRangeOf32BitSecondsGoesBothWays) {
    for (const char* text :
         {"1950-01-01 00:00:00", "1969-12-31 23:59:59", "2050-01-01 00:00:00", "9999-12-31 23:59:59"}) {
        const ptime time = time_from_string(text);
        EXPECT_EQ(wincrypt::converter::to_ptime(fileTime(wincrypt::converter::to_filetime(time))), time) << text;
    }
}

} // namespace
} // namespace wincrypt_binding
