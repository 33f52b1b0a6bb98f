// What the service is asked, call by call: parameters, flags, sizes and the order of releases.
#include "keys_fixture.hpp"

#include "crypto/wincrypt/hash.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"

#include <sstream>

namespace wincrypt_keys {
namespace {

using orvik::plugin::crypto::AuthProvider;
using orvik::plugin::wincrypt::CryptHash;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr const char* streebog = "1.2.643.7.1.1.2.2";

class CallSequence : public KeysFixture {
protected:
    CallSequence() {
        install(scripted(L"P"));
        offerKeyAlgorithm();
        service().oids[streebog] = {0x8021, L""};
        auto box = containerNamed(L"box");
        box.certificate = der(gostCertificate);
        box.pin = "1234";
        installed().containers = {box};
        AuthProvider::setDialog([](const auto&, unsigned) { return std::string("1234"); });
    }
    ~CallSequence() override { AuthProvider::setDialog({}); }

    static Provider plain() { return {80UL, L"P"}; }
    static Provider box() { return {80UL, L"P", std::wstring(L"box")}; }

    /// The calls since the last time.
    static std::vector<std::string> calls() {
        auto trace = service().trace();
        service().clearCalls();
        return trace;
    }

    static boost::shared_ptr<Certificate> linked() {
        auto certificate = boost::make_shared<Certificate>(der(gostCertificate));
        EXPECT_TRUE(certificate->link(plain(), L"box"));
        static_cast<void>(certificate->provider(true)); // what it finds is remembered
        service().clearCalls();
        return certificate;
    }
};

const std::vector<std::string> containerList = {
    R"(CryptAcquireContextW(&, null, "P", 80, 0xF0000040))",
    "CryptGetProvParam(context1, 2, null, &0, 9)",
    "CryptGetProvParam(context1, 2, pointer, &4, 9)",
    "CryptGetProvParam(context1, 2, pointer, &4, 10)",
    "CryptReleaseContext(context1, 0)",
};

std::vector<std::string> operator+(std::vector<std::string> first, const std::vector<std::string>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

TEST_F(CallSequence, OfAlgorithms) {
    EXPECT_EQ(plain().algorithms().size(), 1U);
    EXPECT_THAT(calls(),
                ElementsAre(R"(CryptAcquireContextW(&, null, "P", 80, 0xF0000040))",
                            "CryptGetProvParam(context1, 1, pointer, &32, 1)",
                            "CryptGetProvParam(context1, 1, pointer, &32, 2)", "CryptReleaseContext(context1, 0)"));
}

TEST_F(CallSequence, OfRandomOctets) {
    EXPECT_EQ(plain().randomBytes(16).size(), 16U);
    EXPECT_THAT(calls(), ElementsAre(R"(CryptAcquireContextW(&, null, "P", 80, 0xF0000040))",
                                     "CryptGenRandom(context1, 16, pointer)", "CryptReleaseContext(context1, 0)"));
}

TEST_F(CallSequence, OfTheVersion) {
    EXPECT_TRUE(plain().version());
    EXPECT_THAT(calls(),
                ElementsAre(R"(CryptAcquireContextW(&, null, "P", 80, 0xF0000040))",
                            "CryptGetProvParam(context1, 5, pointer, &4, 0)", "CryptReleaseContext(context1, 0)"));
}

TEST_F(CallSequence, OfAnOperationOnAContainerOpensIt) {
    EXPECT_EQ(box().randomBytes(1).size(), 1U);
    EXPECT_EQ(calls().front(), R"(CryptAcquireContextW(&, "box", "P", 80, 0))");
}

TEST_F(CallSequence, OfContainers) {
    EXPECT_EQ(plain().containers().size(), 1U);
    EXPECT_THAT(calls(), ElementsAreArray(containerList));
}

TEST_F(CallSequence, OfAContainersPublicKey) {
    EXPECT_TRUE(box().publicKey());
    EXPECT_THAT(calls(), ElementsAre(R"(CryptAcquireContextW(&, "box", "P", 80, 64))",
                                     "CryptExportPublicKeyInfo(context1, 1, 0x10001, null, &0)",
                                     "CryptExportPublicKeyInfo(context1, 1, 0x10001, pointer, &76)",
                                     "CryptReleaseContext(context1, 0)"));
}

TEST_F(CallSequence, OfTheContainerOfAKey) {
    const Certificate certificate(der(gostCertificate));
    const auto key = certificate.publicKey();
    installed().containers.front().publicKey = {key->algObjId(), key->algParams(), key->key()};
    service().clearCalls();
    EXPECT_TRUE(plain().container(*key));
    const auto size = "&" + std::to_string(sizeof(CERT_PUBLIC_KEY_INFO) + key->algObjId().size() + 1 +
                                           key->algParams().size() + key->key().size());
    EXPECT_THAT(calls(), ElementsAreArray(containerList +
                                          std::vector<std::string>{
                                              R"(CryptAcquireContextW(&, "box", "P", 80, 64))",
                                              "CryptExportPublicKeyInfo(context2, 1, 0x10001, null, &0)",
                                              "CryptExportPublicKeyInfo(context2, 1, 0x10001, pointer, " + size + ")",
                                              "CryptReleaseContext(context2, 0)",
                                              "CertComparePublicKeyInfo(0x10001, pointer, pointer)"}));
}

/// How a certificate is read from its container, as the n-th context, after which the reader still holds it.
std::vector<std::string> certificateReading(const std::string& context, const std::string& probe,
                                            const std::string& key, const std::string& certificate) {
    const auto parameter = [&](const std::string& number, const std::string& size) {
        return std::vector<std::string>{"CryptGetProvParam(" + context + ", " + number + ", null, &0, 0)",
                                        "CryptGetProvParam(" + context + ", " + number + ", pointer, &" + size +
                                            ", 0)"};
    };
    const std::string acquisition = R"(CryptAcquireContextW(&, "box", ")" + narrow(embeddedName) + R"(", 80, 0))";
    const std::string nameSize = std::to_string(narrow(embeddedName).size() + 1);
    return std::vector<std::string>{acquisition,
                                    "CryptGetUserKey(" + context + ", 1, &)",
                                    "CryptDestroyKey(" + probe + ")",
                                    "CryptGetUserKey(" + context + ", 1, &)",
                                    "CryptGetKeyParam(" + key + ", 26, null, &0, 0)",
                                    "CryptGetKeyParam(" + key + ", 26, pointer, &287, 0)",
                                    "CryptDestroyKey(" + key + ")",
                                    "CertCreateCertificateContext(0x10001, pointer, 287)",
                                    "CertGetCertificateContextProperty(" + certificate + ", 2, null, &0)"} +
           parameter("16", "4") + parameter("4", nameSize) +
           // The container has no unique name; its name's encoding goes by the type.
           std::vector<std::string>{"CryptGetProvParam(" + context + ", 36, null, &0, 0)"} + parameter("6", "4") +
           parameter("16", "4") +
           std::vector<std::string>{"CertSetCertificateContextProperty(" + certificate + ", 2, 0, pointer)",
                                    "CertNameToStrW(0x10001, pointer, 0x50000002, null, 0)",
                                    "CertNameToStrW(0x10001, pointer, 0x50000002, pointer, 20)",
                                    "CryptReleaseContext(" + context + ", 0)"};
}

TEST_F(CallSequence, OfAContainersCertificate) {
    const auto containers = installed().containers;
    install(scripted(embeddedName));
    installed().containers = containers;
    EXPECT_TRUE(provider().certificate(std::wstring(L"box")));
    EXPECT_THAT(calls(), ElementsAreArray(certificateReading("context1", "key1", "key2", "certificate1") +
                                          std::vector<std::string>{"CertFreeCertificateContext(certificate1)"}));

    const auto like = boost::make_shared<Certificate>(der(gostCertificate));
    service().clearCalls();
    EXPECT_TRUE(provider().certificate(like));
    const std::string listing = R"(CryptAcquireContextW(&, null, ")" + narrow(embeddedName) + R"(", 80, 0xF0000040))";
    EXPECT_THAT(calls(),
                ElementsAreArray(std::vector<std::string>{listing, "CryptGetProvParam(context2, 2, null, &0, 9)",
                                                          "CryptGetProvParam(context2, 2, pointer, &4, 9)",
                                                          "CryptGetProvParam(context2, 2, pointer, &4, 10)",
                                                          "CryptReleaseContext(context2, 0)"} +
                                 certificateReading("context3", "key3", "key4", "certificate3") +
                                 std::vector<std::string>{"CertFreeCertificateContext(certificate3)"}));
}

TEST_F(CallSequence, OfTheCertificatesInContainers) {
    const auto box = installed().containers.front();
    install(scripted(embeddedName));
    installed().containers = {box, box};
    EXPECT_EQ(provider().certificates().size(), 2U);
    EXPECT_THAT(calls(),
                ElementsAreArray(
                    std::vector<std::string>{
                        R"(CryptAcquireContextW(&, null, ")" + narrow(embeddedName) + R"(", 80, 0xF0000040))",
                        "CryptGetProvParam(context1, 2, null, &0, 9)", "CryptGetProvParam(context1, 2, pointer, &4, 9)",
                        "CryptGetProvParam(context1, 2, pointer, &4, 10)",
                        "CryptGetProvParam(context1, 2, pointer, &4, 10)", "CryptReleaseContext(context1, 0)"} +
                    // A container is closed before the next is opened; the certificates stay until the list goes.
                    certificateReading("context2", "key1", "key2", "certificate1") +
                    certificateReading("context3", "key3", "key4", "certificate2") +
                    std::vector<std::string>{"CertFreeCertificateContext(certificate1)",
                                             "CertFreeCertificateContext(certificate2)"}));
}

TEST_F(CallSequence, OfDeletions) {
    plain().deleteContainer(L"box", "");
    EXPECT_THAT(calls(), ElementsAre(R"(CryptAcquireContextW(&, "box", "P", 80, 16))"));
    installed().containers = {containerNamed(L"box")};
    Provider::deleteContainers(plain(), L"");
    EXPECT_THAT(calls(), ElementsAreArray(containerList +
                                          std::vector<std::string>{R"(CryptAcquireContextW(&, "box", "P", 80, 16))"}));
}

TEST_F(CallSequence, OfAPrivateKeysContext) {
    auto certificate = linked();
    const auto key = certificate->privateKey();
    EXPECT_THAT(calls(), ElementsAre("CertDuplicateCertificateContext(certificate1)"));
    EXPECT_NE(key->context(), nullptr);
    const auto trace = calls();
    const auto acquisition = std::find(trace.begin(), trace.end(),
                                       "CryptAcquireCertificatePrivateKey(certificate1, 0x20000, null, &, &, pointer)");
    ASSERT_NE(acquisition, trace.end());
    // The container's name (its encoding goes by the type), then the provider's name and type.
    const std::vector<std::string> type = {"CryptGetProvParam(context1, 16, null, &0, 0)",
                                           "CryptGetProvParam(context1, 16, pointer, &4, 0)"};
    EXPECT_THAT(std::vector<std::string>(acquisition + 1, trace.end()),
                ElementsAreArray(std::vector<std::string>{"CryptGetProvParam(context1, 6, null, &0, 0)",
                                                          "CryptGetProvParam(context1, 6, pointer, &4, 0)"} +
                                 type +
                                 std::vector<std::string>{"CryptGetProvParam(context1, 4, null, &0, 0)",
                                                          "CryptGetProvParam(context1, 4, pointer, &2, 0)"} +
                                 type));
    key->authenticate("1234");
    service().clearCalls();
    key->resetAuthentication();
    EXPECT_THAT(calls(), ElementsAre("CryptReleaseContext(context1, 0)"));
}

TEST_F(CallSequence, OfAPrivateKeysContextThatIsTheCertificates) {
    service().callerFrees = false;
    const auto certificate = linked();
    const auto key = certificate->privateKey();
    EXPECT_NE(key->context(), nullptr);
    const auto trace = calls();
    ASSERT_GE(trace.size(), 2U);
    EXPECT_EQ(trace[trace.size() - 2], "CryptGetProvParam(context1, 16, pointer, &4, 0)") << "it is described first";
    EXPECT_EQ(trace.back(), "CryptContextAddRef(context1, null, 0)");
}

TEST_F(CallSequence, OfACertificatesHash) {
    auto certificate = linked();
    certificate->privateKey()->authenticate("1234");
    service().clearCalls();
    {
        CryptHash hash(certificate, streebog);
        EXPECT_THAT(calls(), ElementsAre("CryptContextAddRef(context1, null, 0)",
                                         R"(CryptFindOIDInfo(1, "1.2.643.7.1.1.2.2", 0))",
                                         "CryptCreateHash(context1, 32801, 0, 0, &)"));
        std::istringstream stream("abc");
        hash.create(stream);
        EXPECT_THAT(calls(),
                    ElementsAre("CryptHashData(hash1, pointer, 3, 0)", "CryptGetHashParam(hash1, 2, null, &0, 0)",
                                "CryptGetHashParam(hash1, 2, pointer, &32, 0)"));
        const auto signature = hash.sign();
        EXPECT_THAT(calls(), ElementsAre("CryptSignHashW(hash1, 1, null, 0, null, &0)",
                                         "CryptSignHashW(hash1, 1, null, 0, pointer, &32)"));
        static_cast<void>(hash.verify(signature));
        EXPECT_THAT(calls(),
                    ElementsAre("CryptImportPublicKeyInfo(context1, 0x10001, pointer, &)",
                                "CryptVerifySignatureW(hash1, pointer, 32, key1, null, 0)", "CryptDestroyKey(key1)"));
    }
    EXPECT_THAT(calls(), ElementsAre("CryptDestroyHash(hash1)", "CryptReleaseContext(context1, 0)"));
}

TEST_F(CallSequence, OfAProvidersHash) {
    { const CryptHash hash(plain(), streebog); }
    EXPECT_THAT(calls(), ElementsAre(R"(CryptAcquireContextW(&, null, "P", 80, 0xF0000040))",
                                     R"(CryptFindOIDInfo(1, "1.2.643.7.1.1.2.2", 0))",
                                     "CryptCreateHash(context1, 32801, 0, 0, &)", "CryptDestroyHash(hash1)",
                                     "CryptReleaseContext(context1, 0)"));
}

TEST_F(CallSequence, OfTheLoginBeforeASignature) {
    auto certificate = linked();
    CryptHash hash(certificate, streebog);
    service().clearCalls();
    hash.sign();
    const auto trace = calls();
    ASSERT_GE(trace.size(), 4U);
    EXPECT_THAT(
        std::vector<std::string>(trace.end() - 4, trace.end()),
        ElementsAre("CryptSetProvParam(context1, 32, pointer, 0)", "CryptSetProvParam(context1, 32, pointer, 1)",
                    "CryptSignHashW(hash1, 1, null, 0, null, &0)", "CryptSignHashW(hash1, 1, null, 0, pointer, &32)"));
}

} // namespace
} // namespace wincrypt_keys
