// Certificates that lie in a provider's containers.
#include "keys_fixture.hpp"

#include "crypto/wincrypt/exceptions.hpp"

namespace wincrypt_keys {
namespace {

using orvik::plugin::crypto::exception::SystemException;
using testing::ElementsAre;
using testing::IsEmpty;

service_double::Container withCertificate(const std::wstring& name, const char* certificate) {
    auto container = containerNamed(name);
    container.certificate = der(certificate);
    return container;
}

std::string warningOf(const std::string& text) {
    return "wincrypt: get provider certificates failed, provider: \"" + narrow(embeddedName) + "\", error: " + text;
}

class ContainerCertificate : public KeysFixture {
protected:
    /// Opening the container of that name fails.
    static void breakContainer(const std::wstring& name) {
        service().on.CryptAcquireContextW = [name](unsigned long* handle, const wchar_t* container,
                                                   const wchar_t* provider, DWORD type, DWORD flags) -> BOOL {
            if (container != nullptr && std::wstring(container).ends_with(name)) {
                return service_double::fail(5);
            }
            return Defaults::CryptAcquireContextW(handle, container, provider, type, flags);
        };
    }

    static std::vector<std::string>
    serials(const std::vector<boost::shared_ptr<orvik::plugin::crypto::ICertificate>>& certificates) {
        std::vector<std::string> result;
        for (const auto& certificate : certificates) {
            result.push_back(certificate->serialNumber());
        }
        return result;
    }
};

const std::string gostSerial = "\x89\x67\x45\x23\x01";
const std::string otherSerial = "\x0E\x0D\x0C\x0B\x0A";

TEST_F(ContainerCertificate, IsReadFromTheKeyOfItsContainer) {
    installed().containers = {withCertificate(L"box", gostCertificate)};
    const auto certificate = provider().certificate(std::wstring(L"box"));
    ASSERT_TRUE(certificate);
    EXPECT_EQ(certificate->raw(), der(gostCertificate));
    EXPECT_TRUE(logged(Severity::debug, "wincrypt: provider certificate: " + certificate->subject()));
}

TEST_F(ContainerCertificate, IsReadFromTheSignatureKeyWhereThereIsNoOther) {
    installed().containers = {withCertificate(L"box", gostCertificate)};
    installed().containers.front().keySpecs = {2};
    std::vector<DWORD> asked;
    service().on.CryptGetUserKey = [&](unsigned long context, DWORD keySpec, unsigned long* key) {
        asked.push_back(keySpec);
        return Defaults::CryptGetUserKey(context, keySpec, key);
    };
    EXPECT_TRUE(provider().certificate(std::wstring(L"box")));
    EXPECT_THAT(asked, ElementsAre(1U, 2U, 2U));
}

TEST_F(ContainerCertificate, IsTiedToItsContainerByTheContainersPath) {
    auto box = withCertificate(L"box", gostCertificate);
    box.uniqueName = L"folder/ключ";
    installed().containers = {box};
    offerKeyAlgorithm();
    const auto certificate = provider().certificate(std::wstring(L"box"));
    ASSERT_TRUE(certificate);
    EXPECT_EQ(certificate->container(), std::wstring(L"folder/ключ"));
    ASSERT_TRUE(certificate->provider(false));
    EXPECT_EQ(certificate->provider(false)->type(), IProvider::gost2012_256);
    EXPECT_EQ(certificate->provider(false)->name(), embeddedName);
}

TEST_F(ContainerCertificate, KeepsTheLinkThatItComesWith) {
    installed().containers = {withCertificate(L"box", gostCertificate)};
    service().on.CertCreateCertificateContext = [](DWORD encoding, const BYTE* data, DWORD size) {
        const auto* certificate = Defaults::CertCreateCertificateContext(encoding, data, size);
        std::wstring container = L"elsewhere";
        std::wstring name = embeddedName;
        CRYPT_KEY_PROV_INFO link{};
        link.pwszContainerName = container.data();
        link.pwszProvName = name.data();
        link.dwProvType = IProvider::gost2012_256;
        Defaults::CertSetCertificateContextProperty(certificate, 2, 0, &link);
        return certificate;
    };
    const auto certificate = provider().certificate(std::wstring(L"box"));
    ASSERT_TRUE(certificate);
    EXPECT_EQ(certificate->container(), std::wstring(L"elsewhere"));
    EXPECT_EQ(service().count("CertSetCertificateContextProperty"), 0U);
}

TEST_F(ContainerCertificate, ContainersWithoutOneAreSkippedSilently) {
    installed().containers = {containerNamed(L"empty"), withCertificate(L"box", gostCertificate)};
    EXPECT_THAT(serials(provider().certificates()), ElementsAre(gostSerial));
    EXPECT_THAT(logTexts(Severity::warning), IsEmpty());
    EXPECT_EQ(provider().certificate(std::wstring(L"empty")), nullptr);
}

TEST_F(ContainerCertificate, OfRsaIsNeverReturned) {
    installed().containers = {withCertificate(L"rsa", rsaCertificate)};
    EXPECT_THAT(provider().certificates(), IsEmpty());
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre("wincrypt: provider \"" + narrow(embeddedName) +
                                                         "\" doesn't support 1.2.840.113549.1.1.1"));
}

TEST_F(ContainerCertificate, OfRsaIsNotReturnedByAnRsaProviderEither) {
    install(scripted(rsaName, 24));
    installed().containers = {withCertificate(L"rsa", rsaCertificate)};
    EXPECT_THAT(Provider(24UL, rsaName).certificates(), IsEmpty());
    EXPECT_THAT(logTexts(Severity::warning),
                ElementsAre("wincrypt: provider \"" + narrow(rsaName) + "\" doesn't support 1.2.840.113549.1.1.1"));
}

TEST_F(ContainerCertificate, OfAnAlgorithmOutsideTheProvidersRecordIsNotReturned) {
    install(scripted(unknownName));
    installed().containers = {withCertificate(L"box", gostCertificate)};
    EXPECT_EQ(Provider(80UL, unknownName).certificate(std::wstring(L"box")), nullptr);
    EXPECT_TRUE(
        logged(Severity::warning, "wincrypt: provider \"Somebody's Provider\" doesn't support 1.2.643.7.1.1.1.1"));
}

TEST_F(ContainerCertificate, AContainerThatFailsIsLoggedAndTheOthersAreRead) {
    installed().containers = {withCertificate(L"first", gostCertificate), withCertificate(L"broken", gostCertificate),
                              withCertificate(L"last", otherGostCertificate)};
    breakContainer(L"broken");
    service().messages[5] = "access denied";
    EXPECT_THAT(serials(provider().certificates()), ElementsAre(gostSerial, otherSerial));
    EXPECT_TRUE(logged(Severity::warning, warningOf("access denied")));
}

TEST_F(ContainerCertificate, AContainerWithoutKeyIsLoggedAndSkipped) {
    auto keyless = withCertificate(L"keyless", gostCertificate);
    keyless.keySpecs = {};
    installed().containers = {keyless};
    EXPECT_THAT(provider().certificates(), IsEmpty());
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre(testing::StartsWith(warningOf(""))));
}

TEST_F(ContainerCertificate, OctetsThatAreNoCertificateAreLoggedAndSkipped) {
    auto broken = containerNamed(L"broken");
    broken.certificate = "no certificate";
    installed().containers = {broken};
    EXPECT_THAT(provider().certificates(), IsEmpty());
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre(testing::StartsWith(warningOf(""))));
}

TEST_F(ContainerCertificate, OfOneContainerThatFailsIsNullAndLoggedWithTheContainer) {
    breakContainer(L"box");
    service().messages[5] = "access denied";
    EXPECT_EQ(provider().certificate(std::wstring(L"box")), nullptr);
    EXPECT_TRUE(
        logged(Severity::warning, "wincrypt: get provider certificate failed, container: \"box\", access denied"));
}

TEST_F(ContainerCertificate, IsFoundByTheSerialNumberOfAnother) {
    installed().containers = {containerNamed(L"empty"), withCertificate(L"first", gostCertificate),
                              withCertificate(L"second", otherGostCertificate),
                              withCertificate(L"third", gostCertificate)};
    const boost::shared_ptr<orvik::plugin::crypto::ICertificate> like =
        boost::make_shared<Certificate>(der(otherGostCertificate));
    const auto found = provider().certificate(like);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->container(), std::wstring(L"second"));
    EXPECT_NE(found, like);
}

TEST_F(ContainerCertificate, IsTheFirstOfThoseWithTheSerialNumber) {
    installed().containers = {withCertificate(L"other", otherGostCertificate),
                              withCertificate(L"first", gostCertificate), withCertificate(L"second", gostCertificate)};
    const auto found = provider().certificate(boost::make_shared<Certificate>(der(gostCertificate)));
    ASSERT_TRUE(found);
    EXPECT_EQ(found->container(), std::wstring(L"first"));
}

TEST_F(ContainerCertificate, ThatNoContainerHoldsIsNotFound) {
    installed().containers = {withCertificate(L"first", gostCertificate)};
    EXPECT_EQ(provider().certificate(boost::make_shared<Certificate>(der(otherGostCertificate))), nullptr);
    EXPECT_EQ(provider().certificate(boost::shared_ptr<orvik::plugin::crypto::ICertificate>()), nullptr);
}

/// A certificate of another back-end that cannot tell its serial number.
class WithoutSerialNumber : public Certificate {
public:
    WithoutSerialNumber() : Certificate(der(gostCertificate)) {}
    [[nodiscard]] std::string serialNumber() const override { throw SystemException(5); }
};

TEST_F(ContainerCertificate, LikeOneWithoutSerialNumberIsNotLookedFor) {
    installed().containers = {withCertificate(L"box", gostCertificate)};
    const auto like = boost::make_shared<WithoutSerialNumber>();
    service().messages[5] = "access denied";
    EXPECT_EQ(provider().certificate(like), nullptr);
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre(warningOf("access denied")));
    EXPECT_EQ(service().count("CryptAcquireContextW"), 0U);
}

TEST_F(ContainerCertificate, SearchVisitsAContainerOnce) {
    installed().containers = {withCertificate(L"same", gostCertificate), withCertificate(L"same", gostCertificate)};
    EXPECT_EQ(provider().certificate(boost::make_shared<Certificate>(der(otherGostCertificate))), nullptr);
    EXPECT_EQ(service().count("CryptAcquireContextW"), 2U) << "one for the list, one for the container";
}

TEST_F(ContainerCertificate, SearchGoesOnAfterAContainerThatFails) {
    installed().containers = {withCertificate(L"broken", gostCertificate), withCertificate(L"last", gostCertificate)};
    breakContainer(L"broken");
    EXPECT_TRUE(provider().certificate(boost::make_shared<Certificate>(der(gostCertificate))));
    EXPECT_TRUE(logged(Severity::warning, warningOf("CryptoError: 5")));
}

} // namespace
} // namespace wincrypt_keys
