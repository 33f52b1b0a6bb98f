// Identity, algorithms, random octets, version and the signing tool of a provider.
#include "keys_fixture.hpp"

#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_hash.hpp"
#include "orvik/plugin/crypto/tools.hpp"

#include <cstring>

namespace wincrypt_keys {
namespace {

using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::exception::SystemException;
using testing::ElementsAre;
using testing::IsEmpty;

PROV_ENUMALGS algorithm(ALG_ID id, const std::string& name, DWORD length) {
    PROV_ENUMALGS record{};
    record.aiAlgid = id;
    record.dwNameLen = length;
    name.copy(record.szName, sizeof(record.szName));
    return record;
}

class ProviderTest : public KeysFixture {
protected:
    /// What the failure to open a provider without a name says of itself.
    static std::string withoutNameText() {
        try {
            const orvik::plugin::wincrypt::HCRYPTPROV none(L"", L"", IProvider::gost2012_256, 0, nullptr);
        } catch (const CryptoException& e) {
            return e.what();
        }
        return "nothing was thrown";
    }
    static std::string recordText(const wchar_t* name) {
        return orvik::plugin::crypto::tools::providerInfo(narrow(name))->subjectSignTool;
    }
};

TEST_F(ProviderTest, StoresTheCanonicalName) {
    const Provider provider(IProvider::gost2012_256, L"Crypto-Pro GOST R 34.10-2012 KC1 CSP");
    EXPECT_EQ(provider.name(), cryptoProName);
    EXPECT_EQ(provider.type(), IProvider::gost2012_256);
    EXPECT_FALSE(provider.container());
    EXPECT_FALSE(provider.device());
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(ProviderTest, TakesTheTypeAsANumberToo) {
    const Provider provider(0xF00000051UL, embeddedName, std::wstring(L"box"));
    EXPECT_EQ(provider.type(), IProvider::gost2012_512) << "the number is narrowed to 32 bits";
    EXPECT_EQ(provider.container(), std::wstring(L"box"));
}

TEST_F(ProviderTest, OfACertificateIsProviderWide) {
    installed().containers = {containerNamed(L"box")};
    offerKeyAlgorithm();
    const Provider provider(*certificateIn(L"box"));
    EXPECT_EQ(provider.type(), IProvider::gost2012_256);
    EXPECT_EQ(provider.name(), embeddedName);
    EXPECT_FALSE(provider.container());
}

/// A certificate whose provider, under one of its aliases, is narrowed to a container.
class BoundElsewhere : public Certificate {
public:
    BoundElsewhere() : Certificate(der(gostCertificate)) {}
    [[nodiscard]] boost::shared_ptr<IProvider> provider(bool find) const override {
        asked_.push_back(find);
        return boost::make_shared<Alias>();
    }
    [[nodiscard]] const std::vector<bool>& asked() const { return asked_; }

private:
    class Alias : public Provider {
    public:
        Alias() : Provider(IProvider::gost2012_512, unknownName, std::wstring(L"box")) {}
        [[nodiscard]] const std::wstring& name() const override { return name_; }

    private:
        std::wstring name_ = L"Crypto-Pro GOST R 34.10-2012 KC1 CSP";
    };

    mutable std::vector<bool> asked_;
};

TEST_F(ProviderTest, OfACertificateTakesTypeAndCanonicalNameButNoContainer) {
    const BoundElsewhere certificate;
    const Provider provider(certificate);
    EXPECT_THAT(certificate.asked(), ElementsAre(true));
    EXPECT_EQ(provider.type(), IProvider::gost2012_512);
    EXPECT_EQ(provider.name(), cryptoProName);
    EXPECT_FALSE(provider.container());
}

TEST_F(ProviderTest, OfACertificateWithoutProviderIsRefused) {
    const Certificate unlinked(der(gostCertificate));
    EXPECT_EQ(thrownBy<CryptoException>([&] { const Provider provider(unlinked); }),
              (Thrown{30004, "provider", "Provider", 702}));
}

TEST_F(ProviderTest, TellsTheContainerPrefixOfItsRecord) {
    EXPECT_EQ(Provider(80UL, cryptoProName).containerPrefix(), std::string(R"(\\.\HDIMAGE\)"));
    EXPECT_EQ(Provider(80UL, embeddedName).containerPrefix(), std::string());
    EXPECT_FALSE(Provider(80UL, unknownName).containerPrefix());
}

TEST_F(ProviderTest, InitializesByFamily) {
    EXPECT_TRUE(Provider::initialize(IProvider::Family::cryptoPro));
    EXPECT_FALSE(Provider::initialize(IProvider::Family::vipNet));
    EXPECT_TRUE(Provider::initialize(4UL));
    EXPECT_FALSE(Provider::initialize(0UL));
}

// ---- algorithms

TEST_F(ProviderTest, NamesAlgorithmsByOidElseByTheServicesNameWithItsZero) {
    installed().algorithms = {algorithm(0x8021, "GOST R 34.11-2012", 18), algorithm(0x1111, "SECRET", 7),
                              algorithm(0x2222, "ignored", 0)};
    EXPECT_THAT(provider().algorithms(), ElementsAre("1.2.643.7.1.1.2.2", std::string("SECRET\0", 7)));
}

TEST_F(ProviderTest, AnAlgorithmNameNeverReachesBeyondItsField) {
    installed().algorithms = {algorithm(0x1111, std::string(20, 'x'), 4000)};
    EXPECT_THAT(provider().algorithms(), ElementsAre(std::string(20, 'x')));
}

TEST_F(ProviderTest, EnumeratesAlgorithmsFromFirstToNextWithTheWholeRecordEachTime) {
    std::vector<std::pair<DWORD, DWORD>> asked; // flags, size
    service().on.CryptGetProvParam = [&](unsigned long, DWORD parameter, BYTE* data, DWORD* size, DWORD flags) -> BOOL {
        EXPECT_EQ(parameter, 1U);
        asked.emplace_back(flags, *size);
        if (asked.size() == 4) {
            return service_double::fail(259);
        }
        const auto record = algorithm(0x1000 + static_cast<ALG_ID>(asked.size()), "A", 2);
        std::memcpy(data, &record, sizeof(record));
        *size = 3; // a service may say less
        return 1;
    };
    EXPECT_THAT(provider().algorithms(), ElementsAre(std::string("A\0", 2)));
    EXPECT_THAT(asked, ElementsAre(std::pair{1U, 32U}, std::pair{2U, 32U}, std::pair{2U, 32U}, std::pair{2U, 32U}));
}

TEST_F(ProviderTest, AnEnumerationThatThrowsIsLoggedAndKeepsWhatItFound) {
    service().on.CryptGetProvParam = [](unsigned long, DWORD, BYTE* data, DWORD*, DWORD flags) -> BOOL {
        if (flags == 2) {
            throw SystemException(5);
        }
        const auto record = algorithm(0x8021, "GOST R 34.11-2012", 18);
        std::memcpy(data, &record, sizeof(record));
        return 1;
    };
    EXPECT_THAT(provider().algorithms(), ElementsAre("1.2.643.7.1.1.2.2"));
    EXPECT_THAT(logTexts(Severity::warning),
                ElementsAre("wincrypt: get provider algoritms failed, provider: \"" + narrow(embeddedName) + "\""));
}

TEST_F(ProviderTest, WithoutANameHasNoAlgorithms) {
    EXPECT_THAT(Provider(80UL, L"").algorithms(), IsEmpty());
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre("wincrypt: get provider algoritms failed, provider: \"\""));
}

TEST_F(ProviderTest, WithANameThatIsNoUnicodeAnswersWithNothing) {
    const Provider unreadable(80UL, std::wstring(L"P") + wchar_t(0x110000));
    EXPECT_THAT(unreadable.algorithms(), IsEmpty());
    EXPECT_FALSE(unreadable.hasAlgorithm("1.2.643.7.1.1.2.2"));
    EXPECT_THAT(unreadable.randomBytes(4), IsEmpty());
    EXPECT_FALSE(unreadable.version());
    EXPECT_THAT(unreadable.containers(), IsEmpty());
    EXPECT_FALSE(unreadable.publicKey());
    EXPECT_FALSE(unreadable.containerPrefix());
    EXPECT_EQ(unreadable.subjectSignTool(), Provider(80UL, L"Unknown").subjectSignTool());
    EXPECT_EQ(thrownBy<SystemException>([&] { unreadable.deleteContainer(L"box", "done"); }).function,
              "deleteContainer");
}

TEST_F(ProviderTest, AsksForAlgorithmsOncePerName) {
    installed().algorithms = {algorithm(0x8021, "GOST R 34.11-2012", 18)};
    EXPECT_TRUE(provider().hasAlgorithm("1.2.643.7.1.1.2.2"));
    EXPECT_FALSE(provider().hasAlgorithm("1.2.643.7.1.1.2.3"));
    EXPECT_EQ(service().count("CryptAcquireContextW"), 1U);
    EXPECT_FALSE(Provider(80UL, cryptoProName).hasAlgorithm("1.2.643.7.1.1.2.2")) << "another name is asked itself";
    EXPECT_EQ(service().count("CryptAcquireContextW"), 2U);
    EXPECT_THAT(
        logTexts(Severity::trace),
        ElementsAre("wincrypt: provider " + narrow(embeddedName) + " (80) supports algorithm: 1.2.643.7.1.1.2.2",
                    "wincrypt: provider " + narrow(embeddedName) + " (80) supports algorithm: 1.2.643.7.1.1.2.3",
                    "wincrypt: provider " + narrow(cryptoProName) + " (80) supports algorithm: 1.2.643.7.1.1.2.2"));
}

TEST_F(ProviderTest, ProvidersOfOneNameShareTheirAlgorithmsWhateverTheirType) {
    installed().algorithms = {algorithm(0x8021, "GOST R 34.11-2012", 18)};
    EXPECT_TRUE(provider().hasAlgorithm("1.2.643.7.1.1.2.2"));
    EXPECT_TRUE(Provider(81UL, embeddedName).hasAlgorithm("1.2.643.7.1.1.2.2"));
    EXPECT_EQ(service().count("CryptAcquireContextW"), 1U);
}

TEST_F(ProviderTest, AsksAgainWhenAProviderReportedNothing) {
    EXPECT_FALSE(provider().hasAlgorithm("1.2.643.7.1.1.2.2"));
    installed().algorithms = {algorithm(0x8021, "GOST R 34.11-2012", 18)};
    EXPECT_TRUE(provider().hasAlgorithm("1.2.643.7.1.1.2.2"));
}

TEST_F(ProviderTest, ComparesAlgorithmsWhole) {
    installed().algorithms = {algorithm(0x1111, "SECRET", 7)};
    EXPECT_FALSE(provider().hasAlgorithm("SECRET"));
    EXPECT_TRUE(provider().hasAlgorithm(std::string("SECRET\0", 7)));
}

// ---- random octets

TEST_F(ProviderTest, GivesRandomOctetsOfTheProvider) {
    service().on.CryptGenRandom = [](unsigned long, DWORD length, BYTE* buffer) -> BOOL {
        std::memset(buffer, 0xA5, length);
        return 1;
    };
    EXPECT_EQ(provider().randomBytes(5), std::vector<unsigned char>(5, 0xA5));
    EXPECT_THAT(service().trace(),
                ElementsAre(testing::StartsWith("CryptAcquireContextW("), testing::StartsWith("CryptGenRandom("),
                            testing::StartsWith("CryptReleaseContext(")));
}

TEST_F(ProviderTest, NoRandomOctetsAreAnEmptyVector) {
    EXPECT_THAT(provider().randomBytes(0), IsEmpty());
    EXPECT_EQ(service().count("CryptGenRandom"), 1U);
    EXPECT_THAT(logTexts(Severity::warning), IsEmpty()) << "which is no failure";
}

TEST_F(ProviderTest, RandomFailureIsLoggedWithTheServicesText) {
    service().failFunction("CryptGenRandom", 0x80090020);
    service().messages[0x80090020] = "no entropy\r\n";
    EXPECT_THAT(provider().randomBytes(3), IsEmpty());
    EXPECT_TRUE(logged(Severity::warning, "wincrypt: get random bytes failed, provider: \"" + narrow(embeddedName) +
                                              "\", length=3, no entropy"));
}

TEST_F(ProviderTest, RandomOfAProviderThatDoesNotOpenIsEmptyWithoutItsOwnRecord) {
    service().failFunction("CryptAcquireContextW", 0x80090016);
    EXPECT_THAT(provider().randomBytes(3), IsEmpty());
    EXPECT_EQ(service().count("CryptGenRandom"), 0U);
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre(testing::HasSubstr("acquire context failed")));
}

TEST_F(ProviderTest, RandomExceptionIsLoggedTheSameWay) {
    EXPECT_THAT(Provider(80UL, L"").randomBytes(7), IsEmpty());
    EXPECT_THAT(logTexts(Severity::warning),
                ElementsAre("wincrypt: get random bytes failed, provider: \"\", length=7, " + withoutNameText()));
}

TEST_F(ProviderTest, FailuresThrownByTheServiceAreLoggedWithTheirTexts) {
    service().messages[5] = "access denied";
    service().on.CryptGenRandom = [](unsigned long, DWORD, BYTE*) -> BOOL { throw SystemException(5); };
    service().on.CryptGetProvParam = [](unsigned long, DWORD, BYTE*, DWORD*, DWORD) -> BOOL {
        throw SystemException(5);
    };
    EXPECT_THAT(provider().randomBytes(7), IsEmpty());
    EXPECT_FALSE(provider().version());
    const std::string name = "\"" + narrow(embeddedName) + "\"";
    EXPECT_THAT(logTexts(Severity::warning),
                ElementsAre("wincrypt: get random bytes failed, provider: " + name + ", length=7, access denied",
                            "wincrypt: get provider version failed, provider: " + name + ", error: access denied"));
}

// ---- version

TEST_F(ProviderTest, VersionIsMajorAndMinor) {
    const std::pair<DWORD, const wchar_t*> versions[] = {
        {0x0400, L"4.0"}, {0x0500, L"5.0"}, {0x0305, L"3.5"}, {0x00120A0C, L"10.12"}};
    for (const auto& [value, text] : versions) {
        installed().version = value;
        EXPECT_EQ(provider().version(), std::wstring(text));
    }
}

TEST_F(ProviderTest, VersionOfASlowTypeIsSkippedWithoutOpeningIt) {
    EXPECT_FALSE(Provider(IProvider::rsaFull, embeddedName).version());
    EXPECT_THAT(service().trace(), IsEmpty());
    EXPECT_THAT(logTexts(Severity::warning),
                ElementsAre("wincrypt: get provider version skipped, provider: \"" + narrow(embeddedName) + "\""));
}

TEST_F(ProviderTest, VersionOfAProviderThatDoesNotOpenIsEmptyWithoutItsOwnRecord) {
    service().failFunction("CryptAcquireContextW", 0x80090016);
    EXPECT_FALSE(provider().version());
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre(testing::HasSubstr("acquire context failed")));
}

TEST_F(ProviderTest, RefusedVersionIsLogged) {
    service().failFunction("CryptGetProvParam", 0x8009000A);
    EXPECT_FALSE(provider().version());
    EXPECT_THAT(logTexts(Severity::warning),
                ElementsAre("wincrypt: get provider version failed, provider: \"" + narrow(embeddedName) + "\""));
}

TEST_F(ProviderTest, VersionExceptionIsLoggedWithItsText) {
    EXPECT_FALSE(Provider(80UL, L"").version());
    EXPECT_THAT(logTexts(Severity::warning),
                ElementsAre("wincrypt: get provider version failed, provider: \"\", error: " + withoutNameText()));
}

// ---- the signing tool

TEST_F(ProviderTest, SignToolOfAnUnknownProviderIsAbsent) {
    EXPECT_FALSE(Provider(80UL, unknownName).subjectSignTool());
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(ProviderTest, SignToolOfOtherKindsIsTheRecordsOwnWithoutAskingTheVersion) {
    EXPECT_EQ(provider().subjectSignTool(), recordText(embeddedName));
    EXPECT_EQ(Provider(77UL, vipNetName).subjectSignTool(), recordText(vipNetName));
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(ProviderTest, SignToolOfCryptoProDependsOnVersionsBelowFive) {
    install(scripted(cryptoProName));
    const Provider cryptoPro(80UL, cryptoProName);
    const std::pair<DWORD, std::string> texts[] = {{0x0400, "\"КриптоПро CSP\" версия 4.0"},
                                                   {0x0309, "\"КриптоПро CSP\" версия 4.0"},
                                                   {0x0500, recordText(cryptoProName)},
                                                   {0x0900, recordText(cryptoProName)},
                                                   // the first digit decides, not the number
                                                   {0x0A00, "\"КриптоПро CSP\" версия 4.0"}};
    for (const auto& [version, text] : texts) {
        installed().version = version;
        EXPECT_EQ(cryptoPro.subjectSignTool(), text) << std::hex << version;
    }
    service().failFunction("CryptGetProvParam", 0x8009000A);
    EXPECT_EQ(cryptoPro.subjectSignTool(), recordText(cryptoProName)) << "no version decides nothing";
}

TEST_F(ProviderTest, SignToolOfSignalComDependsOnVersionsAboveThree) {
    install(scripted(signalComName));
    const Provider signalCom(80UL, signalComName);
    const std::pair<DWORD, std::string> texts[] = {{0x0400, "Крипто-КОМ 3.5"},
                                                   {0x0500, "Крипто-КОМ 3.5"},
                                                   {0x0305, recordText(signalComName)},
                                                   {0x0100, recordText(signalComName)},
                                                   {0x0A00, recordText(signalComName)}};
    for (const auto& [version, text] : texts) {
        installed().version = version;
        EXPECT_EQ(signalCom.subjectSignTool(), text) << std::hex << version;
    }
}

TEST_F(ProviderTest, LogRecordsEscapeQuotesInNames) {
    EXPECT_FALSE(Provider(IProvider::rsaFull, LR"(A "quoted" \name)").version());
    EXPECT_TRUE(
        logged(Severity::warning, R"(wincrypt: get provider version skipped, provider: "A \"quoted\" \\name")"));
}

// ---- hash

TEST_F(ProviderTest, HashWithoutCertificateIsBoundToTheProvider) {
    service().oids["1.2.643.7.1.1.2.2"] = {0x8021, L""};
    ASSERT_TRUE(provider().hash(nullptr, "1.2.643.7.1.1.2.2"));
    EXPECT_EQ(service().count("CryptAcquireContextW"), 1U);
    EXPECT_EQ(service().count("CryptAcquireCertificatePrivateKey"), 0U);
}

TEST_F(ProviderTest, HashWithACertificateIsBoundToItsKey) {
    service().oids["1.2.643.7.1.1.2.2"] = {0x8021, L""};
    installed().containers = {containerNamed(L"box")};
    ASSERT_TRUE(provider().hash(certificateIn(L"box"), "1.2.643.7.1.1.2.2"));
    EXPECT_EQ(service().count("CryptAcquireCertificatePrivateKey"), 1U);
}

} // namespace
} // namespace wincrypt_keys
