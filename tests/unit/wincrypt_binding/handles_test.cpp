// The owners of keys, hashes, messages and stores.

#include "binding.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/handles.hpp"

#include "orvik/plugin/base64.hpp"
#include "unit/wincrypt_keys/test_certificates.hpp"

#include <cstdlib>
#include <optional>

namespace wincrypt_binding {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Handles : public DoubleFixture {
protected:
    Handles() {
        auto provider = cryptoProProvider();
        provider.containers = {containerNamed(L"box")};
        service().providers[""] = {provider};
    }
    static std::vector<std::string> releases() {
        std::vector<std::string> texts;
        for (const auto& text : service().trace()) {
            for (const char* function : {"CryptDestroy", "CryptRelease", "CryptMsgClose", "CertCloseStore"}) {
                if (text.starts_with(function)) {
                    texts.push_back(text);
                }
            }
        }
        return texts;
    }
};

TEST_F(Handles, ReleaseNothingWhenEmpty) {
    {
        const wincrypt::HCRYPTKEY key;
        const wincrypt::HCRYPTHASH hash;
        const wincrypt::HCRYPTMSG message;
    }
    EXPECT_THAT(service().calls(), IsEmpty());
}

TEST_F(Handles, ReleaseInTheReverseOrderOfTheirDeclaration) {
    {
        const wincrypt::HCRYPTPROV context(L"box", cryptoProName, orvik::plugin::crypto::IProvider::gost2012_256, 0,
                                           nullptr);
        wincrypt::HCRYPTKEY key;
        wincrypt::HCRYPTHASH hash;
        ASSERT_TRUE(wincrypt::CryptGetUserKey(context.get(), capi::AT_KEYEXCHANGE, key.put()));
        ASSERT_TRUE(wincrypt::CryptCreateHash(context.get(), capi::CALG_SHA1, 0, 0, hash.put()));
    }
    EXPECT_THAT(releases(),
                ElementsAre("CryptDestroyHash(hash1)", "CryptDestroyKey(key1)", "CryptReleaseContext(context1, 0)"));
}

TEST_F(Handles, ReleaseOnceEvenWhenTheServiceSaysThatItFailed) {
    service().failFunction("CryptReleaseContext", capi::NTE_FAIL);
    {
        const wincrypt::HCRYPTPROV context(L"box", cryptoProName, orvik::plugin::crypto::IProvider::gost2012_256, 0,
                                           nullptr);
    }
    EXPECT_EQ(service().count("CryptReleaseContext"), 1U);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(Handles, OfMessagesCloseThem) {
    {
        wincrypt::HCRYPTMSG message;
        *message.put() = wincrypt::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, 0, 0, nullptr, nullptr);
    }
    EXPECT_THAT(releases(), ElementsAre("CryptMsgClose(message1)"));
}

/// The process ends: the loader goes first, for it was made last, and the handle is given back to nobody.
TEST_F(Handles, MayOutliveTheLoader) {
    const auto leave = [] {
        static std::optional<wincrypt::HCRYPTPROV> late;
        late.emplace(L"box", cryptoProName, orvik::plugin::crypto::IProvider::gost2012_256, 0UL, nullptr);
        std::exit(late->get() != 0 ? 3 : 4);
    };
    EXPECT_EXIT(leave(), testing::ExitedWithCode(3), "");
}

class MessageStore : public Handles {
protected:
    MessageStore() {
        *message_.emplace().put() = wincrypt::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, 0, 0, nullptr, nullptr);
        service().clearCalls();
    }
    void TearDown() override {
        message_.reset();
        Handles::TearDown();
    }
    [[nodiscard]] void* message() const { return message_->get(); }

private:
    std::optional<wincrypt::HCRYPTMSG> message_;
};

TEST_F(MessageStore, OpensAndClosesTheCertificatesOfAMessage) {
    service().message.certificates = {orvik::plugin::base64::decode(wincrypt_keys::gostCertificate)};
    {
        const wincrypt::HCERTSTORE store(message());
        const auto* found = wincrypt::CertEnumCertificatesInStore(store.get(), nullptr);
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(wincrypt::CertEnumCertificatesInStore(store.get(), found), nullptr);
    }
    EXPECT_EQ(service().trace().front(), "CertOpenStore(1, 0x10001, 0, 0, message1)");
    EXPECT_EQ(service().trace().back(), "CertCloseStore(store1, 0)");
}

TEST_F(MessageStore, IsOpenAndEmptyForAMessageWithoutCertificates) {
    const wincrypt::HCERTSTORE store(message());
    EXPECT_TRUE(store);
    EXPECT_EQ(wincrypt::CertEnumCertificatesInStore(store.get(), nullptr), nullptr);
}

TEST_F(MessageStore, HoldsNothingWhenItCannotBeOpened) {
    service().failFunction("CertOpenStore", capi::ERROR_NOT_ENOUGH_MEMORY);
    {
        const wincrypt::HCERTSTORE store(message());
        EXPECT_FALSE(store);
    }
    EXPECT_EQ(service().count("CertCloseStore"), 0U);
}

} // namespace
} // namespace wincrypt_binding
