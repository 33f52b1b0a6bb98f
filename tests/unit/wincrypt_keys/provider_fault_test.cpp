// A provider's own answers, the installed providers and public keys, with each call of the service failing in turn.
#include "fault_fixture.hpp"

#include "crypto/wincrypt/public_key.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/tools.hpp"
#include "orvik/plugin/session.hpp"

namespace wincrypt_keys {
namespace {

using orvik::plugin::Session;

class ProviderFault : public FaultWalkTest {};

const std::string keyAlgorithm = "1.2.643.7.1.1.1.1";

TEST_F(ProviderFault, Algorithms) {
    const std::set<std::string> none;
    const std::set<std::string> all{keyAlgorithm};
    // Acquisition, the first algorithm, the end, release.
    expectAnswers(
        "Provider::algorithms", [] { return provider().algorithms(); }, {none, none, all, all}, all);
}

TEST_F(ProviderFault, HasAlgorithm) {
    // What a provider was found to have is kept by its name, so that each run asks another provider.
    std::wstring name = unknownName;
    expectAnswers(
        "Provider::hasAlgorithm", [&] { return Provider(80UL, name).hasAlgorithm(keyAlgorithm); },
        {false, false, true, true}, true,
        [&] {
            name += L'.';
            install(scripted(name.c_str()));
            offerKeyAlgorithm();
        });
}

TEST_F(ProviderFault, AlgorithmsThatCouldNotBeReadAreAskedForAgain) {
    service().failCall(1, faultCode);
    EXPECT_FALSE(provider().hasAlgorithm(keyAlgorithm));
    EXPECT_TRUE(provider().hasAlgorithm(keyAlgorithm));
}

TEST_F(ProviderFault, RandomBytes) {
    expectAnswers(
        "Provider::randomBytes", [] { return provider().randomBytes(32).size(); }, {0U, 0U, 32U}, 32U);
}

TEST_F(ProviderFault, Version) {
    const boost::optional<std::wstring> five(L"5.0");
    expectAnswers(
        "Provider::version", [] { return provider().version(); }, {boost::none, boost::none, five}, five);
}

TEST_F(ProviderFault, SubjectSignTool) {
    // The record's text stands unless the version is known to be below 5.
    const auto read =
        boost::make_optional<std::string>(orvik::plugin::crypto::constant::subject_sign_tool_crypto_pro_4_0);
    const auto unread =
        boost::make_optional(orvik::plugin::crypto::tools::providerInfo(narrow(cryptoProName))->subjectSignTool);
    ASSERT_NE(read, unread);
    expectAnswers(
        "Provider::subjectSignTool", [] { return Provider(80UL, cryptoProName).subjectSignTool(); },
        {unread, unread, read}, read,
        [] {
            install(scripted(cryptoProName));
            installed().version = 0x0400;
        });
}

TEST_F(ProviderFault, ProviderOfACertificate) {
    const std::string notFound = "CryptoException 30004 at provider, Provider";
    std::wstring name;
    EXPECT_GT(walkFaults({"Provider(certificate)", arrange,
                          [&] {
                              name.clear();
                              name = Provider(*linkedCertificate()).name();
                          },
                          [&](const FaultOutcome& outcome) {
                              if (outcome.function == "CertCreateCertificateContext") {
                                  EXPECT_EQ(ending(outcome), system(faultCode, "certificate, Certificate"));
                              } else if (outcome.function == "CertSetCertificateContextProperty" ||
                                         outcome.function == "CertGetCertificateContextProperty" ||
                                         outcome.function == "CryptAcquireContextW" ||
                                         (outcome.function == "CryptGetProvParam" &&
                                          stepsSince("CryptAcquireContextW", outcome) == 1)) {
                                  EXPECT_EQ(ending(outcome), notFound);
                              } else {
                                  EXPECT_EQ(ending(outcome), "");
                                  EXPECT_EQ(name, embeddedName);
                              }
                          }}),
              4U);
    EXPECT_EQ(name, embeddedName);
}

TEST_F(ProviderFault, PublicKeyEquality) {
    const auto one = Certificate(der(gostCertificate)).publicKey();
    const auto two = Certificate(der(otherGostCertificate)).publicKey();
    expectAnswers(
        "PublicKey::operator==", [&] { return *one == *two; }, {false}, true);
}

// ---- the enumeration that is kept for the process

/// Which call of the first enumeration fails: the size, the name, the end.
class EnumerationFault : public KeysFixture, public testing::WithParamInterface<std::size_t> {
protected:
    EnumerationFault() { service().failCall(GetParam(), faultCode); }

    static constexpr std::size_t end = 3;
    const bool found_ = GetParam() == end;
};

TEST_P(EnumerationFault, LeavesTheProviderOut) {
    EXPECT_EQ(provider().providers(Session::instance()).size(), found_ ? 1U : 0U) << service().failedCall();
    EXPECT_THAT(service().failedCall(), testing::StartsWith("CryptEnumProviders("));
    service().clearCalls();
    EXPECT_EQ(provider().providers(Session::instance()).size(), found_ ? 1U : 0U) << "kept as it is";
    EXPECT_THAT(service().trace(), testing::IsEmpty());
}

TEST_P(EnumerationFault, LeavesNoProviderToBeFoundByItsName) {
    EXPECT_EQ(Provider::provider(embeddedName) != nullptr, found_) << service().failedCall();
    EXPECT_THAT(service().failedCall(), testing::StartsWith("CryptEnumProviders("));
    service().clearCalls();
    EXPECT_EQ(Provider::provider(embeddedName) != nullptr, found_) << "kept as it is";
    EXPECT_THAT(service().trace(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Call, EnumerationFault, testing::Values(1U, 2U, 3U));

} // namespace
} // namespace wincrypt_keys
