#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/tools.hpp"

#include <gmock/gmock.h>

#include <set>
#include <string>

namespace {

namespace constant = orvik::plugin::crypto::constant;
namespace tools = orvik::plugin::crypto::tools;
using orvik::plugin::converter::utf16_to_utf8;
using orvik::plugin::crypto::IProvider;
using testing::Contains;

constexpr const char* rsa = "1.2.840.113549.1.1.1";

TEST(ProviderInfos, HaveNamesOfTheirOwn) {
    std::set<std::string> names;
    for (const auto& info : tools::providerInfos()) {
        EXPECT_TRUE(names.insert(info.name).second) << info.name;
    }
}

TEST(ProviderInfos, NameTheirSignToolSoThatItsPatternFindsIt) {
    for (const auto& info : tools::providerInfos()) {
        EXPECT_FALSE(info.signToolPattern.empty()) << info.name;
        EXPECT_THAT(info.subjectSignTool, testing::HasSubstr(info.signToolPattern)) << info.name;
    }
}

// What a request for a key is checked with: each set must be one that the provider's algorithms know.
TEST(ProviderInfos, OfferParameterSetsOfTheirAlgorithmsOnly) {
    for (const auto& info : tools::providerInfos()) {
        EXPECT_FALSE(info.paramSets.empty()) << info.name;
        for (const auto& oid : info.paramSets) {
            const auto set = tools::algorithmParamSet(oid);
            ASSERT_TRUE(set) << oid;
            EXPECT_THAT(info.algorithms, testing::AnyOf(Contains(set->algorithm), Contains(set->secondAlgorithm)))
                << info.name << " " << oid;
        }
    }
}

TEST(ProviderInfo, IsFoundByItsExactName) {
    const auto info = tools::providerInfo(utf16_to_utf8(constant::registry_provider_crypto_pro_2012W));
    ASSERT_TRUE(info);
    EXPECT_EQ(info->type, IProvider::gost2012_256);
    EXPECT_EQ(info->family, IProvider::Family::cryptoPro);
    EXPECT_EQ(info->kind, IProvider::Kind::cryptoPro);
    EXPECT_EQ(info->containerPrefix, "\\\\.\\HDIMAGE\\");
    EXPECT_FALSE(tools::providerInfo("Crypto-Pro"));
    EXPECT_FALSE(tools::providerInfo(""));
    EXPECT_FALSE(tools::providerInfo(utf16_to_utf8(constant::registry_provider_crypto_pro_2012W) + " "));
}

TEST(ProviderInfo, KnowsTheThreeCanonicalNamesOfCryptoPro) {
    EXPECT_EQ(tools::providerInfo(utf16_to_utf8(constant::registry_provider_crypto_proW))->type, IProvider::gost2001);
    EXPECT_EQ(tools::providerInfo(utf16_to_utf8(constant::registry_provider_crypto_pro_2012_extW))->type,
              IProvider::gost2012_512);
}

// The numbers of the three kinds and families are what the sign-tool and container rules ask for.
TEST(ProviderInfo, TellsKindsAndFamiliesByNumber) {
    const auto vipNet = tools::providerInfo("Infotecs Cryptographic Service Provider");
    ASSERT_TRUE(vipNet);
    EXPECT_EQ(static_cast<int>(vipNet->family), 3);
    EXPECT_EQ(static_cast<int>(vipNet->type), 2);
    const auto signalCom = tools::providerInfo("Signal-COM CPGOST Cryptographic Provider");
    ASSERT_TRUE(signalCom);
    EXPECT_EQ(static_cast<int>(signalCom->kind), 5);
    EXPECT_EQ(static_cast<int>(IProvider::Kind::cryptoPro), 4);
    EXPECT_EQ(static_cast<int>(IProvider::Family::cryptoPro), 4);
}

TEST(IsCng, IsFalseOnThisPlatform) {
    EXPECT_FALSE(tools::isCNG(L"Infotecs Key Storage Provider"));
    EXPECT_FALSE(tools::isCNG(constant::registry_provider_crypto_pro_2012W));
}

TEST(ParamSet, TellsHashAndSignatureOfItsAlgorithm) {
    const auto set = tools::algorithmParamSet("1.2.643.7.1.2.1.2.1");
    ASSERT_TRUE(set);
    EXPECT_EQ(set->algorithm, "1.2.643.7.1.1.1.2");
    EXPECT_EQ(set->secondAlgorithm, "1.2.643.7.1.1.6.2");
    EXPECT_EQ(set->hashAlgorithm, "1.2.643.7.1.1.2.3");
    EXPECT_EQ(set->signatureAlgorithm, "1.2.643.7.1.1.3.3");
    EXPECT_EQ(set->name, "TC26 512 A");
}

TEST(ParamSet, OfCryptoProServesTheOlderAlgorithmToo) {
    for (const auto* oid :
         {"1.2.643.2.2.35.1", "1.2.643.2.2.35.2", "1.2.643.2.2.35.3", "1.2.643.2.2.36.0", "1.2.643.2.2.36.1"}) {
        const auto set = tools::algorithmParamSet(oid);
        ASSERT_TRUE(set) << oid;
        EXPECT_EQ(set->algorithm, "1.2.643.7.1.1.1.1");
        EXPECT_EQ(set->secondAlgorithm, "1.2.643.2.2.19");
        EXPECT_EQ(set->signatureAlgorithm, "1.2.643.7.1.1.3.2");
    }
}

TEST(ParamSet, SignsWithTheOlderAlgorithmWhereTheProviderHasNoOther) {
    const auto old = tools::algorithmParamSet("1.2.643.2.2.35.1", {"1.2.643.2.2.19"});
    ASSERT_TRUE(old);
    EXPECT_EQ(old->algorithm, "1.2.643.2.2.19");
    EXPECT_EQ(old->secondAlgorithm, "1.2.643.7.1.1.1.1");
    EXPECT_EQ(old->hashAlgorithm, "1.2.643.2.2.9");
    EXPECT_EQ(old->signatureAlgorithm, "1.2.643.2.2.3");

    const std::vector<std::string> both = {"1.2.643.2.2.19", "1.2.643.7.1.1.1.1"};
    EXPECT_EQ(tools::algorithmParamSet("1.2.643.2.2.35.1", both)->signatureAlgorithm, "1.2.643.7.1.1.3.2");
    EXPECT_EQ(tools::algorithmParamSet("1.2.643.2.2.35.1", {})->signatureAlgorithm, "1.2.643.7.1.1.3.2");
    EXPECT_FALSE(tools::algorithmParamSet("1.2.643.2.2.35.0", both));
}

TEST(ParamSet, OfRsaGoesByTheAlgorithmsOwnOid) {
    const auto set = tools::algorithmParamSet(rsa);
    ASSERT_TRUE(set);
    EXPECT_EQ(set->algorithm, rsa);
    EXPECT_EQ(set->secondAlgorithm, "");
    EXPECT_EQ(set->signatureAlgorithm, "1.2.840.113549.1.1.11");
}

TEST(ParamSet, IsNoneForAnUnknownOid) {
    EXPECT_FALSE(tools::algorithmParamSet("1.2.643.2.2.35.0"));
    EXPECT_FALSE(tools::algorithmParamSet(""));
}

TEST(HashOfKeyAlgorithm, KnowsTheAgreementOidsToo) {
    for (const auto& [key, hash] : {std::pair{"1.2.643.7.1.1.1.1", "1.2.643.7.1.1.2.2"},
                                    {"1.2.643.7.1.1.6.1", "1.2.643.7.1.1.2.2"},
                                    {"1.2.643.7.1.1.1.2", "1.2.643.7.1.1.2.3"},
                                    {"1.2.643.7.1.1.6.2", "1.2.643.7.1.1.2.3"},
                                    {"1.2.643.2.2.19", "1.2.643.2.2.9"},
                                    {"1.2.643.2.2.98", "1.2.643.2.2.9"},
                                    {rsa, "2.16.840.1.101.3.4.2.1"}}) {
        EXPECT_EQ(tools::hashOidFromPublicKeyAlgOid(key), hash) << key;
    }
}

TEST(HashOfKeyAlgorithm, IsEmptyWhenUnknown) {
    EXPECT_EQ(tools::hashOidFromPublicKeyAlgOid("1.2.840.10045.2.1"), "");
    EXPECT_EQ(tools::hashOidFromPublicKeyAlgOid(""), "");
}

TEST(AlgIdAliases, NameTheKeysAndHashesOfTheServices) {
    const auto& aliases = constant::alg_id_aliases;
    EXPECT_EQ(aliases.at(0x2E49), "1.2.643.7.1.1.1.1");
    EXPECT_EQ(aliases.at(0x2E3D), "1.2.643.7.1.1.1.2");
    EXPECT_EQ(aliases.at(0xAA46), "1.2.643.7.1.1.6.1");
    EXPECT_EQ(aliases.at(0x8021), "1.2.643.7.1.1.2.2");
    EXPECT_EQ(aliases.at(0xA400), rsa);
    EXPECT_EQ(aliases.at(0x8004), "1.3.14.3.2.26");
    EXPECT_EQ(aliases.count(0), 0U);
}

} // namespace
