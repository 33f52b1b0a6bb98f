#include "keys_fixture.hpp"

#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/wincrypt_auth.hpp"

#include <boost/filesystem/operations.hpp>

#include <fstream>

namespace wincrypt_keys {
namespace {

using orvik::plugin::crypto::IAuthHandle;
using orvik::plugin::wincrypt::HCRYPTPROV;
using orvik::plugin::wincrypt::WincryptAuth;
using testing::ElementsAre;

struct PinCall {
    DWORD parameter;
    std::string pin;
    DWORD flags;
    friend bool operator==(const PinCall&, const PinCall&) = default;
};

class WincryptAuthTest : public KeysFixture {
protected:
    WincryptAuthTest() {
        installed().containers = {containerNamed(L"box")};
        context_.emplace(L"box", embeddedName, IProvider::gost2012_256, 0, nullptr);
        service().on.CryptSetProvParam = [this](unsigned long context, DWORD parameter, const BYTE* data,
                                                DWORD flags) -> BOOL {
            EXPECT_EQ(context, context_->get());
            const std::string pin = reinterpret_cast<const char*>(data);
            calls_.push_back({parameter, pin, flags});
            if (flags == failingFlags_) {
                return service_double::fail(0x8010006B);
            }
            return 1;
        };
        service().messages[0x8010006B] = "wrong PIN\r\n";
    }

    void TearDown() override {
        context_.reset();
        KeysFixture::TearDown();
    }

    [[nodiscard]] WincryptAuth handle() const { return WincryptAuth(context_->get()); }

    boost::optional<HCRYPTPROV> context_;
    std::vector<PinCall> calls_;
    boost::optional<DWORD> failingFlags_;
};

TEST_F(WincryptAuthTest, StartsNeitherLoggedInNorFailed) {
    const auto auth = handle();
    EXPECT_EQ(auth.status(), 1U);
    EXPECT_EQ(auth.states(), 1U);
    EXPECT_EQ(auth.maxAttempts(), 3U);
    EXPECT_FALSE(auth.isAuthRejected());
    EXPECT_FALSE(auth.isLocked());
    EXPECT_FALSE(auth.isToken());
    EXPECT_EQ(auth.container(), L"box");
}

TEST_F(WincryptAuthTest, LoginSetsThePinThenVerifiesIt) {
    auto auth = handle();
    EXPECT_TRUE(auth.login("пин 1234"));
    EXPECT_THAT(calls_, ElementsAre(PinCall{32, "пин 1234", 0}, PinCall{32, "пин 1234", 1}));
    EXPECT_EQ(auth.status(), 0U);
    EXPECT_EQ(auth.states(), 1U);
    EXPECT_FALSE(auth.isAuthRejected());
}

TEST_F(WincryptAuthTest, APinThatCannotBeSetIsNotVerified) {
    failingFlags_ = 0;
    auto auth = handle();
    EXPECT_FALSE(auth.login("1"));
    EXPECT_THAT(calls_, ElementsAre(PinCall{32, "1", 0}));
    EXPECT_EQ(auth.status(), 2U);
    EXPECT_EQ(auth.states(), 4U);
    EXPECT_THAT(logTexts(Severity::error), ElementsAre("wincrypt: authorization error. set pin failed: wrong PIN"));
}

TEST_F(WincryptAuthTest, APinThatIsNotVerifiedFails) {
    failingFlags_ = 1;
    auto auth = handle();
    EXPECT_FALSE(auth.login("1"));
    EXPECT_EQ(calls_.size(), 2U);
    EXPECT_EQ(auth.status(), 2U);
    EXPECT_EQ(auth.states(), 4U);
    EXPECT_THAT(logTexts(Severity::error), ElementsAre("wincrypt: authorization error. verify pin failed: wrong PIN"));
}

TEST_F(WincryptAuthTest, ThreeFailuresRejectTheHandleForGood) {
    auto auth = handle();
    failingFlags_ = 1;
    EXPECT_FALSE(auth.login("1"));
    EXPECT_FALSE(auth.login("2"));
    EXPECT_FALSE(auth.isAuthRejected());
    EXPECT_FALSE(auth.login("3"));
    EXPECT_TRUE(auth.isAuthRejected());
    failingFlags_ = boost::none;
    EXPECT_TRUE(auth.login("4"));
    EXPECT_EQ(auth.status(), 0U);
    EXPECT_EQ(auth.states(), 1U);
    EXPECT_TRUE(auth.isAuthRejected()) << "a later success does not reset the count";
}

TEST_F(WincryptAuthTest, PinsThatCannotBeSetCountAsFailures) {
    auto auth = handle();
    failingFlags_ = 0;
    for (const char* pin : {"1", "2", "3"}) {
        EXPECT_FALSE(auth.isAuthRejected()) << pin;
        EXPECT_FALSE(auth.login(pin));
    }
    EXPECT_TRUE(auth.isAuthRejected());
}

TEST_F(WincryptAuthTest, WithoutAMaximumTheHandleIsRejected) {
    class Unlimited : public WincryptAuth {
    public:
        using WincryptAuth::WincryptAuth;
        [[nodiscard]] boost::optional<unsigned> maxAttempts() const override { return boost::none; }
    };
    EXPECT_TRUE(Unlimited(context_->get()).isAuthRejected());
}

TEST_F(WincryptAuthTest, AFailureWithoutATextIsToldByItsNumber) {
    service().messages.clear();
    failingFlags_ = 1;
    auto auth = handle();
    EXPECT_FALSE(auth.login("1"));
    EXPECT_THAT(logTexts(Severity::error),
                ElementsAre("wincrypt: authorization error. verify pin failed: CryptoError: 2148532331"));
}

TEST_F(WincryptAuthTest, ALoginClearsTheStatesOfTheOneBefore) {
    auto auth = handle();
    failingFlags_ = 1;
    EXPECT_FALSE(auth.login("1"));
    failingFlags_ = boost::none;
    EXPECT_TRUE(auth.login("2"));
    EXPECT_EQ(auth.states(), 1U);
    EXPECT_EQ(auth.status(), 0U);
}

TEST_F(WincryptAuthTest, AContainerThatIsAFileGoesByItsFileName) {
    const auto folder = boost::filesystem::temp_directory_path() / boost::filesystem::unique_path();
    ASSERT_TRUE(boost::filesystem::create_directory(folder));
    const auto file = folder / "ключ.key";
    std::ofstream(file.string()) << "key";
    for (const bool exists : {true, false}) {
        if (!exists) {
            boost::filesystem::remove_all(folder);
        }
        const auto path = orvik::plugin::converter::utf8_to_utf16(file.string());
        installed().containers = {containerNamed(path)};
        const HCRYPTPROV context(path, embeddedName, IProvider::gost2012_256, 0, nullptr);
        EXPECT_EQ(WincryptAuth(context.get()).container(), exists ? std::wstring(L"ключ.key") : path);
    }
}

TEST_F(WincryptAuthTest, AContainerThatIsAFolderKeepsItsName) {
    const auto path = boost::filesystem::temp_directory_path().wstring();
    installed().containers = {containerNamed(path)};
    const HCRYPTPROV context(path, embeddedName, IProvider::gost2012_256, 0, nullptr);
    EXPECT_EQ(WincryptAuth(context.get()).container(), path);
}

TEST_F(WincryptAuthTest, ProvidersTakePinsUnlessTheyAreSignalComs) {
    EXPECT_TRUE(handle().supportAuthentication());
    for (const auto& [name, takes] : {std::pair{signalComName, false}, {cryptoProName, true}, {unknownName, true}}) {
        install(scripted(name));
        installed().containers = {containerNamed(L"box")};
        const HCRYPTPROV context(L"box", name, IProvider::gost2012_256, 0, nullptr);
        EXPECT_EQ(WincryptAuth(context.get()).supportAuthentication(), takes) << narrow(name);
    }
}

} // namespace
} // namespace wincrypt_keys
