#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

#include <boost/exception/get_error_info.hpp>
#include <gmock/gmock.h>

#include <string>

namespace {

namespace exception = orvik::plugin::exception;
using exception::ApplicationException;
using orvik::plugin::crypto::exception::CryptoException;
using testing::HasSubstr;

TEST(Exception, SaysTheTextOfItsCode) {
    EXPECT_STREQ(CryptoException(CryptoException::Code::noCertificate).what(), "there is no certificate");
    EXPECT_STREQ(ApplicationException(ApplicationException::Code::cancelled).what(), "cancelled by the user");
}

TEST(Exception, CarriesCodeAndCategory) {
    const CryptoException crypto(CryptoException::Code::authorizationRefused);
    EXPECT_EQ(crypto.code(), std::error_code(30053, orvik::plugin::crypto::exception::cryptoCategory()));
    EXPECT_STREQ(crypto.error(), "Crypto: 30053");
    const ApplicationException application(ApplicationException::Code::emptyInput);
    EXPECT_EQ(application.code(), std::error_code(20006, exception::applicationCategory()));
    EXPECT_NE(application.code(), std::error_code(20006, orvik::plugin::crypto::exception::cryptoCategory()));
}

TEST(Exception, NumbersACodeThatItDoesNotKnow) {
    EXPECT_EQ(exception::applicationCategory().message(7), "error 7");
}

TEST(Exception, PrefersAnAttachedMessage) {
    CryptoException e(CryptoException::Code::noContainer);
    e << exception::Message_("the token has been pulled out");
    EXPECT_STREQ(e.what(), "the token has been pulled out");
}

TEST(Exception, PutsTheValueBehindTheText) {
    const auto e = exception::setValue(CryptoException(CryptoException::Code::badAttribute), "yesterday");
    EXPECT_STREQ(e.what(), "bad value of a signed attribute: yesterday");
}

/// A category whose codes may have no text, as a service's may.
class Silent : public std::error_category {
public:
    [[nodiscard]] const char* name() const noexcept override { return "Silent"; }
    [[nodiscard]] std::string message(int /*code*/) const override { return {}; }
};

TEST(Exception, FallsBackToTheCodeWhenThereIsNoText) {
    const Silent silent;
    EXPECT_STREQ(exception::Exception(std::error_code(5, silent)).what(), "Silent: 5");
}

TEST(Raise, AttachesTheLocationAndKeepsTheType) {
    try {
        exception::raise(exception::setValue(CryptoException(CryptoException::Code::badAttribute), "v"),
                         {"some_file", "someFunction", 702});
        FAIL() << "nothing was thrown";
    } catch (const CryptoException& e) {
        EXPECT_STREQ(*boost::get_error_info<boost::throw_file>(e), "some_file");
        EXPECT_STREQ(*boost::get_error_info<boost::throw_function>(e), "someFunction");
        EXPECT_EQ(*boost::get_error_info<boost::throw_line>(e), 702);
        EXPECT_EQ(*boost::get_error_info<exception::Value_>(e), "v");
    }
}

TEST(Raise, TellsTheLineOfTheThrowNotOfTheLocation) {
    const exception::Location shared{"some_file", "someFunction"};
    int line = 0;
    try {
        line = __LINE__ + 1;
        exception::raise(CryptoException(CryptoException::Code::noProvider), shared);
    } catch (const CryptoException& e) {
        EXPECT_EQ(*boost::get_error_info<boost::throw_line>(e), line);
    }
}

TEST(Diagnostic, TellsTheTypeTheTextAndThePlace) {
    try {
        exception::raise(CryptoException(CryptoException::Code::noProvider), {"some_file", "someFunction", 12});
    } catch (...) {
        EXPECT_THAT(exception::diagnostic(), HasSubstr("CryptoException"));
        EXPECT_THAT(exception::diagnostic(), HasSubstr("no cryptographic service"));
        EXPECT_THAT(exception::diagnostic(), HasSubstr("someFunction"));
    }
}

TEST(Diagnostic, KnowsStandardExceptions) {
    try {
        throw std::runtime_error("out of luck");
    } catch (...) {
        EXPECT_THAT(exception::diagnostic(), HasSubstr("out of luck"));
    }
}

} // namespace
