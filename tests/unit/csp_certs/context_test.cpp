#include "service.hpp"

#include "stores/context.hpp"

#include <array>
#include <cstring>

namespace {

const pki::Entity& sample() {
    static const auto* const entity = new pki::Entity(
        pki::make({.subject = "Sample", .extensions = {{NID_ext_key_usage, "emailProtection,clientAuth"}}}));
    return *entity;
}

class CertificateContext : public ServiceTest {
protected:
    Context context_ = contextOf(sample().der);
};

TEST_F(CertificateContext, CarriesTheEncodingAndItsParts) {
    ASSERT_NE(context_, nullptr);
    EXPECT_EQ(context_->dwCertEncodingType, capi::X509_ASN_ENCODING);
    EXPECT_EQ(csp::Bytes(context_->pbCertEncoded, context_->pbCertEncoded + context_->cbCertEncoded), sample().der);
    EXPECT_EQ(context_->pCertInfo->dwVersion, 2U);
    EXPECT_EQ(context_->hCertStore, nullptr);
}

TEST_F(CertificateContext, IsRefusedForOctetsThatAreNone) {
    const std::array<BYTE, 4> junk{0x30, 0x02, 0x05, 0x00};
    EXPECT_EQ(api::CertCreateCertificateContext(encodings, junk.data(), junk.size()), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_ASN1_CORRUPT);
    EXPECT_EQ(api::CertCreateCertificateContext(encodings, nullptr, 5), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(api::CertCreateCertificateContext(capi::PKCS_7_ASN_ENCODING, sample().der.data(), 5), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
}

TEST_F(CertificateContext, LivesUntilTheLastReferenceGoes) {
    ASSERT_EQ(csp::liveContexts(), 1U);
    const Context second(api::CertDuplicateCertificateContext(context_.get()));
    EXPECT_EQ(second.get(), context_.get());
    EXPECT_TRUE(api::CertFreeCertificateContext(context_.release()));
    EXPECT_EQ(csp::liveContexts(), 1U);
    EXPECT_EQ(second->cbCertEncoded, sample().der.size());
}

TEST_F(CertificateContext, RefusesStaleForeignAndNullPointers) {
    const PCCERT_CONTEXT stale = context_.get();
    context_.reset();
    const CERT_CONTEXT foreign{};
    for (const PCCERT_CONTEXT bad : {stale, &foreign, PCCERT_CONTEXT{}}) {
        DWORD size = 0;
        api::SetLastError(0);
        EXPECT_EQ(api::CertDuplicateCertificateContext(bad), nullptr);
        EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
        api::SetLastError(0);
        EXPECT_FALSE(api::CertGetCertificateContextProperty(bad, 3, nullptr, &size));
        EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
        EXPECT_FALSE(api::CertSetCertificateContextProperty(bad, 11, 0, nullptr));
        EXPECT_FALSE(api::CertDeleteCertificateFromStore(bad));
        EXPECT_FALSE(api::CertGetEnhancedKeyUsage(bad, 0, nullptr, &size));
    }
    EXPECT_FALSE(api::CertFreeCertificateContext(stale));
    EXPECT_FALSE(api::CertFreeCertificateContext(&foreign));
    EXPECT_TRUE(api::CertFreeCertificateContext(nullptr));
}

TEST_F(CertificateContext, ComputesTheSha1Hash) {
    csp::Bytes expected(20);
    ASSERT_EQ(
        EVP_Q_digest(nullptr, "SHA1", nullptr, sample().der.data(), sample().der.size(), expected.data(), nullptr), 1);
    EXPECT_EQ(property(context_.get(), capi::CERT_SHA1_HASH_PROP_ID), expected);
    EXPECT_FALSE(setBlob(context_.get(), capi::CERT_SHA1_HASH_PROP_ID, csp::Bytes(20)));
}

TEST_F(CertificateContext, ComputesTheKeyIdentifierWhereNoExtensionTellsIt) {
    const auto key = context_->pCertInfo->SubjectPublicKeyInfo.PublicKey;
    csp::Bytes expected(20);
    ASSERT_EQ(EVP_Q_digest(nullptr, "SHA1", nullptr, key.pbData, key.cbData, expected.data(), nullptr), 1);
    EXPECT_EQ(property(context_.get(), capi::CERT_KEY_IDENTIFIER_PROP_ID), expected);
    ASSERT_TRUE(setBlob(context_.get(), capi::CERT_KEY_IDENTIFIER_PROP_ID, {1, 2, 3}));
    EXPECT_EQ(property(context_.get(), capi::CERT_KEY_IDENTIFIER_PROP_ID), (csp::Bytes{1, 2, 3}));
}

TEST_F(CertificateContext, TakesTheKeyIdentifierFromTheExtension) {
    const auto named =
        contextOf(pki::make({.subject = "x", .extensions = {{NID_subject_key_identifier, "0A:0B:0C"}}}).der);
    EXPECT_EQ(property(named.get(), capi::CERT_KEY_IDENTIFIER_PROP_ID), (csp::Bytes{0x0A, 0x0B, 0x0C}));
}

TEST_F(CertificateContext, AnswersThatAPropertyIsAbsent) {
    DWORD size = 0;
    for (const DWORD id : {1U, 2U, 5U, 11U, 13U, 77U}) {
        EXPECT_FALSE(api::CertGetCertificateContextProperty(context_.get(), id, nullptr, &size));
        EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_NOT_FOUND) << id;
    }
    EXPECT_FALSE(api::CertGetCertificateContextProperty(context_.get(), 0, nullptr, &size));
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
}

TEST_F(CertificateContext, KeepsAnyBlobUntilItIsDeleted) {
    ASSERT_TRUE(setBlob(context_.get(), 77, {9, 8, 7}));
    EXPECT_EQ(property(context_.get(), 77), (csp::Bytes{9, 8, 7}));
    ASSERT_TRUE(api::CertSetCertificateContextProperty(context_.get(), 77, 0, nullptr));
    EXPECT_TRUE(property(context_.get(), 77).empty());
}

TEST_F(CertificateContext, TellsTheSizeThatAShortBufferLacks) {
    ASSERT_TRUE(setBlob(context_.get(), capi::CERT_FRIENDLY_NAME_PROP_ID, wideBytes(L"Подпись")));
    csp::Bytes buffer(3);
    auto size = static_cast<DWORD>(buffer.size());
    EXPECT_FALSE(
        api::CertGetCertificateContextProperty(context_.get(), capi::CERT_FRIENDLY_NAME_PROP_ID, buffer.data(), &size));
    EXPECT_EQ(api::GetLastError(), capi::ERROR_MORE_DATA);
    EXPECT_EQ(size, 8 * sizeof(wchar_t));
}

TEST_F(CertificateContext, CopiesTheKeyProviderInfoDeeply) {
    std::wstring container = L"ключ";
    std::wstring provider = L"provider";
    csp::Bytes data{1, 2, 3};
    CRYPT_KEY_PROV_PARAM parameter{32, data.data(), 3, 7};
    const CRYPT_KEY_PROV_INFO info{container.data(), provider.data(), 80, 5, 1, &parameter, 1};
    ASSERT_TRUE(api::CertSetCertificateContextProperty(context_.get(), capi::CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
    container = L"XXXX";
    provider.clear();
    data.assign(3, 0);

    alignas(8) std::array<std::uint8_t, 512> block{};
    DWORD size = block.size();
    ASSERT_TRUE(
        api::CertGetCertificateContextProperty(context_.get(), capi::CERT_KEY_PROV_INFO_PROP_ID, block.data(), &size));
    const auto& held = *reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(block.data());
    EXPECT_STREQ(held.pwszContainerName, L"ключ");
    EXPECT_STREQ(held.pwszProvName, L"provider");
    EXPECT_EQ(held.dwProvType, 80U);
    EXPECT_EQ(held.dwFlags, 5U);
    EXPECT_EQ(held.dwKeySpec, 1U);
    ASSERT_EQ(held.cProvParam, 1U);
    EXPECT_EQ(held.rgProvParam->dwParam, 32U);
    EXPECT_EQ(held.rgProvParam->dwFlags, 7U);
    EXPECT_EQ(csp::Bytes(held.rgProvParam->pbData, held.rgProvParam->pbData + held.rgProvParam->cbData),
              (csp::Bytes{1, 2, 3}));
}

TEST_F(CertificateContext, KeepsItsKeyProviderWhenAnotherIsRefused) {
    CRYPT_KEY_PROV_INFO info{nullptr, nullptr, 80, 0, 0, nullptr, 1};
    ASSERT_TRUE(api::CertSetCertificateContextProperty(context_.get(), capi::CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
    info.dwProvType = 81;
    info.cProvParam = 1; // of which there are none
    EXPECT_FALSE(api::CertSetCertificateContextProperty(context_.get(), capi::CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
    CRYPT_KEY_PROV_INFO held{};
    DWORD size = sizeof held;
    ASSERT_TRUE(api::CertGetCertificateContextProperty(context_.get(), capi::CERT_KEY_PROV_INFO_PROP_ID, &held, &size));
    EXPECT_EQ(held.dwProvType, 80U);
}

TEST_F(CertificateContext, KeepsNullNamesOfTheKeyProviderNull) {
    const CRYPT_KEY_PROV_INFO info{nullptr, nullptr, 80, 0, 0, nullptr, 1};
    ASSERT_TRUE(api::CertSetCertificateContextProperty(context_.get(), capi::CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
    CRYPT_KEY_PROV_INFO held{};
    DWORD size = sizeof held;
    ASSERT_TRUE(api::CertGetCertificateContextProperty(context_.get(), capi::CERT_KEY_PROV_INFO_PROP_ID, &held, &size));
    EXPECT_EQ(held.pwszContainerName, nullptr);
    EXPECT_EQ(held.pwszProvName, nullptr);
    EXPECT_EQ(held.rgProvParam, nullptr);
}

TEST_F(CertificateContext, KeepsAKeyHandleInMemory) {
    CERT_KEY_CONTEXT key{};
    key.cbSize = sizeof key;
    key.hCryptProv = 42;
    key.dwKeySpec = 2;
    ASSERT_TRUE(api::CertSetCertificateContextProperty(context_.get(), capi::CERT_KEY_CONTEXT_PROP_ID, 0, &key));
    unsigned long handle = 0;
    DWORD size = sizeof handle;
    ASSERT_TRUE(
        api::CertGetCertificateContextProperty(context_.get(), capi::CERT_KEY_PROV_HANDLE_PROP_ID, &handle, &size));
    EXPECT_EQ(handle, 42U);
    CERT_KEY_CONTEXT held{};
    size = sizeof held;
    ASSERT_TRUE(api::CertGetCertificateContextProperty(context_.get(), capi::CERT_KEY_CONTEXT_PROP_ID, &held, &size));
    EXPECT_EQ(held.dwKeySpec, 2U);
}

std::vector<std::string> usages(PCCERT_CONTEXT context, DWORD flags) {
    DWORD size = 0;
    EXPECT_TRUE(api::CertGetEnhancedKeyUsage(context, flags, nullptr, &size));
    std::vector<std::uint64_t> block((size + 7) / 8);
    EXPECT_TRUE(
        api::CertGetEnhancedKeyUsage(context, flags, reinterpret_cast<CERT_ENHKEY_USAGE*>(block.data()), &size));
    const auto& usage = *reinterpret_cast<const CERT_ENHKEY_USAGE*>(block.data());
    return {usage.rgpszUsageIdentifier, usage.rgpszUsageIdentifier + usage.cUsageIdentifier};
}

TEST_F(CertificateContext, TellsTheEnhancedKeyUsageThatExtensionAndPropertyAgreeOn) {
    const std::vector<std::string> both{"1.3.6.1.5.5.7.3.4", "1.3.6.1.5.5.7.3.2"};
    EXPECT_EQ(usages(context_.get(), 0), both);
    // SEQUENCE { clientAuth }
    ASSERT_TRUE(setBlob(context_.get(), 9, {0x30, 0x0A, 0x06, 0x08, 0x2B, 6, 1, 5, 5, 7, 3, 2}));
    EXPECT_EQ(usages(context_.get(), 0), std::vector<std::string>{"1.3.6.1.5.5.7.3.2"});
    EXPECT_EQ(usages(context_.get(), 2), both);
    EXPECT_EQ(usages(context_.get(), 4), std::vector<std::string>{"1.3.6.1.5.5.7.3.2"});
}

TEST_F(CertificateContext, TellsAnyUsageFromNoUsageWithTheLastError) {
    const Context free = contextOf(pki::make({.subject = "x"}).der);
    EXPECT_TRUE(usages(free.get(), 0).empty());
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_NOT_FOUND);
    ASSERT_TRUE(setBlob(context_.get(), 9, {0x30, 0x03, 0x06, 0x01, 0x2A}));
    EXPECT_TRUE(usages(context_.get(), 0).empty());
    EXPECT_EQ(api::GetLastError(), capi::ERROR_SUCCESS);
}

TEST_F(CertificateContext, FindsAnExtensionByItsOid) {
    const CERT_INFO& info = *context_->pCertInfo;
    EXPECT_EQ(api::CertFindExtension("2.5.29.37", info.cExtension, info.rgExtension), &info.rgExtension[0]);
    EXPECT_EQ(api::CertFindExtension("2.5.29.3", info.cExtension, info.rgExtension), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_NOT_FOUND);
    EXPECT_EQ(api::CertFindExtension("2.5.29.37", 0, nullptr), nullptr);
    EXPECT_EQ(api::CertFindExtension(nullptr, info.cExtension, info.rgExtension), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
}

} // namespace
