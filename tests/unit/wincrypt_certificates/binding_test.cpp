#include "certificates_fixture.hpp"

#include "crypto/wincrypt/private_key.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "service_double/flatten.hpp"

namespace wincrypt_certificates {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class BindingTest : public CertificatesFixture {
protected:
    /// The certificate's subject sign tool, as the service decodes it.
    static void subjectSignTool(const std::wstring& text) {
        service().on.CryptDecodeObject = [text](DWORD, const char*, const BYTE*, DWORD, DWORD, void* buffer,
                                                DWORD* size) -> BOOL {
            service_double::Flat flat(sizeof(CERT_NAME_VALUE));
            flat.blob(offsetof(CERT_NAME_VALUE, Value),
                      {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)});
            return giveFlat(flat, buffer, size);
        };
    }
    static void installNamed(const wchar_t* name, DWORD type) {
        auto other = wincrypt_keys::scripted(name, type);
        other.algorithms = installed().algorithms;
        install(other);
    }
    /// The link written by somebody else.
    static void writeLink(const Certificate& certificate, const wchar_t* container, const wchar_t* provider,
                          DWORD type = 80) {
        CRYPT_KEY_PROV_INFO info{};
        info.pwszContainerName = const_cast<wchar_t*>(container);
        info.pwszProvName = const_cast<wchar_t*>(provider);
        info.dwProvType = type;
        EXPECT_TRUE(orvik::plugin::wincrypt::CertSetCertificateContextProperty(
            static_cast<PCCERT_CONTEXT>(certificate.context()), 2, 0, &info));
        service().clearCalls();
    }
};

TEST_F(BindingTest, LinkRecordsTheExchangeKeyAndNoFlags) {
    const auto signer = certificate();
    service().on.CertSetCertificateContextProperty = [&](PCCERT_CONTEXT context, DWORD id, DWORD flags,
                                                         const void* data) {
        const auto& info = *static_cast<const CRYPT_KEY_PROV_INFO*>(data);
        EXPECT_EQ(id, 2U);
        EXPECT_EQ(flags, 0U);
        EXPECT_EQ(std::wstring(info.pwszContainerName), L"box");
        EXPECT_EQ(std::wstring(info.pwszProvName), wincrypt_keys::embeddedName);
        EXPECT_EQ(info.dwProvType, 80U);
        EXPECT_EQ(info.dwFlags + info.cProvParam, 0U);
        EXPECT_EQ(info.rgProvParam, nullptr);
        EXPECT_EQ(info.dwKeySpec, 1U);
        return Defaults::CertSetCertificateContextProperty(context, id, flags, data);
    };
    EXPECT_FALSE(signer->container());
    EXPECT_TRUE(signer->link(provider(), L"box"));
    EXPECT_EQ(signer->container(), std::wstring(L"box"));
}

TEST_F(BindingTest, RefusedLinkIsFalse) {
    service().failFunction("CertSetCertificateContextProperty", 5);
    EXPECT_FALSE(certificate()->link(provider(), L"box"));
}

TEST_F(BindingTest, LinkWithoutContainerNameNamesNone) {
    const auto signer = certificate();
    writeLink(*signer, nullptr, wincrypt_keys::embeddedName);
    EXPECT_FALSE(signer->container());
    EXPECT_TRUE(signer->provider(false));
}

TEST_F(BindingTest, LinkedProviderIsFoundAndKept) {
    const auto signer = linked();
    const auto found = signer->provider(false);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->name(), wincrypt_keys::embeddedName);
    EXPECT_FALSE(found->container());
    service().clearCalls();
    EXPECT_EQ(signer->provider(true), found);
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(BindingTest, UnlinkedCertificateHasNoProviderAndKeepsNothing) {
    const auto signer = certificate();
    EXPECT_FALSE(signer->provider(false));
    EXPECT_TRUE(signer->link(provider(), L"box"));
    EXPECT_TRUE(signer->provider(false));
}

TEST_F(BindingTest, SearchInVainIsKept) {
    const auto signer = certificate(plainCertificate);
    EXPECT_FALSE(signer->provider(true));
    EXPECT_TRUE(signer->link(provider(), L"box"));
    service().clearCalls();
    EXPECT_FALSE(signer->provider(true));
    EXPECT_THAT(service().trace(), IsEmpty());
    EXPECT_THAT(logTexts(Severity::warning), IsEmpty());
}

TEST_F(BindingTest, ProviderTypeThatIsNotInstalledIsNotLogged) {
    const auto signer = certificate();
    writeLink(*signer, L"box", L"Some Provider", 99);
    EXPECT_FALSE(signer->provider(false));
    EXPECT_THAT(logTexts(Severity::warning), IsEmpty());
}

TEST_F(BindingTest, ProviderWithoutTheKeysAlgorithmIsLogged) {
    installed().algorithms = {{capi::CALG_RSA_SIGN, 2048, 4, "RSA"}};
    EXPECT_FALSE(linked()->provider(false));
    EXPECT_THAT(logTexts(Severity::warning),
                ElementsAre("wincrypt: search provider metadata in certificate (452301) failed, reason: provider "
                            "(Klunortredi GOST R 34.10-2012 (256) Cryptographic Service Provider,80) found but not "
                            "supports public key algorithm: 1.2.643.7.1.1.1.1"));
}

TEST_F(BindingTest, ProviderThatTheFrameworkDoesNotKnowHasNoAlgorithm) {
    installNamed(wincrypt_keys::unknownName, 80);
    const auto signer = certificate();
    writeLink(*signer, L"box", wincrypt_keys::unknownName);
    EXPECT_FALSE(signer->provider(false)) << "although the service says that it has it";
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre(HasSubstr("(Somebody's Provider,80) found but not supports")));
}

TEST_F(BindingTest, FailureOfTheMetadataSearchIsLogged) {
    const auto signer = certificate();
    service().on.CertGetCertificateContextProperty = [](PCCERT_CONTEXT, DWORD, void*, DWORD*) -> BOOL {
        throw std::runtime_error("broken");
    };
    EXPECT_FALSE(signer->provider(false));
    EXPECT_THAT(logTexts(Severity::warning),
                ElementsAre("wincrypt: search provider metadata in certificate failed, reason: broken"));
}

TEST_F(BindingTest, SignToolLeadsToTheInstalledProviderOfItsType) {
    installNamed(wincrypt_keys::cryptoProName, 80);
    subjectSignTool(L"СКЗИ \"КриптоПро CSP\" версия 5.0");
    const auto found = certificate()->provider(true);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->name(), wincrypt_keys::cryptoProName);
    EXPECT_EQ(found->type(), 80U);
    EXPECT_FALSE(found->container());
}

TEST_F(BindingTest, SearchPassesOverProvidersWithoutTheKeysAlgorithm) {
    // The table's first provider of that maker has the keys of 2001 alone.
    service().providers[""] = {
        wincrypt_keys::scripted(L"Crypto-Pro GOST R 34.10-2001 Cryptographic Service Provider", 75),
        wincrypt_keys::scripted(wincrypt_keys::cryptoProName, 80)};
    subjectSignTool(L"\"КриптоПро CSP\"");
    const auto found = certificate()->provider(true);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->type(), 80U);
    EXPECT_EQ(service().count("CryptAcquireContextW"), 0U) << "the framework's table says what a provider has";
}

TEST_F(BindingTest, SearchGivesTheFirstProviderOfTheTable) {
    service().providers[""] = {wincrypt_keys::scripted(wincrypt_keys::cryptoProName, 80),
                               wincrypt_keys::scripted(wincrypt_keys::vipNetName, 77)};
    subjectSignTool(L"КриптоПро CSP, ViPNet CSP");
    const auto found = certificate()->provider(true);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->name(), wincrypt_keys::vipNetName);
}

TEST_F(BindingTest, SignToolOfAProviderThatIsNotInstalledLeadsNowhere) {
    installNamed(wincrypt_keys::cryptoProName, 75);
    subjectSignTool(L"\"КриптоПро CSP\"");
    EXPECT_FALSE(certificate()->provider(true));
}

TEST_F(BindingTest, UnknownSignToolLeadsNowhere) {
    subjectSignTool(L"Something else");
    EXPECT_FALSE(certificate()->provider(true));
}

TEST_F(BindingTest, FailureOfTheSearchBySignToolIsLogged) {
    service().on.CryptDecodeObject = [](DWORD, const char*, const BYTE*, DWORD, DWORD, void*, DWORD*) -> BOOL {
        throw std::runtime_error("broken");
    };
    EXPECT_FALSE(certificate()->provider(true));
    EXPECT_THAT(logTexts(Severity::warning),
                ElementsAre("wincrypt: search provider metadata in certificate 452301 failed, reason: broken"));
}

TEST_F(BindingTest, PrivateKeyIsMadeOnceOverADuplicate) {
    const auto signer = linked();
    const auto key = signer->privateKey();
    ASSERT_TRUE(key);
    EXPECT_EQ(signer->privateKey(), key);
    EXPECT_NE(key->certificate().get(), signer.get());
    EXPECT_EQ(key->certificate()->raw(), signer->raw());
    EXPECT_EQ(service().count("CertDuplicateCertificateContext"), 1U);
}

TEST_F(BindingTest, PrivateKeyOutlivesItsCertificate) {
    auto signer = linked();
    const auto key = signer->privateKey();
    signer.reset();
    EXPECT_NE(key->context(), nullptr);
}

TEST_F(BindingTest, ContextThatCannotBeDuplicatedHasNoKey) {
    const auto signer = linked();
    service().failFunction("CertDuplicateCertificateContext", 8);
    EXPECT_EQ(thrownBy<SystemException>([&] { static_cast<void>(signer->privateKey()); }),
              (Thrown{8, "certificate", "privateKey", 0}));
    service().failFunction("CertDuplicateCertificateContext", 0);
    EXPECT_TRUE(signer->privateKey());
}

} // namespace
} // namespace wincrypt_certificates
