#include "certificates_fixture.hpp"

#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"

#include <boost/exception/get_error_info.hpp>

namespace wincrypt_certificates {
namespace {

using orvik::plugin::crypto::AuthProvider;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class InstallTest : public CertificatesFixture {
protected:
    static void install(const Certificate& which, const std::string& pin = "1234",
                        const std::wstring& container = L"box") {
        which.install(CertificatesFixture::provider(), container, pin);
    }
    static constexpr Thrown here(int number) { return {number, "certificate", "install", 0}; }
    static const std::string& stored() { return installed().containers.front().certificate; }
};

TEST_F(InstallTest, WritesTheCertificateIntoTheContainerAndLinksIt) {
    const auto signer = certificate();
    install(*signer);
    EXPECT_EQ(stored(), der(signerCertificate));
    EXPECT_EQ(signer->container(), std::wstring(L"box"));
    EXPECT_TRUE(logged(Severity::debug, "crypto: try to match container's and certificate's public keys"));
}

TEST_F(InstallTest, GoesInTheDocumentedOrder) {
    const auto signer = certificate();
    install(*signer);
    std::vector<std::string> calls;
    for (const auto& name : functions()) {
        if (name != "CryptGetProvParam") { // names and types are read along the way
            calls.push_back(name);
        }
    }
    EXPECT_THAT(calls, ElementsAre("CryptAcquireContextW", "CryptGetUserKey", "CryptSetProvParam", "CryptSetProvParam",
                                   "CryptExportPublicKeyInfo", "CryptExportPublicKeyInfo", "CertComparePublicKeyInfo",
                                   "CryptSetKeyParam", "CertSetCertificateContextProperty", "CryptDestroyKey",
                                   "CryptReleaseContext"));
}

TEST_F(InstallTest, MissingContainerIsRefused) {
    const auto signer = certificate();
    EXPECT_EQ(thrownBy<CryptoException>([&] { install(*signer, "1234", L"other"); }), here(30005));
    EXPECT_EQ(thrownBy<CryptoException>([&] { install(*signer, "1234", L""); }), here(30005));
}

TEST_F(InstallTest, CancelledAcquisitionIsTheUsersChoice) {
    const auto signer = certificate();
    for (const DWORD cancelled : {1223U, 0x8010006EU, 87U}) {
        service().failFunction("CryptAcquireContextW", cancelled);
        EXPECT_EQ(thrownBy<ApplicationException>([&] { install(*signer); }), here(20003));
    }
}

TEST_F(InstallTest, ContainerWithoutExchangeKeyIsTheServicesRefusal) {
    installed().containers.front().keySpecs = {2};
    const auto signer = certificate();
    EXPECT_EQ(thrownBy<SystemException>([&] { install(*signer); }), here(code(capi::NTE_NO_KEY)));
}

TEST_F(InstallTest, WrongPinIsRefusedAndNothingIsWritten) {
    const auto signer = certificate();
    EXPECT_EQ(thrownBy<CryptoException>([&] { install(*signer, "9999"); }), here(30053));
    EXPECT_EQ(stored(), "");
    EXPECT_FALSE(signer->container());
}

TEST_F(InstallTest, PinIsAskedForWhenNoneIsGiven) {
    const auto signer = certificate();
    AuthProvider::setDialog([](const auto&, unsigned) { return boost::optional<std::string>("1234"); });
    install(*signer, "");
    AuthProvider::setDialog({});
    EXPECT_EQ(stored(), der(signerCertificate));
}

TEST_F(InstallTest, UnreadablePublicKeyIsNoContainer) {
    const auto signer = certificate();
    service().failFunction("CryptExportPublicKeyInfo", capi::NTE_FAIL);
    EXPECT_EQ(thrownBy<CryptoException>([&] { install(*signer); }), here(30005));
    service().failFunction("CryptExportPublicKeyInfo", 1223);
    EXPECT_EQ(thrownBy<ApplicationException>([&] { install(*signer); }), here(20003));
    EXPECT_TRUE(logged(Severity::error, "crypto: can't get public key for container: \"box\" error: 2148073504"));
    EXPECT_TRUE(logged(Severity::error, "crypto: can't get public key for container: \"box\" error: 1223"));
}

TEST_F(InstallTest, ForeignKeyIsRefusedAndPropertiesStayAsTheyAre) {
    const auto other = certificate(enciphermentCertificate);
    try {
        install(*other);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const CryptoException& e) {
        EXPECT_EQ(wincrypt_keys::describe(e), here(30032));
        const auto* value = boost::get_error_info<orvik::plugin::exception::Value_>(e);
        ASSERT_NE(value, nullptr);
        EXPECT_EQ(*value, "контейнер не соответствует сертификату");
    }
    EXPECT_TRUE(logged(Severity::error, "crypto: certificate doesn't match the container: \"box\""));
    EXPECT_EQ(service().count("CertSetCertificateContextProperty"), 0U);
    EXPECT_EQ(stored(), "");
}

TEST_F(InstallTest, RefusedWriteIsTheServicesRefusal) {
    const auto signer = certificate();
    service().failFunction("CryptSetKeyParam", capi::NTE_PERM);
    EXPECT_EQ(thrownBy<SystemException>([&] { install(*signer); }), here(code(capi::NTE_PERM)));
    EXPECT_FALSE(signer->container());
}

TEST_F(InstallTest, RefusedLinkIsLogged) {
    const auto signer = certificate();
    service().failFunction("CertSetCertificateContextProperty", 5);
    EXPECT_EQ(thrownBy<SystemException>([&] { install(*signer); }), here(5));
    EXPECT_TRUE(logged(Severity::error, "crypto: link certificate failed: 5"));
}

TEST_F(InstallTest, UnreadableContainerNameLinksAndWritesNothing) {
    const auto signer = certificate();
    service().on.CryptGetProvParam = [](unsigned long context, DWORD parameter, BYTE* data, DWORD* size, DWORD flags) {
        return parameter == capi::PP_CONTAINER ? static_cast<BOOL>(service_double::fail(capi::NTE_FAIL))
                                               : Defaults::CryptGetProvParam(context, parameter, data, size, flags);
    };
    EXPECT_EQ(thrownBy<CryptoException>([&] { install(*signer); }), here(30005));
    EXPECT_EQ(stored(), "");
    EXPECT_FALSE(signer->container());
    EXPECT_TRUE(logged(Severity::error, "crypto: can't read the container's name"));
}

TEST_F(InstallTest, PublicKeyOfNoAcceptableSizeIsNoContainer) {
    const auto signer = certificate();
    for (const DWORD size : {0U, 1U, 102401U}) {
        service().on.CryptExportPublicKeyInfo = [size](unsigned long, DWORD, DWORD, CERT_PUBLIC_KEY_INFO* info,
                                                       DWORD* needed) {
            EXPECT_EQ(info, nullptr);
            *needed = size;
            return 1;
        };
        EXPECT_EQ(thrownBy<CryptoException>([&] { install(*signer); }), here(30005));
    }
    EXPECT_TRUE(logged(Severity::error, "crypto: can't get public key for container: \"box\" error: 0"));
    EXPECT_EQ(stored(), "");
}

TEST_F(InstallTest, ProviderThatAsksForPinsItselfIsGivenNone) {
    auto other = wincrypt_keys::scripted(wincrypt_keys::signalComName);
    other.algorithms = installed().algorithms;
    other.containers = installed().containers;
    CertificatesFixture::install(other);
    AuthProvider::setDialog([](const auto&, unsigned) {
        ADD_FAILURE() << "nobody is asked";
        return boost::optional<std::string>();
    });
    const auto signer = certificate();
    signer->install(orvik::plugin::wincrypt::Provider(80UL, wincrypt_keys::signalComName), L"box", "9999");
    AuthProvider::setDialog({});
    EXPECT_EQ(service().count("CryptSetProvParam"), 0U);
    EXPECT_EQ(stored(), der(signerCertificate));
}

TEST_F(InstallTest, ContainerIsOpenedByItsNameWithoutFlags) {
    const auto signer = certificate();
    install(*signer);
    EXPECT_EQ(service().trace().front(), "CryptAcquireContextW(&, \"box\", \"" +
                                             wincrypt_keys::narrow(wincrypt_keys::embeddedName) + "\", 80, 0)");
    EXPECT_THAT(service().trace(), Contains("CryptGetUserKey(context1, 1, &)"));
    EXPECT_THAT(service().trace(), Contains(HasSubstr("CryptSetKeyParam(key1, 26, ")));
}

TEST_F(InstallTest, WhatAFailedSearchKeptStaysAfterIt) {
    const auto signer = certificate(plainCertificate);
    EXPECT_FALSE(signer->provider(true));
    install(*signer);
    EXPECT_FALSE(signer->provider(true)) << "the search's answer is kept for the object's life";
    EXPECT_EQ(signer->container(), std::wstring(L"box"));
}

TEST_F(InstallTest, CertificateWithoutContextIsRefused) {
    EXPECT_EQ(thrownBy<CryptoException>([&] { install(Certificate(nullptr)); }), here(30003));
}

} // namespace
} // namespace wincrypt_certificates
