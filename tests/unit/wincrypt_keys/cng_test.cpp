// Providers of the other kind, CNG.
#include "cng_answers.hpp"
#include "keys_fixture.hpp"

#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_auth.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"

namespace wincrypt_keys {
namespace {

using testing::IsEmpty;

class CngTest : public KeysFixture {
protected:
    CngTest() { installed().containers = {containerNamed(L"box")}; }
    ~CngTest() override { forgetAnswers(); }
};

TEST_F(CngTest, ProvidersHaveNoAlgorithmsContainersOrVersion) {
    handlesAreCng = true;
    service().on.CryptReleaseContext = Defaults::CryptReleaseContext;
    EXPECT_THAT(provider().algorithms(), IsEmpty());
    EXPECT_THAT(provider().containers(), IsEmpty());
    EXPECT_FALSE(provider().version());
    EXPECT_TRUE(
        logged(Severity::warning, "wincrypt: get provider version failed, provider: \"" + narrow(embeddedName) + "\""));
    EXPECT_EQ(service().count("CryptGetProvParam"), 0U);
}

TEST_F(CngTest, ProvidersThatDoNotOpenAnswerWithNothing) {
    providersAreCng = true;
    EXPECT_THAT(provider().randomBytes(8), IsEmpty());
    EXPECT_FALSE(provider().version());
    EXPECT_EQ(provider(std::wstring(L"box")).publicKey(), nullptr);
    Provider::deleteContainers(provider(), L"");
    EXPECT_EQ(service().count("CryptAcquireContextW"), 0U);
}

TEST_F(CngTest, ContainersAreNotDeletedByAName) {
    providerObjectsAreCng = true;
    Provider::deleteContainers(provider(), L"");
    EXPECT_THAT(service().trace(), IsEmpty());
    providerObjectsAreCng = false;
    EXPECT_THAT(provider().containers(), testing::ElementsAre(L"box"));
}

TEST_F(CngTest, APublicKeysRecordTellsTheKindOfItsProvider) {
    providerObjectsAreCng = true;
    EXPECT_TRUE(provider(std::wstring(L"box")).publicKey());
    EXPECT_TRUE(logged(Severity::debug, "wincrypt: get provider's publicKey (cng:true): container: \"box\""));
}

TEST_F(CngTest, ACertificateIsReadWithoutOpeningAKey) {
    installed().containers.front().certificate = der(gostCertificate);
    handlesAreCng = true;
    EXPECT_EQ(provider().certificate(std::wstring(L"box")), nullptr) << "no key, no certificate beside it";
    handlesAreCng = false;
    EXPECT_EQ(service().count("CryptGetUserKey"), 0U);
    EXPECT_EQ(service().count("CryptGetKeyParam"), 1U);
}

TEST_F(CngTest, AlgorithmsAreComparedByTheirCngNames) {
    service().oids["1.2.643.7.1.1.2.2"] = {0x8021, L"GR 34.11-2012 256"};
    PROV_ENUMALGS algorithm{};
    algorithm.aiAlgid = 0x1111;
    algorithm.dwNameLen = 17;
    std::string("GR 34.11-2012 256").copy(algorithm.szName, sizeof(algorithm.szName));
    installed().algorithms = {algorithm};
    EXPECT_FALSE(provider().hasAlgorithm("1.2.643.7.1.1.2.2"));
    providersAreCng = true;
    EXPECT_TRUE(provider().hasAlgorithm("1.2.643.7.1.1.2.2"));
    EXPECT_FALSE(provider().hasAlgorithm("1.2.3"));
}

TEST_F(CngTest, KeysLogInWithoutAnyProviderParameterBeingSet) {
    const orvik::plugin::wincrypt::HCRYPTPROV context(provider(std::wstring(L"box")), nullptr);
    orvik::plugin::wincrypt::WincryptAuth auth(context.get());
    service().failFunction("CryptSetProvParam", 5);
    EXPECT_FALSE(auth.login("1234"));
    service().clearCalls();
    handlesAreCng = true;
    EXPECT_TRUE(auth.login("1234"));
    handlesAreCng = false;
    EXPECT_EQ(auth.status(), 0U);
    EXPECT_EQ(auth.states(), 1U);
    EXPECT_EQ(service().count("CryptSetProvParam"), 0U);
}

} // namespace
} // namespace wincrypt_keys
