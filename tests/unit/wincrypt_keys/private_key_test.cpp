#include "keys_fixture.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/private_key.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_auth_handle.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

namespace wincrypt_keys {
namespace {

using orvik::plugin::crypto::AuthProvider;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::exception::SystemException;
using orvik::plugin::exception::ApplicationException;
using orvik::plugin::wincrypt::PrivateKey;
using testing::ElementsAre;
using testing::IsEmpty;

class PrivateKeyTest : public KeysFixture {
protected:
    PrivateKeyTest() {
        installed().containers = {containerNamed(L"box")};
        installed().containers.front().pin = "1234";
        offerKeyAlgorithm();
        certificate_ = certificateIn(L"box");
        EXPECT_TRUE(certificate_->provider(true)) << "kept by the certificate, so that only the key's calls are seen";
        service().clearCalls();
        key_ = boost::make_shared<PrivateKey>(certificate_);
        service().on.CryptAcquireCertificatePrivateKey = [this](PCCERT_CONTEXT certificate, DWORD flags, void* reserved,
                                                                unsigned long* handle, DWORD* keySpec,
                                                                BOOL* callerFrees) -> BOOL {
            EXPECT_EQ(certificate, certificate_->context());
            EXPECT_EQ(flags, 0x20000U);
            EXPECT_EQ(reserved, nullptr);
            const auto attempt = acquisitions_++;
            if (attempt < errors_.size()) {
                return service_double::fail(errors_[attempt]);
            }
            return Defaults::CryptAcquireCertificatePrivateKey(certificate, flags, reserved, handle, keySpec,
                                                               callerFrees);
        };
    }
    ~PrivateKeyTest() override { AuthProvider::setDialog({}); }

    void TearDown() override {
        key_.reset();
        certificate_.reset();
        KeysFixture::TearDown();
    }

    boost::shared_ptr<Certificate> certificate_;
    boost::shared_ptr<PrivateKey> key_;
    std::vector<DWORD> errors_; ///< with which the first acquisitions fail
    std::size_t acquisitions_ = 0;
};

TEST_F(PrivateKeyTest, OpensNothingBeforeItIsUsed) {
    EXPECT_EQ(key_->certificate(), certificate_);
    EXPECT_FALSE(key_->authenticated());
    key_->resetAuthentication();
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(PrivateKeyTest, OpensItsContextOnceAndReleasesItOnce) {
    EXPECT_NE(key_->context(), nullptr);
    EXPECT_EQ(key_->context(), key_->context());
    EXPECT_EQ(key_->keySpec(), 1U);
    EXPECT_EQ(acquisitions_, 1U);
    EXPECT_EQ(service().count("CryptReleaseContext"), 0U);
    key_.reset();
    EXPECT_EQ(service().count("CryptReleaseContext"), 1U);
}

TEST_F(PrivateKeyTest, TellsTheKeySpecThatTheServiceReports) {
    service().on.CryptAcquireCertificatePrivateKey = [](PCCERT_CONTEXT certificate, DWORD flags, void* reserved,
                                                        unsigned long* handle, DWORD* keySpec, BOOL* callerFrees) {
        const BOOL result =
            Defaults::CryptAcquireCertificatePrivateKey(certificate, flags, reserved, handle, keySpec, callerFrees);
        *keySpec = 2;
        return result;
    };
    EXPECT_EQ(key_->keySpec(), 2U);
}

TEST_F(PrivateKeyTest, TakesAReferenceOfItsOwnWhenTheHandleIsTheCertificates) {
    service().callerFrees = false;
    EXPECT_NE(key_->context(), nullptr);
    EXPECT_EQ(service().count("CryptContextAddRef"), 1U);
    key_.reset();
    EXPECT_EQ(service().count("CryptReleaseContext"), 1U);
}

TEST_F(PrivateKeyTest, TakesNoFurtherReferenceWhenItMustFreeTheHandle) {
    EXPECT_NE(key_->context(), nullptr);
    EXPECT_EQ(service().count("CryptContextAddRef"), 0U);
}

TEST_F(PrivateKeyTest, WithoutAReferenceThereIsNoContext) {
    service().callerFrees = false;
    service().failFunction("CryptContextAddRef", 0x80090001);
    EXPECT_EQ(thrownBy<SystemException>([&] { static_cast<void>(key_->context()); }),
              (Thrown{static_cast<int>(0x80090001), "private_key", "createContext", 0}));
    key_.reset();
    EXPECT_EQ(service().count("CryptReleaseContext"), 0U);
}

/// Writes down when it is asked where its key lies.
class Asked : public Certificate {
public:
    explicit Asked(std::vector<std::string>& log) : Certificate(der(gostCertificate)), log_(log) {}
    [[nodiscard]] boost::shared_ptr<IProvider> provider(bool search) const override {
        log_.push_back(search ? "provider, searching" : "provider");
        return Certificate::provider(search);
    }
    [[nodiscard]] boost::optional<std::wstring> container() const override {
        log_.emplace_back("container");
        return Certificate::container();
    }

private:
    std::vector<std::string>& log_;
};

TEST_F(PrivateKeyTest, AsksTheCertificateForItsBindingBeforeTheService) {
    std::vector<std::string> order;
    const auto certificate = boost::make_shared<Asked>(order);
    ASSERT_TRUE(certificate->link(provider(), std::wstring(L"box")));
    service().on.CryptAcquireCertificatePrivateKey = [&](PCCERT_CONTEXT context, DWORD flags, void* reserved,
                                                         unsigned long* handle, DWORD* keySpec, BOOL* callerFrees) {
        order.emplace_back("acquisition");
        return Defaults::CryptAcquireCertificatePrivateKey(context, flags, reserved, handle, keySpec, callerFrees);
    };
    order.clear();
    EXPECT_NE(PrivateKey(certificate).context(), nullptr);
    EXPECT_THAT(order, ElementsAre("provider, searching", "container", "acquisition"));
}

TEST_F(PrivateKeyTest, DescribesTheProviderFromTheContext) {
    const auto provider = key_->provider();
    ASSERT_TRUE(provider);
    EXPECT_EQ(provider->type(), IProvider::gost2012_256);
    EXPECT_EQ(provider->name(), embeddedName);
    EXPECT_EQ(provider->container(), std::wstring(L"box"));
    EXPECT_EQ(acquisitions_, 1U);
    EXPECT_EQ(key_->provider(), provider);
}

TEST_F(PrivateKeyTest, ReadsCyrillicContainerNamesOfGostProviders) {
    installed().containers = {containerNamed(L"Ключ Ивана")};
    const PrivateKey key(certificate_ = certificateIn(L"Ключ Ивана"));
    EXPECT_EQ(key.provider()->container(), std::wstring(L"Ключ Ивана"));
}

TEST_F(PrivateKeyTest, IsUsableWhereTheContextsNamesAreNoText) {
    installed().parameters[capi::PP_NAME] = "\xC3(";
    installed().parameters[capi::PP_CONTAINER] = "\xC3(";
    installed().parameters[capi::PP_PROVTYPE] = std::string("\x4B\0\0\0", 4);
    const auto provider = key_->provider();
    EXPECT_EQ(provider->name(), L"");
    EXPECT_FALSE(provider->container());
    EXPECT_EQ(provider->type(), 75U);
    EXPECT_NE(key_->context(), nullptr);
}

// ---- failed acquisitions

TEST_F(PrivateKeyTest, IsAcquiredASecondTimeAfterAFailure) {
    errors_ = {0x80090016};
    EXPECT_NE(key_->context(), nullptr);
    EXPECT_EQ(acquisitions_, 2U);
}

TEST_F(PrivateKeyTest, AcquisitionCancelledByThePerson) {
    for (const DWORD code : {1223U, 0x8010006EU}) {
        acquisitions_ = 0;
        errors_ = {code, code};
        EXPECT_EQ(thrownBy<ApplicationException>([&] { static_cast<void>(key_->context()); }),
                  (Thrown{20003, "private_key", "createContext", 0}));
        EXPECT_EQ(acquisitions_, 2U);
    }
}

TEST_F(PrivateKeyTest, AcquisitionFromAProviderOfAnotherType) {
    errors_ = {0x80090014, 0x80090014};
    EXPECT_EQ(thrownBy<CryptoException>([&] { static_cast<void>(key_->context()); }),
              (Thrown{30047, "private_key", "createContext", 0}));
}

TEST_F(PrivateKeyTest, AcquisitionFailedForAnotherReason) {
    for (const DWORD code : {0x80090016U, 87U}) {
        acquisitions_ = 0;
        errors_ = {code, code};
        EXPECT_EQ(thrownBy<SystemException>([&] { static_cast<void>(key_->context()); }),
                  (Thrown{static_cast<int>(code), "private_key", "createContext", 0}));
    }
}

TEST_F(PrivateKeyTest, TheFirstAttemptsErrorDecides) {
    errors_ = {1223, 0x80090016};
    EXPECT_EQ(thrownBy<ApplicationException>([&] { static_cast<void>(key_->context()); }).code, 20003);
}

TEST_F(PrivateKeyTest, TheFirstAttemptsErrorDecidesAlsoWhereTheSecondWasCancelled) {
    errors_ = {0x80090016, 1223};
    EXPECT_EQ(thrownBy<SystemException>([&] { static_cast<void>(key_->context()); }).code,
              static_cast<int>(0x80090016));
}

TEST_F(PrivateKeyTest, AFailedAcquisitionIsTriedAgainByTheNextOperation) {
    errors_ = {0x80090016, 0x80090016};
    EXPECT_THROW(static_cast<void>(key_->context()), SystemException);
    EXPECT_NE(key_->context(), nullptr);
}

TEST_F(PrivateKeyTest, KeySpecOfAKeyThatCannotBeHad) {
    for (const DWORD code : {0x80090016U, 1223U, 0x80090014U}) {
        acquisitions_ = 0;
        errors_ = {code, code};
        clearLog();
        EXPECT_EQ(thrownBy<CryptoException>([&] { static_cast<void>(key_->keySpec()); }),
                  (Thrown{30001, "private_key", "keySpec", 0}));
        EXPECT_THAT(logTexts(Severity::error), ElementsAre("wincrypt: keySpec: privateKey acquire failed."));
    }
}

// ---- authentication

TEST_F(PrivateKeyTest, AuthenticatesWithTheRightPin) {
    key_->authenticate("1234");
    EXPECT_TRUE(key_->authenticated());
    EXPECT_EQ(service().count("CryptSetProvParam"), 2U);
}

TEST_F(PrivateKeyTest, RefusedAuthorizationIsThrown) {
    EXPECT_EQ(thrownBy<CryptoException>([&] { key_->authenticate("0000"); }),
              (Thrown{30053, "private_key", "authenticate", 0}));
    EXPECT_FALSE(key_->authenticated());
}

TEST_F(PrivateKeyTest, AWrongPinEndsAnEarlierLogin) {
    key_->authenticate("1234");
    EXPECT_THROW(key_->authenticate("0000"), CryptoException);
    EXPECT_FALSE(key_->authenticated());
}

TEST_F(PrivateKeyTest, AsksTheDialogueWhenNoPinIsGiven) {
    std::vector<std::wstring> containers;
    AuthProvider::setDialog([&](const orvik::plugin::crypto::IAuthHandle& handle, unsigned) {
        containers.push_back(handle.container());
        return std::string("1234");
    });
    key_->authenticate("");
    EXPECT_TRUE(key_->authenticated());
    EXPECT_THAT(containers, ElementsAre(L"box"));
}

TEST_F(PrivateKeyTest, ThreeWrongPinsEndTheDialogue) {
    unsigned asked = 0;
    AuthProvider::setDialog([&](const auto&, unsigned) {
        ++asked;
        return std::string("0000");
    });
    EXPECT_THROW(key_->authenticate(""), CryptoException);
    EXPECT_EQ(asked, 3U);
}

TEST_F(PrivateKeyTest, ResetClosesTheContextAndForgetsTheLogin) {
    key_->authenticate("1234");
    key_->resetAuthentication();
    EXPECT_FALSE(key_->authenticated());
    EXPECT_EQ(service().count("CryptReleaseContext"), 1U);
    key_->authenticate("1234");
    EXPECT_EQ(acquisitions_, 2U);
    EXPECT_TRUE(key_->authenticated());
}

TEST_F(PrivateKeyTest, TakesAPinUnlessTheFirstKeysProviderSaysOtherwise) {
    EXPECT_TRUE(key_->supportsAuthentication());
    install(scripted(signalComName));
    installed().containers = {containerNamed(L"box")};
    const PrivateKey later(certificate_);
    EXPECT_TRUE(later.supportsAuthentication()) << "the first answer stands for the process";
}

TEST_F(PrivateKeyTest, TakesNoPinFromTheStartWithSignalCom) {
    install(scripted(signalComName));
    installed().containers = {containerNamed(L"box")};
    certificate_ = boost::make_shared<Certificate>(der(gostCertificate));
    certificate_->link(Provider(80UL, signalComName), L"box");
    EXPECT_FALSE(PrivateKey(certificate_).supportsAuthentication());
    install(scripted(embeddedName));
    installed().containers = {containerNamed(L"box")};
    EXPECT_FALSE(key_->supportsAuthentication()) << "the first answer stands for the process";
}

TEST_F(PrivateKeyTest, TheAnswerIsNotKeptWhenTheFirstKeyCannotBeHad) {
    errors_ = {0x80090016, 0x80090016};
    EXPECT_THROW(static_cast<void>(key_->supportsAuthentication()), SystemException);
    EXPECT_TRUE(key_->supportsAuthentication());
}

} // namespace
} // namespace wincrypt_keys
