// Identifiers, provider names and provider parameters.

#include "binding.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "orvik/plugin/crypto/constant.hpp"

namespace wincrypt_binding {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
namespace tools = wincrypt::tools;

TEST(ProviderNames, OfAliasesResolveToTheCanonicalOnes) {
    EXPECT_EQ(tools::formatProviderName(L"Crypto-Pro GOST R 34.10-2001 KC1 CSP"),
              L"Crypto-Pro GOST R 34.10-2001 Cryptographic Service Provider");
    EXPECT_EQ(tools::formatProviderName(L"Crypto-Pro GOST R 34.10-2012 KC1 CSP"),
              L"Crypto-Pro GOST R 34.10-2012 Cryptographic Service Provider");
    EXPECT_EQ(tools::formatProviderName(L"Crypto-Pro GOST R 34.10-2012 KC1 Strong CSP"),
              L"Crypto-Pro GOST R 34.10-2012 Strong Cryptographic Service Provider");
}

TEST(ProviderNames, ResolveWhateverTheCase) {
    EXPECT_EQ(tools::formatProviderName(L"crypto-pro gost r 34.10-2012 kc1 csp"),
              L"Crypto-Pro GOST R 34.10-2012 Cryptographic Service Provider");
}

TEST(ProviderNames, ResolveWhereTheAliasIsPartOfTheName) {
    EXPECT_EQ(*tools::resolveProviderName(L"My Crypto-Pro GOST R 34.10-2012 KC1 CSP (remote)"),
              L"Crypto-Pro GOST R 34.10-2012 Cryptographic Service Provider");
}

TEST(ProviderNames, ResolveToTheFirstOfTwoAliases) {
    EXPECT_EQ(
        *tools::resolveProviderName(L"Crypto-Pro GOST R 34.10-2012 KC1 CSP, Crypto-Pro GOST R 34.10-2001 KC1 CSP"),
        L"Crypto-Pro GOST R 34.10-2001 Cryptographic Service Provider");
}

TEST(ProviderNames, OfOthersPassUnchanged) {
    for (const std::wstring name : {vipNetName, cryptoProName, L"", L"Crypto-Pro GOST R 34.10-2012 KC2 CSP"}) {
        EXPECT_FALSE(tools::resolveProviderName(name));
        EXPECT_EQ(tools::formatProviderName(name), name);
    }
}

TEST(ProviderNames, ResolveTheSameTheSecondTime) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(tools::formatProviderName(L"Crypto-Pro GOST R 34.10-2001 KC1 CSP"),
                  L"Crypto-Pro GOST R 34.10-2001 Cryptographic Service Provider");
        EXPECT_FALSE(tools::resolveProviderName(vipNetName));
    }
}

/// A context on a container of the scripted provider, closed before the books are checked.
class ProviderParameters : public DoubleFixture {
protected:
    ProviderParameters() { service().providers[""] = {cryptoProProvider()}; }
    void TearDown() override {
        context_.reset();
        DoubleFixture::TearDown();
    }
    static service_double::Provider& provider() { return service().providers[""].front(); }
    unsigned long open(DWORD type, const std::wstring& container, const std::wstring& uniqueName = {},
                       const std::vector<DWORD>& keySpecs = {capi::AT_KEYEXCHANGE}) {
        auto box = containerNamed(container);
        box.uniqueName = uniqueName;
        box.keySpecs = keySpecs;
        provider().type = type;
        provider().containers = {box};
        context_ = std::make_unique<wincrypt::HCRYPTPROV>(container, cryptoProName,
                                                          orvik::plugin::crypto::IProvider::Type{type}, 0UL, nullptr);
        service().clearCalls();
        return context_->get();
    }

private:
    std::unique_ptr<wincrypt::HCRYPTPROV> context_;
};

TEST_F(ProviderParameters, GiveTheProvidersNameAndType) {
    const auto context = open(80, L"box");
    EXPECT_EQ(tools::exportProviderName(context), cryptoProName);
    EXPECT_EQ(tools::exportProviderType(context), 80U);
    EXPECT_THAT(service().trace(), ElementsAre("CryptGetProvParam(context1, 4, null, &0, 0)",
                                               "CryptGetProvParam(context1, 4, pointer, &60, 0)",
                                               "CryptGetProvParam(context1, 16, null, &0, 0)",
                                               "CryptGetProvParam(context1, 16, pointer, &4, 0)"));
}

TEST_F(ProviderParameters, GiveTheProvidersNameFromUtf8WhateverTheType) {
    for (const DWORD type : {80U, 75U}) {
        const auto context = open(type, L"box");
        provider().parameters[capi::PP_NAME] = std::string("Поставщик") + '\0';
        EXPECT_EQ(tools::exportProviderName(context), L"Поставщик") << type;
    }
}

TEST_F(ProviderParameters, GiveTypeZeroWhereTheServiceDoesNotTell) {
    const auto context = open(80, L"box");
    provider().parameters[capi::PP_PROVTYPE] = "";
    EXPECT_EQ(tools::exportProviderType(context), 0U);
    EXPECT_EQ(service().calls().size(), 1U);
    for (const std::size_t failing : {1U, 2U}) {
        provider().parameters.clear();
        service().failCall(failing, capi::NTE_FAIL);
        EXPECT_EQ(tools::exportProviderType(context), 0U);
        EXPECT_FALSE(service().failedCall().empty());
    }
}

TEST_F(ProviderParameters, GiveContainerNamesOfTheGost2012ProvidersFromWindows1251) {
    for (const DWORD type : {80U, 81U}) {
        const auto context = open(type, L"Ключи");
        EXPECT_EQ(tools::exportContainerName(context), L"Ключи") << type;
    }
}

TEST_F(ProviderParameters, GiveContainerNamesOfOtherProvidersFromUtf8) {
    for (const DWORD type : {75U, 24U}) {
        const auto context = open(type, L"Ключи");
        EXPECT_EQ(tools::exportContainerName(context), L"Ключи") << type;
    }
}

TEST_F(ProviderParameters, GiveTheContainersUniqueNameAsItsPath) {
    EXPECT_EQ(tools::exportContainerPath(open(80, L"Ключи", L"HDIMAGE\\\\Ключи.000")), L"HDIMAGE\\\\Ключи.000");
    EXPECT_EQ(tools::exportContainerPath(open(75, L"Ключи", L"HDIMAGE\\\\Ключи.000")), L"HDIMAGE\\\\Ключи.000");
}

TEST_F(ProviderParameters, GiveTheContainersNameAsItsPathWhereItHasNoUniqueOne) {
    EXPECT_EQ(tools::exportContainerPath(open(80, L"Ключи")), L"Ключи");
    EXPECT_EQ(service().trace().front(), "CryptGetProvParam(context1, 36, null, &0, 0)");
}

TEST_F(ProviderParameters, AreEmptyForAStaleContext) {
    open(80, L"box");
    constexpr unsigned long stale = 0x999;
    EXPECT_EQ(tools::exportProviderName(stale), L"");
    EXPECT_EQ(tools::exportContainerName(stale), L"");
    EXPECT_EQ(tools::exportContainerPath(stale), L"");
}

TEST_F(ProviderParameters, OfFourOctetsAreNumbers) {
    EXPECT_EQ(tools::param(open(80, L"box"), capi::PP_VERSION).value(), 0x0500U);
}

TEST_F(ProviderParameters, OfOtherSizesAreNoNumbers) {
    const auto context = open(80, L"box");
    for (const std::size_t size : {0U, 3U, 5U, 8U}) {
        provider().parameters[capi::PP_VERSION].assign(size, 'x');
        service().clearCalls();
        EXPECT_FALSE(tools::param(context, capi::PP_VERSION)) << size;
        EXPECT_EQ(service().calls().size(), 1U);
    }
}

TEST_F(ProviderParameters, ThatCannotBeReadAreNoNumbers) {
    const auto context = open(80, L"box");
    for (const std::size_t failing : {1U, 2U}) {
        service().failCall(failing, capi::NTE_FAIL);
        EXPECT_FALSE(tools::param(context, capi::PP_VERSION));
        EXPECT_FALSE(service().failedCall().empty());
    }
}

TEST_F(ProviderParameters, TellTheExchangeKeyFirst) {
    const auto context = open(80, L"box", {}, {capi::AT_SIGNATURE, capi::AT_KEYEXCHANGE});
    EXPECT_EQ(tools::keySpec(context), 1U);
    EXPECT_THAT(service().trace(), ElementsAre("CryptGetUserKey(context1, 1, &)", "CryptDestroyKey(key1)"));
}

TEST_F(ProviderParameters, TellTheSignatureKeyWhereThereIsNoOther) {
    const auto context = open(80, L"box", {}, {capi::AT_SIGNATURE});
    EXPECT_EQ(tools::keySpec(context), 2U);
    EXPECT_THAT(service().trace(), ElementsAre("CryptGetUserKey(context1, 1, &)", "CryptGetUserKey(context1, 2, &)",
                                               "CryptDestroyKey(key1)"));
}

TEST_F(ProviderParameters, TellTheExchangeKeyForAnEmptyContainer) {
    EXPECT_EQ(tools::keySpec(open(80, L"box", {}, {})), 1U);
    EXPECT_EQ(service().calls().size(), 2U);
}

class Identifiers : public DoubleFixture {
protected:
    Identifiers() { service().oids = {{"1.2.643.7.1.1.2.2", {0x8021, L"GR 34.11-2012 256"}}, {"1.2.3", {7, L""}}}; }
};

TEST_F(Identifiers, OfAnEmptyOidAreNotAskedFor) {
    EXPECT_FALSE(tools::oid_to_alg_id(""));
    EXPECT_FALSE(tools::oid_to_cng_alg_id(""));
    EXPECT_THAT(service().calls(), IsEmpty());
}

TEST_F(Identifiers, ComeFromTheServicesOidTable) {
    EXPECT_EQ(tools::oid_to_alg_id("1.2.643.7.1.1.2.2").value(), 0x8021U);
    EXPECT_EQ(tools::oid_to_cng_alg_id("1.2.643.7.1.1.2.2").value(), "GR 34.11-2012 256");
    const std::string call = "CryptFindOIDInfo(1, \"1.2.643.7.1.1.2.2\", 0)";
    EXPECT_THAT(service().trace(), ElementsAre(call, call));
}

TEST_F(Identifiers, OfAPieceOfTextEndWithIt) {
    EXPECT_EQ(tools::oid_to_alg_id(boost::string_view("1.2.3.4.5", 5)).value(), 7U);
}

TEST_F(Identifiers, UnknownToTheServiceAreNone) {
    EXPECT_FALSE(tools::oid_to_alg_id("1.2.4"));
    EXPECT_FALSE(tools::oid_to_cng_alg_id("1.2.4"));
    EXPECT_FALSE(tools::oid_to_cng_alg_id("1.2.3")) << "an entry without a CNG name";
}

TEST_F(Identifiers, ComeFromTheFrameworksTableOfAlgorithms) {
    const auto& table = orvik::plugin::crypto::constant::alg_id_aliases;
    ASSERT_FALSE(table.empty());
    for (const auto& [id, oid] : table) {
        EXPECT_EQ(tools::alg_id_to_oid(id).value(), oid);
    }
    EXPECT_FALSE(tools::alg_id_to_oid(0x12345));
    EXPECT_THAT(service().calls(), IsEmpty());
}

TEST(Blobs, HaveOctetsOrNot) {
    BYTE octet = 0;
    const CRYPT_DATA_BLOB full{1, &octet};
    const CRYPT_DATA_BLOB noPointer{1, nullptr};
    const CRYPT_DATA_BLOB noSize{0, &octet};
    EXPECT_TRUE(tools::check_blob(&full));
    EXPECT_FALSE(tools::check_blob(&noPointer));
    EXPECT_FALSE(tools::check_blob(&noSize));
    EXPECT_FALSE(tools::check_blob(static_cast<const CRYPT_DATA_BLOB*>(nullptr)));
    const CRYPT_BIT_BLOB fullBits{1, &octet, 7};
    const CRYPT_BIT_BLOB noBitPointer{1, nullptr, 7};
    const CRYPT_BIT_BLOB noBits{0, &octet, 0};
    EXPECT_TRUE(tools::check_blob(&fullBits));
    EXPECT_FALSE(tools::check_blob(&noBitPointer));
    EXPECT_FALSE(tools::check_blob(&noBits));
    EXPECT_FALSE(tools::check_blob(static_cast<const CRYPT_BIT_BLOB*>(nullptr)));
}

TEST(OpaqueHandles, AreTheSameValues) {
    const CERT_CONTEXT context{};
    EXPECT_EQ(tools::toPCCERT_CONTEXT(tools::fromPCCERT_CONTEXT(&context)), &context);
    EXPECT_EQ(tools::toHCRYPTPROV(tools::fromHCRYPTPROV(0xFFFFFFFFFFFFFFFFUL)), 0xFFFFFFFFFFFFFFFFUL);
    EXPECT_EQ(tools::fromHCRYPTPROV(0), nullptr);
}

TEST(OpaqueHandles, AreNeverCng) {
    EXPECT_FALSE(tools::isCNG(0));
    EXPECT_FALSE(tools::isCNG(0x1234));
}

} // namespace
} // namespace wincrypt_binding
