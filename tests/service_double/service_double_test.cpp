// The scripted service itself: it must see what the tests rely on it to see.

#include "service_double/double_fixture.hpp"
#include "service_double/fault_walk.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

#include <gmock/gmock.h>

#include <stdexcept>

namespace service_double {
namespace {

namespace wincrypt = orvik::plugin::wincrypt;
using testing::HasSubstr;

class ServiceDouble : public DoubleFixture {
protected:
    ServiceDouble() {
        Provider provider;
        provider.name = "P";
        service().providers[""] = {provider};
    }
    void TearDown() override {
        service().reset(); // the tests here unbalance the books on purpose
        DoubleFixture::TearDown();
    }
    static unsigned long open() {
        unsigned long context = 0;
        EXPECT_TRUE(wincrypt::CryptAcquireContextW(&context, nullptr, L"P", 80, capi::CRYPT_VERIFYCONTEXT));
        return context;
    }
};

TEST_F(ServiceDouble, SeesAContextThatIsNotReleased) {
    const auto context = open();
    EXPECT_THAT(service().imbalance(), HasSubstr("context1 is held 1 time(s)"));
    wincrypt::CryptContextAddRef(context, nullptr, 0);
    EXPECT_THAT(service().imbalance(), HasSubstr("context1 is held 2 time(s)"));
    wincrypt::CryptReleaseContext(context, 0);
    wincrypt::CryptReleaseContext(context, 0);
    EXPECT_EQ(service().imbalance(), "");
}

TEST_F(ServiceDouble, SeesAReleaseTooMany) {
    const auto context = open();
    EXPECT_TRUE(wincrypt::CryptReleaseContext(context, 0));
    EXPECT_FALSE(wincrypt::CryptReleaseContext(context, 0));
    EXPECT_THAT(service().imbalance(), HasSubstr("CryptReleaseContext: a context that is not held"));
}

TEST_F(ServiceDouble, SeesEveryOtherKindOfHandle) {
    const auto context = open();
    unsigned long hash = 0;
    EXPECT_TRUE(wincrypt::CryptCreateHash(context, capi::CALG_SHA1, 0, 0, &hash));
    wincrypt::CryptMsgOpenToDecode(0, 0, 0, 0, nullptr, nullptr);
    wincrypt::CertOpenSystemStore(0, "my");
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    EXPECT_TRUE(wincrypt::CertGetCertificateChain(nullptr, nullptr, nullptr, nullptr, nullptr, 0, nullptr, &chain));
    for (const char* held : {"context1", "hash1", "message1", "store1", "1 chain(s)"}) {
        EXPECT_THAT(service().imbalance(), HasSubstr(held));
    }
}

TEST_F(ServiceDouble, FailsTheCallThatItIsToldTo) {
    service().failCall(2, 0x1234);
    unsigned long context = open();
    EXPECT_FALSE(wincrypt::CryptContextAddRef(context, nullptr, 0));
    EXPECT_EQ(wincrypt::GetLastErrorEx(), 0x1234U);
    EXPECT_EQ(service().failedCall(), "CryptContextAddRef(context1, null, 0)");
    EXPECT_EQ(service().failedFunction(), "CryptContextAddRef");
    EXPECT_TRUE(wincrypt::CryptContextAddRef(context, nullptr, 0));
}

TEST_F(ServiceDouble, ReleasesThoughTheReleaseIsToldToFail) {
    const auto context = open();
    service().failCall(1, 0x1234);
    EXPECT_FALSE(wincrypt::CryptReleaseContext(context, 0));
    EXPECT_EQ(service().imbalance(), "");
}

TEST_F(ServiceDouble, PutsTheTestsAnswerBeforeItsOwn) {
    service().on.CryptContextAddRef = [](unsigned long, DWORD*, DWORD) { return 42; };
    EXPECT_EQ(wincrypt::CryptContextAddRef(0, nullptr, 0), 42);
}

TEST_F(ServiceDouble, WalksThroughEveryCall) {
    std::vector<std::string> failed;
    int thrown = 0;
    const FaultWalk walk{
        .name = "three calls",
        .arrange =
            [] {
                service().providers[""].resize(1);
                service().providers[""].front().name = "P";
            },
        .scenario =
            [] {
                unsigned long context = 0;
                if (!wincrypt::CryptAcquireContextW(&context, nullptr, L"P", 80, capi::CRYPT_VERIFYCONTEXT)) {
                    throw std::runtime_error("no context");
                }
                wincrypt::CryptSetProvParam(context, 1, nullptr, 0);
                wincrypt::CryptReleaseContext(context, 0);
            },
        .expect =
            [&](const FaultOutcome& outcome) {
                failed.push_back(outcome.function);
                thrown += outcome.thrown ? 1 : 0;
            }};
    EXPECT_EQ(walkFaults(walk), 3U);
    EXPECT_THAT(failed, testing::ElementsAre("CryptAcquireContextW", "CryptSetProvParam", "CryptReleaseContext"));
    EXPECT_EQ(thrown, 1);
}

} // namespace
} // namespace service_double
