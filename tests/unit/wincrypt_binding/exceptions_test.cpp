// The service's last error as an exception.

#include "binding.hpp"

#include <algorithm>
#include <thread>

namespace wincrypt_binding {
namespace {

class SystemExceptionTest : public DoubleFixture {};

TEST_F(SystemExceptionTest, KnowsTheCodesOfACancellation) {
    EXPECT_TRUE(SystemException(0x4C7).cancelled());
    EXPECT_TRUE(SystemException(0x8010006E).cancelled());
    EXPECT_TRUE(SystemException(0x57).cancelled());
    EXPECT_TRUE(SystemException::cancelled(static_cast<int>(0x8010006E)));
    EXPECT_TRUE(SystemException::cancelled(1223U));
}

TEST_F(SystemExceptionTest, TakesNoOtherCodeForACancellation) {
    EXPECT_FALSE(SystemException(5).cancelled());
    EXPECT_FALSE(SystemException(0).cancelled());
    EXPECT_FALSE(SystemException::cancelled(0x8010006BU));
}

TEST_F(SystemExceptionTest, PrintsNegativeCodesAsUnsigned) {
    EXPECT_STREQ(SystemException(-2146893802).error(), "CryptoError: 2148073494");
    EXPECT_STREQ(SystemException(0x8010006E).error(), "CryptoError: 2148532334");
    EXPECT_STREQ(SystemException(0).error(), "CryptoError: 0");
}

TEST_F(SystemExceptionTest, TakesTheLastErrorAtConstruction) {
    service().failFunction("CryptGenRandom", 0x80090020);
    ASSERT_FALSE(wincrypt::CryptGenRandom(1, 0, nullptr));
    const SystemException exception;
    wincrypt::SetLastError(5);
    EXPECT_EQ(exception.code().value(), code(0x80090020));
    EXPECT_EQ(exception.code().category(), orvik::plugin::crypto::exception::systemCategory());
}

TEST_F(SystemExceptionTest, TakesTheLastErrorOfItsOwnThread) {
    wincrypt::SetLastError(5);
    int other = -1;
    std::thread([&] { other = SystemException().code().value(); }).join();
    EXPECT_EQ(other, 0);
    EXPECT_EQ(SystemException().code().value(), 5);
}

TEST_F(SystemExceptionTest, IsAnExceptionOfTheFramework) {
    try {
        orvik::plugin::exception::raise(SystemException(5), {"file", "function", 12});
    } catch (const orvik::plugin::exception::Exception& e) {
        EXPECT_EQ(describe(e), (Thrown{5, "file", "function", 12}));
        EXPECT_STREQ(e.error(), "CryptoError: 5");
        return;
    }
    FAIL() << "nothing was caught";
}

TEST_F(SystemExceptionTest, TellsTheAttachedTextInPlaceOfTheServices) {
    service().messages[5] = "of the service";
    EXPECT_STREQ(SystemException(5).what(), "of the service");
    SystemException exception(5);
    exception << orvik::plugin::exception::Message_("of the thrower");
    EXPECT_STREQ(exception.what(), "of the thrower");
}

TEST_F(SystemExceptionTest, TheLastErrorOfAServiceThatThrowsIsZero) {
    service().on.GetLastError = []() -> DWORD { throw std::runtime_error("broken"); };
    service().on.SetLastError = [](DWORD) { throw std::runtime_error("broken"); };
    EXPECT_EQ(wincrypt::GetLastErrorEx(), 0U);
    EXPECT_NO_THROW(wincrypt::SetLastErrorEx(5));
}

class SystemCategoryTest : public DoubleFixture {
protected:
    static std::string message(DWORD number) {
        return orvik::plugin::crypto::exception::systemCategory().message(code(number));
    }
};

TEST_F(SystemCategoryTest, IsOneAndIsCalledSystem) {
    EXPECT_STREQ(orvik::plugin::crypto::exception::systemCategory().name(), "System");
    EXPECT_EQ(&orvik::plugin::crypto::exception::systemCategory(), &orvik::plugin::crypto::exception::systemCategory());
}

TEST_F(SystemCategoryTest, AsksTheServiceForTheTextInItsOwnLanguage) {
    message(0x80090016);
    EXPECT_THAT(service().trace(),
                testing::ElementsAre("FormatMessageW(4608, null, 0x80090016, 1024, pointer, 4096, null)"));
}

TEST_F(SystemCategoryTest, ConvertsTheTextFromWindows1251WithoutLineEnds) {
    service().messages[5] = "\xCE\xF2\xEA\xE0\xE7\xE0\xED\xEE\r\n";
    EXPECT_EQ(message(5), "Отказано");
    service().messages[6] = "two\r\nlines\r\n";
    EXPECT_EQ(message(6), "twolines");
}

TEST_F(SystemCategoryTest, HasNoTextForACodeUnknownToTheService) {
    EXPECT_EQ(message(0x12345678), "");
}

TEST_F(SystemCategoryTest, HasNoTextWhereTheServicesCannotBeConverted) {
    service().messages[5] = "\x98"; // the one octet that Windows-1251 leaves out
    EXPECT_EQ(message(5), "");
}

TEST_F(SystemCategoryTest, TakesExactlyTheReportedNumberOfCharacters) {
    service().on.FormatMessageW = [](DWORD, const void*, DWORD, DWORD, char* buffer, DWORD, va_list*) {
        std::fill_n(buffer, 8, 'x');
        return DWORD{3};
    };
    EXPECT_EQ(message(5), "xxx");
}

TEST_F(SystemCategoryTest, DoesNotReadBehindItsBuffer) {
    service().on.FormatMessageW = [](DWORD, const void*, DWORD, DWORD, char* buffer, DWORD size, va_list*) {
        std::fill_n(buffer, size, 'x');
        return size + 1;
    };
    EXPECT_EQ(message(5), std::string(4096, 'x'));
}

class SystemCategoryWithoutService : public DoubleFixture {
protected:
    SystemCategoryWithoutService() : DoubleFixture(Slots{}) {}
};

TEST_F(SystemCategoryWithoutService, HasNoTexts) {
    EXPECT_EQ(orvik::plugin::crypto::exception::systemCategory().message(5), "");
    EXPECT_STREQ(SystemException(5).error(), "CryptoError: 5");
}

} // namespace
} // namespace wincrypt_binding
