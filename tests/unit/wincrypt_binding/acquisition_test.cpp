// Acquiring a provider context.

#include "binding.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/provider.hpp"

namespace wincrypt_binding {
namespace {

using orvik::plugin::crypto::IProvider;
using testing::ElementsAre;
using testing::IsEmpty;
using wincrypt::HCRYPTPROV;

constexpr auto gost256 = IProvider::gost2012_256;
constexpr IProvider::Type vipNetType{77};
constexpr unsigned untouched = 12345;

class Acquisition : public DoubleFixture {
protected:
    Acquisition() {
        service().providers[""] = {cryptoProProvider(),
                                   scripted("Infotecs GOST 2012/512 Cryptographic Service Provider", vipNetType)};
    }
    static std::vector<service_double::Container>& containers() { return service().providers[""].front().containers; }
    static std::string acquireCall(const std::string& container, const char* provider, int type,
                                   const std::string& flags) {
        return "CryptAcquireContextW(&, " + container + ", \"" + provider + "\", " + std::to_string(type) + ", " +
               flags + ")";
    }
    static constexpr const char* cryptoPro = "Crypto-Pro GOST R 34.10-2012 Cryptographic Service Provider";
    static constexpr const char* vipNet = "Infotecs GOST 2012/512 Cryptographic Service Provider";
};

TEST_F(Acquisition, PassesItsArgumentsOnAndReleasesOnce) {
    containers() = {containerNamed(L"box")};
    unsigned error = untouched;
    {
        const HCRYPTPROV context(L"box", cryptoProName, gost256, 0x40, &error);
        EXPECT_NE(context.get(), 0U);
    }
    EXPECT_EQ(error, untouched);
    EXPECT_THAT(service().trace(),
                ElementsAre(acquireCall("\"box\"", cryptoPro, 80, "64"), "CryptReleaseContext(context1, 0)"));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(Acquisition, PassesNullForAnEmptyContainer) {
    const HCRYPTPROV context(L"", cryptoProName, gost256, capi::CRYPT_VERIFYCONTEXT, nullptr);
    EXPECT_THAT(service().trace(), ElementsAre(acquireCall("null", cryptoPro, 80, "0xF0000000")));
}

TEST_F(Acquisition, RefusesAnEmptyProviderName) {
    EXPECT_EQ(thrownBy<CryptoException>([] { const HCRYPTPROV context(L"box", L"", gost256, 0, nullptr); }),
              (Thrown{30030, "scoped_handle", "operator()", 65}));
    EXPECT_THAT(service().calls(), IsEmpty());
}

TEST_F(Acquisition, TriesACryptoProContainerOnceMoreUnderTheFileReadersPrefix) {
    containers() = {containerNamed(L"\\\\.\\HDIMAGE\\box")};
    unsigned error = untouched;
    const HCRYPTPROV context(L"box", cryptoProName, gost256, 0x40, &error);
    EXPECT_NE(context.get(), 0U);
    EXPECT_EQ(error, untouched);
    EXPECT_THAT(service().trace(), ElementsAre(acquireCall("\"box\"", cryptoPro, 80, "64"),
                                               acquireCall("\"\\\\.\\HDIMAGE\\box\"", cryptoPro, 80, "64")));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(Acquisition, FromAProviderWhoseNameIsNoUnicodeEndsInTheErrorNumber) {
    const std::wstring name = std::wstring(L"P") + wchar_t(0x110000);
    for (const wchar_t* container : {L"", L"box"}) {
        unsigned error = 0;
        clearLog();
        const HCRYPTPROV context(container, name, gost256, 0, &error);
        EXPECT_EQ(context.get(), 0U);
        EXPECT_EQ(error, capi::NTE_KEYSET_NOT_DEF);
        EXPECT_THAT(log(), ElementsAre(LogRecord{Severity::warning,
                                                 "wincrypt: acquire context failed, provider: \"\", reason: " +
                                                     std::to_string(capi::NTE_KEYSET_NOT_DEF)}));
    }
}

TEST_F(Acquisition, TriesNoThirdTime) {
    unsigned error = 0;
    const HCRYPTPROV context(L"box", cryptoProName, gost256, 0, &error);
    EXPECT_EQ(service().count("CryptAcquireContextW"), 2U);
    EXPECT_EQ(error, capi::NTE_BAD_KEYSET);
}

TEST_F(Acquisition, DoesNotTryAVipNetContainerAgain) {
    unsigned error = 0;
    const HCRYPTPROV context(L"box", vipNetName, vipNetType, 0, &error);
    EXPECT_THAT(service().trace(), ElementsAre(acquireCall("\"box\"", vipNet, 77, "0")));
    EXPECT_EQ(error, capi::NTE_BAD_KEYSET);
}

TEST_F(Acquisition, DoesNotTryAProviderUnknownToTheFrameworkAgain) {
    const HCRYPTPROV context(L"box", L"Somebody's Provider", gost256, 0, nullptr);
    EXPECT_EQ(service().calls().size(), 1U);
}

TEST_F(Acquisition, DoesNotTryWithoutAContainerAgain) {
    service().failFunction("CryptAcquireContextW", capi::NTE_FAIL);
    const HCRYPTPROV context(L"", cryptoProName, gost256, 0, nullptr);
    EXPECT_EQ(service().calls().size(), 1U);
}

TEST_F(Acquisition, ReportsAFailureAndHoldsNothing) {
    unsigned error = 0;
    {
        const HCRYPTPROV context(L"box", vipNetName, vipNetType, 0, &error);
        EXPECT_EQ(context.get(), 0U);
        EXPECT_FALSE(context);
    }
    EXPECT_EQ(error, 0x80090016U);
    EXPECT_EQ(service().count("CryptReleaseContext"), 0U);
    EXPECT_THAT(log(), ElementsAre(LogRecord{Severity::warning,
                                             "wincrypt: acquire context failed, provider: \"Infotecs GOST 2012/512 "
                                             "Cryptographic Service Provider\", reason: 2148073494"}));
}

TEST_F(Acquisition, LogsAFailureThatNobodyAsksFor) {
    const HCRYPTPROV context(L"box", vipNetName, vipNetType, 0, nullptr);
    EXPECT_EQ(context.get(), 0U);
    EXPECT_EQ(log().size(), 1U);
}

TEST_F(Acquisition, HoldsNothingThatAFailedCallLeftBehind) {
    service().on.CryptAcquireContextW = [](unsigned long* handle, const wchar_t*, const wchar_t*, DWORD, DWORD) {
        *handle = 0xBAD;
        return BOOL{fail(capi::NTE_FAIL)};
    };
    unsigned error = 0;
    {
        const HCRYPTPROV context(L"", cryptoProName, gost256, 0, &error);
        EXPECT_EQ(context.get(), 0U);
    }
    EXPECT_EQ(error, capi::NTE_FAIL);
    EXPECT_EQ(service().count("CryptReleaseContext"), 0U);
}

TEST_F(Acquisition, OfAProviderWithoutContainerNeverShowsADialogue) {
    const wincrypt::Provider provider(gost256, cryptoProName, boost::none);
    unsigned error = untouched;
    const HCRYPTPROV context(provider, &error);
    EXPECT_NE(context.get(), 0U);
    EXPECT_EQ(error, untouched);
    EXPECT_THAT(service().trace(), ElementsAre(acquireCall("null", cryptoPro, 80, "0xF0000040")));
}

TEST_F(Acquisition, OfAProviderWithContainerOpensIt) {
    containers() = {containerNamed(L"box")};
    const wincrypt::Provider provider(gost256, cryptoProName, std::wstring(L"box"));
    const HCRYPTPROV context(provider, nullptr);
    EXPECT_NE(context.get(), 0U);
    EXPECT_THAT(service().trace(), ElementsAre(acquireCall("\"box\"", cryptoPro, 80, "0")));
}

TEST_F(Acquisition, OfAProviderWithAnEmptyContainerNameMayShowADialogue) {
    const wincrypt::Provider provider(gost256, cryptoProName, std::wstring());
    { const HCRYPTPROV context(provider, nullptr); }
    EXPECT_THAT(service().trace(), testing::Contains(acquireCall("null", cryptoPro, 80, "0")));
}

TEST_F(Acquisition, OfAProviderReportsAFailureToo) {
    service().failFunction("CryptAcquireContextW", 0x80090016);
    unsigned error = 0;
    const HCRYPTPROV context(wincrypt::Provider(gost256, cryptoProName), &error);
    EXPECT_EQ(context.get(), 0U);
    EXPECT_EQ(error, 0x80090016U);
}

TEST_F(Acquisition, OfAHandleTakesItAsItIs) {
    unsigned long handle = 0;
    ASSERT_TRUE(wincrypt::CryptAcquireContextW(&handle, nullptr, cryptoProName, gost256, capi::CRYPT_VERIFYCONTEXT));
    service().clearCalls();
    { const HCRYPTPROV context(handle); }
    EXPECT_THAT(service().trace(), ElementsAre("CryptReleaseContext(context1, 0)"));
}

TEST_F(Acquisition, OfNothingReleasesNothing) {
    { const HCRYPTPROV context; }
    EXPECT_THAT(service().calls(), IsEmpty());
}

class AcquisitionWithoutService : public DoubleFixture {
protected:
    AcquisitionWithoutService() : DoubleFixture(Slots{}) {}
};

TEST_F(AcquisitionWithoutService, Throws) {
    EXPECT_EQ(thrownBy<CryptoException>([] { const HCRYPTPROV context(L"", cryptoProName, gost256, 0, nullptr); }),
              noServiceInstalled);
}

/// A context of a service that was never there: its release throws inside the destructor.
TEST_F(AcquisitionWithoutService, LogsThatAHandleCannotBeGivenBack) {
    { const HCRYPTPROV context(0x1234UL); }
    ASSERT_EQ(log().size(), 1U);
    EXPECT_EQ(log().front().severity, Severity::warning);
    EXPECT_THAT(log().front().text, testing::StartsWith("finalize scoped_handle: "));
}

} // namespace
} // namespace wincrypt_binding
