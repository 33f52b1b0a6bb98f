// Installed providers, their containers and the public keys in them.
#include "keys_fixture.hpp"

#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/public_key.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "orvik/plugin/hex.hpp"
#include "orvik/plugin/session.hpp"

namespace wincrypt_keys {
namespace {

using orvik::plugin::Session;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::exception::SystemException;
using orvik::plugin::exception::ApplicationException;
using testing::ElementsAre;
using testing::IsEmpty;

std::string quotedProvider() {
    return "\"" + narrow(embeddedName) + "\"";
}

class DiscoveryTest : public KeysFixture {};

// ---- order of providers

/// A provider of another back-end, with a device perhaps.
class Other : public Provider {
public:
    Other(unsigned long type, const std::wstring& name, const boost::optional<std::wstring>& container,
          const char* device)
        : Provider(type, name, container), device_(device) {}
    [[nodiscard]] boost::optional<orvik::plugin::crypto::Device> device() const override {
        return *device_ == '\0' ? boost::none : boost::make_optional(orvik::plugin::crypto::Device{device_});
    }

private:
    const char* device_;
};

TEST_F(DiscoveryTest, OrdersByDeviceTypeNameAndContainer) {
    const Other inOrder[] = {
        {75, L"b", boost::none, ""},       {80, L"a", boost::none, ""},        {80, L"b", boost::none, ""},
        {80, L"b", std::wstring(L""), ""}, {80, L"b", std::wstring(L"1"), ""}, {80, L"b", std::wstring(L"2"), ""},
        {81, L"a", boost::none, ""},       {1, L"a", boost::none, "device 1"}, {0, L"a", std::wstring(), "device 2"}};
    for (std::size_t i = 0; i < std::size(inOrder); ++i) {
        for (std::size_t j = 0; j < std::size(inOrder); ++j) {
            EXPECT_EQ(inOrder[i] < inOrder[j], i < j) << i << ", " << j;
        }
    }
}

TEST_F(DiscoveryTest, ProvidersOnOneDeviceAreEqual) {
    const Other a(1, L"a", boost::none, "device");
    const Other b(2, L"b", boost::none, "device");
    EXPECT_FALSE(a < b);
    EXPECT_FALSE(b < a);
}

// ---- the installed providers

std::vector<std::wstring> names(const IProvider::Set& providers) {
    std::vector<std::wstring> result;
    for (const auto& provider : providers) {
        result.push_back(provider->name());
    }
    return result;
}

TEST_F(DiscoveryTest, ListsTheInstalledProvidersByTypeUnderTheirCanonicalNames) {
    service().providers[""] = {scripted(L"Crypto-Pro GOST R 34.10-2012 KC1 Strong CSP", 81), scripted(embeddedName, 80),
                               scripted(unknownName, 24)};
    const auto providers = provider().providers(Session::instance());
    EXPECT_THAT(names(providers), ElementsAre(unknownName, embeddedName,
                                              L"Crypto-Pro GOST R 34.10-2012 Strong Cryptographic Service Provider"));
    for (const auto& found : providers) {
        EXPECT_FALSE(found->container());
    }
}

TEST_F(DiscoveryTest, EnumeratesOncePerProcess) {
    EXPECT_THAT(names(provider().providers(Session::instance())), ElementsAre(embeddedName));
    service().providers[""].push_back(scripted(unknownName, 24));
    service().clearCalls();
    EXPECT_THAT(names(provider().providers(Session::instance())), ElementsAre(embeddedName));
    EXPECT_TRUE(Provider::provider(embeddedName));
    EXPECT_FALSE(Provider::provider(unknownName));
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(DiscoveryTest, FindsAProviderByAPartOfItsNameInAnyCase) {
    service().providers[""] = {scripted(embeddedName, 80), scripted(rsaName, 24)};
    EXPECT_EQ(Provider::provider(L"gost r 34.10-2012")->name(), embeddedName);
    EXPECT_EQ(Provider::provider(L"KLUNORTREDI")->type(), IProvider::rsaAes) << "the first in the set's order";
    EXPECT_EQ(Provider::provider(L"nobody's"), nullptr);
}

TEST_F(DiscoveryTest, AnEmptyNameFindsNothingWithoutEnumerating) {
    EXPECT_EQ(Provider::provider(L""), nullptr);
    EXPECT_THAT(service().trace(), IsEmpty());
}

// ---- containers

TEST_F(DiscoveryTest, ListsContainersInTheServicesOrder) {
    installed().containers = {containerNamed(L"zeta"), containerNamed(L"alpha"), containerNamed(L"ключ")};
    EXPECT_THAT(provider().containers(), ElementsAre(L"zeta", L"alpha", L"ключ"));
}

TEST_F(DiscoveryTest, AsksTheSizeThenTheFirstThenTheNextFullyQualifiedNames) {
    struct Asked {
        bool buffer;
        DWORD size;
        DWORD flags;
        bool operator==(const Asked&) const = default;
    };
    std::vector<Asked> asked;
    service().on.CryptGetProvParam = [&](unsigned long, DWORD parameter, BYTE* data, DWORD* size, DWORD flags) -> BOOL {
        EXPECT_EQ(parameter, 2U);
        asked.push_back({data != nullptr, *size, flags});
        if (asked.size() == 4) {
            return service_double::fail(259);
        }
        if (data != nullptr) {
            std::string("name").copy(reinterpret_cast<char*>(data), 5);
        }
        *size = data == nullptr ? 100 : 5;
        return 1;
    };
    EXPECT_THAT(provider().containers(), ElementsAre(L"name", L"name"));
    EXPECT_THAT(asked,
                ElementsAre(Asked{false, 0, 9}, Asked{true, 100, 9}, Asked{true, 100, 10}, Asked{true, 100, 10}));
}

TEST_F(DiscoveryTest, AProviderWithoutContainersHasNoneAndNothingInThem) {
    EXPECT_THAT(provider().containers(), IsEmpty());
    EXPECT_THAT(provider().certificates(), IsEmpty());
    const Certificate certificate(der(gostCertificate));
    EXPECT_FALSE(provider().container(*certificate.publicKey()));
    EXPECT_THAT(logTexts(Severity::warning), IsEmpty());
}

TEST_F(DiscoveryTest, AnEnumerationThatThrowsIsLoggedAndKeepsWhatItFound) {
    installed().containers = {containerNamed(L"good"), containerNamed(L"bad")};
    int calls = 0;
    service().on.CryptGetProvParam = [&](unsigned long context, DWORD parameter, BYTE* data, DWORD* size, DWORD flags) {
        const BOOL result = Defaults::CryptGetProvParam(context, parameter, data, size, flags);
        if (++calls == 3) {
            *data = 0xFF; // no UTF-8
        }
        return result;
    };
    EXPECT_THAT(provider().containers(), ElementsAre(L"good"));
    std::string reason;
    try {
        orvik::plugin::converter::utf8_to_utf16("\xFF");
    } catch (const std::exception& e) {
        reason = e.what();
    }
    ASSERT_FALSE(reason.empty());
    EXPECT_THAT(logTexts(Severity::warning),
                ElementsAre("wincrypt: get provider containers failed, provider: " + quotedProvider() + ", " + reason));
}

TEST_F(DiscoveryTest, FiltersContainersByTheLastPathComponent) {
    for (const wchar_t* name : {L"/var/keys/ivan", L"/var/ivan/keys", L"ivan", L"ivanov", L"/keys/пётр"}) {
        installed().containers.push_back(containerNamed(name));
    }
    EXPECT_THAT(Provider::containers(provider(), L"ivan"), ElementsAre(L"/var/keys/ivan", L"ivan"));
    EXPECT_THAT(Provider::containers(provider(), L"пётр"), ElementsAre(L"/keys/пётр"));
    EXPECT_THAT(Provider::containers(provider(), L""), testing::SizeIs(5));
    EXPECT_THAT(Provider::containers(provider(), L"nobody"), IsEmpty());
}

// ---- the public key of a container

class ContainerKey : public DiscoveryTest {
protected:
    ContainerKey() { installed().containers = {containerNamed(L"box")}; }

    Provider box_ = provider(std::wstring(L"box"));
};

TEST_F(ContainerKey, IsReadFromTheExchangeSlotSilently) {
    const auto key = box_.publicKey();
    ASSERT_TRUE(key);
    EXPECT_EQ(key->key(), "public key");
    EXPECT_EQ(key->algObjId(), "1.2.643.7.1.1.1.1");
    EXPECT_EQ(service().count("CryptAcquireContextW"), 1U);
    EXPECT_TRUE(logged(Severity::debug, "wincrypt: get provider's publicKey (cng:false): container: \"box\""));
}

TEST_F(ContainerKey, ThatNeedsADialogueIsAskedSilentlyFirst) {
    // A provider outside CryptoPro's family: no second name is tried for its containers.
    install(scripted(vipNetName, 77));
    installed().containers = {containerNamed(L"box")};
    installed().containers.front().needsDialogue = true;
    std::vector<DWORD> flags;
    service().on.CryptAcquireContextW = [&](unsigned long* handle, const wchar_t* container, const wchar_t* name,
                                            DWORD type, DWORD asked) {
        EXPECT_STREQ(container, L"box");
        EXPECT_STREQ(name, vipNetName);
        EXPECT_EQ(type, 77U);
        flags.push_back(asked);
        return Defaults::CryptAcquireContextW(handle, container, name, type, asked);
    };
    ASSERT_TRUE(Provider(77UL, vipNetName, std::wstring(L"box")).publicKey());
    EXPECT_THAT(flags, ElementsAre(0x40U, 0U));
}

TEST_F(ContainerKey, IsNullWhenTheContainerDoesNotOpen) {
    service().failFunction("CryptAcquireContextW", 0x80090016);
    service().messages[0x80090016] = "no such key set";
    EXPECT_EQ(Provider::publicKey(box_), nullptr);
    EXPECT_TRUE(logged(Severity::warning, "wincrypt: get public key for provider failed, provider: " +
                                              quotedProvider() + " error: no such key set"));
}

/// A container of a provider outside CryptoPro's family, whose acquisitions fail: silently, then with the given code.
class ContainerThatStaysClosed : public ContainerKey {
protected:
    ContainerThatStaysClosed() {
        service().on.CryptAcquireContextW = [this](unsigned long*, const wchar_t*, const wchar_t*, DWORD, DWORD asked) {
            flags_.push_back(asked);
            return service_double::fail(asked == 0x40 ? 0x80090022 : code_);
        };
    }

    Provider closed_{77UL, vipNetName, std::wstring(L"box")};
    DWORD code_ = 0x80090016;
    std::vector<DWORD> flags_;
};

TEST_F(ContainerThatStaysClosed, IsAskedTwiceAndItsKeyIsNull) {
    service().messages[0x80090016] = "no such key set";
    EXPECT_EQ(Provider::publicKey(closed_), nullptr);
    EXPECT_THAT(flags_, ElementsAre(0x40U, 0U));
    EXPECT_TRUE(logged(Severity::warning, "wincrypt: get public key for provider failed, provider: \"" +
                                              narrow(vipNetName) + "\" error: no such key set"));
}

TEST_F(ContainerThatStaysClosed, BecauseThePersonCancelledTheDialogueIsToldApart) {
    for (const DWORD code : {1223U, 0x8010006EU}) {
        code_ = code;
        EXPECT_EQ(thrownBy<ApplicationException>([&] { Provider::publicKey(closed_); }),
                  (Thrown{20003, "provider", "publicKey", 0}));
        clearLog();
        EXPECT_EQ(closed_.publicKey(), nullptr);
        EXPECT_TRUE(logged(Severity::warning, "wincrypt: get provider's public key failed - user cancelled: \"box\""));
    }
}

TEST_F(ContainerKey, IsNullWhenTheServiceExportsNothing) {
    service().on.CryptExportPublicKeyInfo = [](unsigned long, DWORD, DWORD, CERT_PUBLIC_KEY_INFO*, DWORD* size) {
        *size = 0;
        return 1;
    };
    EXPECT_EQ(Provider::publicKey(box_), nullptr);
    EXPECT_TRUE(logged(Severity::warning, "wincrypt: publicKeyInfo is empty"));
}

TEST_F(ContainerKey, IsNullWhenTheServiceExportsLessThanAKey) {
    service().on.CryptExportPublicKeyInfo = [](unsigned long, DWORD, DWORD, CERT_PUBLIC_KEY_INFO*, DWORD* size) {
        *size = sizeof(CERT_PUBLIC_KEY_INFO) - 1;
        return 1;
    };
    EXPECT_EQ(Provider::publicKey(box_), nullptr);
}

TEST_F(ContainerKey, IsNullWhenTheExportFails) {
    service().failFunction("CryptExportPublicKeyInfo", 0x8009000D);
    EXPECT_EQ(Provider::publicKey(box_), nullptr);
    EXPECT_THAT(logTexts(Severity::debug), IsEmpty()) << "no key was got";
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre("wincrypt: get public key for provider failed, provider: " +
                                                         quotedProvider() + " error: CryptoError: 2148073485"));
}

TEST_F(ContainerKey, IsNullWhenTheContainerHoldsOnlyASignatureKey) {
    installed().containers.front().keySpecs = {2};
    service().messages[0x8009000D] = "no such key";
    EXPECT_EQ(box_.publicKey(), nullptr);
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre("wincrypt: get public key for provider failed, provider: " +
                                                         quotedProvider() + " error: no such key"));
}

TEST_F(ContainerKey, CancellationIsThrownByTheStaticAndLoggedByTheMember) {
    for (const DWORD code : {1223U, 0x8010006EU, 87U}) {
        service().failFunction("CryptExportPublicKeyInfo", code);
        EXPECT_EQ(thrownBy<ApplicationException>([&] { Provider::publicKey(box_); }),
                  (Thrown{20003, "provider", "publicKey", 0}));
        clearLog();
        EXPECT_EQ(box_.publicKey(), nullptr);
        EXPECT_THAT(logTexts(Severity::warning),
                    ElementsAre("wincrypt: get provider's public key failed - user cancelled: \"box\""));
    }
}

TEST_F(ContainerKey, OtherExceptionsLeaveTheStaticAndAreLoggedByTheMember) {
    const Provider nameless(80UL, L"", std::wstring(L"box"));
    EXPECT_EQ(thrownBy<CryptoException>([&] { Provider::publicKey(nameless); }),
              (Thrown{30030, "scoped_handle", "operator()", 65}));
    EXPECT_THAT(logTexts(Severity::warning), IsEmpty());
    EXPECT_EQ(nameless.publicKey(), nullptr);
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre("wincrypt: get provider's public key failed, provider: \"\""));
}

// ---- the container of a public key

TEST_F(DiscoveryTest, FindsTheContainerOfAKey) {
    const Certificate certificate(der(gostCertificate));
    const auto wanted = certificate.publicKey();
    auto first = containerNamed(L"/keys/first");
    auto locked = containerNamed(L"/keys/locked");
    locked.keySpecs = {};
    auto second = containerNamed(L"/keys/второй");
    second.publicKey = {wanted->algObjId(), wanted->algParams(), wanted->key()};
    installed().containers = {first, locked, second, second};
    EXPECT_EQ(provider().container(*wanted), std::wstring(L"/keys/второй"));
    const auto got = [](const std::string& name) {
        return "wincrypt: get provider's publicKey (cng:false): container: \"" + name + "\"";
    };
    EXPECT_THAT(logTexts(Severity::debug),
                ElementsAre("wincrypt: try provider, name: " + narrow(embeddedName),
                            "wincrypt: try container: /keys/first", got("/keys/first"),
                            "wincrypt: try container public key: 7075626c6963206b6579", // "public key"
                            "wincrypt: try container: /keys/locked", "wincrypt: try container: /keys/второй",
                            got("/keys/второй"),
                            "wincrypt: try container public key: " + orvik::plugin::hex::encode(wanted->key()),
                            "wincrypt: found certificate container: /keys/второй"));
    EXPECT_EQ(service().count("CertComparePublicKeyInfo"), 2U);
}

TEST_F(DiscoveryTest, AKeyThatNoContainerHoldsIsNotFound) {
    installed().containers = {containerNamed(L"first")};
    EXPECT_FALSE(provider().container(*Certificate(der(gostCertificate)).publicKey()));
}

TEST_F(DiscoveryTest, AnEmptyKeyIsNotLookedFor) {
    installed().containers = {containerNamed(L"first")};
    EXPECT_FALSE(provider().container(orvik::plugin::wincrypt::PublicKey(nullptr)));
    EXPECT_THAT(service().trace(), IsEmpty());
}

// ---- deletion

TEST_F(DiscoveryTest, DeletesAContainerByAcquiringItForDeletion) {
    installed().containers = {containerNamed(L"box"), containerNamed(L"other")};
    provider().deleteContainer(L"box", "no longer needed");
    EXPECT_THAT(provider().containers(), ElementsAre(L"other"));
    EXPECT_THAT(logTexts(Severity::warning), IsEmpty());
}

TEST_F(DiscoveryTest, FailedDeletionIsLoggedAndThrown) {
    service().failFunction("CryptAcquireContextW", 0x80090016);
    EXPECT_EQ(thrownBy<SystemException>([&] { provider().deleteContainer(L"box", "тест"); }),
              (Thrown{static_cast<int>(0x80090016), "provider", "deleteContainer", 0}));
    EXPECT_TRUE(logged(Severity::warning, "wincrypt: delete container failed, provider: " + quotedProvider() +
                                              ", container: \"box\", reason: тест, error: 2148073494"));
}

TEST_F(DiscoveryTest, CancelledDeletionIsToldApart) {
    for (const DWORD code : {1223U, 0x8010006EU}) {
        service().failFunction("CryptAcquireContextW", code);
        EXPECT_EQ(thrownBy<ApplicationException>([&] { provider().deleteContainer(L"box", ""); }),
                  (Thrown{20003, "provider", "deleteContainer", 0}));
    }
    service().failFunction("CryptAcquireContextW", 87);
    EXPECT_EQ(thrownBy<SystemException>([&] { provider().deleteContainer(L"box", ""); }),
              (Thrown{87, "provider", "deleteContainer", 0}))
        << "a bad name is no cancellation";
}

TEST_F(DiscoveryTest, DeletesTheContainersThatTheFilterSelectsAndGoesOnAfterAFailure) {
    for (const wchar_t* name : {L"/a/ivan", L"/b/ivan", L"/c/ivan", L"/c/pyotr"}) {
        installed().containers.push_back(containerNamed(name));
    }
    service().on.CryptAcquireContextW = [](unsigned long* handle, const wchar_t* container, const wchar_t* name,
                                           DWORD type, DWORD flags) -> BOOL {
        if (container != nullptr && container == std::wstring(L"/b/ivan")) {
            EXPECT_EQ(flags, 0x10U);
            return service_double::fail(5);
        }
        return Defaults::CryptAcquireContextW(handle, container, name, type, flags);
    };
    Provider::deleteContainers(provider(), L"ivan");
    EXPECT_THAT(provider().containers(), ElementsAre(L"/b/ivan", L"/c/pyotr"));
    EXPECT_THAT(logTexts(Severity::warning),
                ElementsAre("wincrypt: delete container failed, provider: " + quotedProvider()));
}

} // namespace
} // namespace wincrypt_keys
