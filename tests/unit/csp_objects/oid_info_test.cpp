#include "objects/oid_info.hpp"

#include "crypto/algorithms.hpp"
#include "exports/export.hpp"
#include "support.hpp"

#include <cwchar>

namespace klunortredi::csp::test {

namespace {

using namespace capi;

PCCRYPT_OID_INFO byOid(const char* oid, DWORD group = 0) {
    return exports::CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, oid, group);
}

TEST(OidInfo, KnowsEveryAlgorithmOfTheService) {
    for (const DigestAlgorithm& digest : digestAlgorithms()) {
        const auto* const info = byOid(std::string(digest.oid).c_str(), CRYPT_HASH_ALG_OID_GROUP_ID);
        ASSERT_NE(info, nullptr) << digest.oid;
        EXPECT_EQ(info->u.Algid, digest.id);
        EXPECT_NE(std::wstring(info->pwszName), std::wstring(digest.oid.begin(), digest.oid.end())) << "has no name";
    }
    for (const KeyAlgorithm& key : keyAlgorithms()) {
        const auto* const info = byOid(std::string(key.oid).c_str(), CRYPT_PUBKEY_ALG_OID_GROUP_ID);
        ASSERT_NE(info, nullptr) << key.oid;
        EXPECT_EQ(info->pwszCNGAlgid, key.cngName);
        for (const ALG_ID id : {key.signId, key.exchangeId}) {
            const auto* const byId = exports::CryptFindOIDInfo(CRYPT_OID_INFO_ALGID_KEY, &id, 0);
            ASSERT_NE(byId, nullptr) << id;
            EXPECT_EQ(findKey(std::string_view(byId->pszOID)), &key);
        }
    }
    for (const SignatureAlgorithm& signature : signatureAlgorithms()) {
        if (!signature.digestOid.empty()) {
            const auto* const info = byOid(std::string(signature.oid).c_str(), CRYPT_SIGN_ALG_OID_GROUP_ID);
            ASSERT_NE(info, nullptr) << signature.oid;
            EXPECT_EQ(findDigest(signature.digestOid)->id, info->u.Algid);
        }
    }
}

TEST(OidInfo, EveryEntryIsComplete) {
    for (const char* const oid :
         {"1.2.643.7.1.1.2.2", "1.2.643.7.1.1.1.1", "1.2.643.7.1.1.3.2", "2.5.4.3", "2.5.29.15", "1.3.6.1.5.5.7.3.2"}) {
        const auto* const info = byOid(oid);
        ASSERT_NE(info, nullptr) << oid;
        EXPECT_EQ(info->cbSize, 64U);
        EXPECT_STREQ(info->pszOID, oid);
        EXPECT_GT(std::wcslen(info->pwszName), 0U);
        EXPECT_NE(info->pwszCNGAlgid, nullptr);
        EXPECT_NE(info->pwszCNGExtraAlgid, nullptr);
        EXPECT_NE(info->dwGroupId, 0U);
    }
}

TEST(OidInfo, GivesTheNumbersAndCngNames) {
    EXPECT_EQ(byOid("1.2.643.7.1.1.2.2")->u.Algid, CALG_GR3411_2012_256);
    EXPECT_EQ(byOid("1.2.643.7.1.1.1.1")->u.Algid, CALG_GR3410_12_256);
    EXPECT_EQ(byOid("1.2.643.7.1.1.6.1")->u.Algid, CALG_DH_GR3410_12_256_SF);
    EXPECT_EQ(byOid("1.2.840.113549.1.1.1")->u.Algid, CALG_RSA_KEYX);
    EXPECT_EQ(std::wstring(byOid("1.2.643.7.1.1.1.1")->pwszCNGAlgid), L"GR 34.10-2012 256");
    const auto* const sign = byOid("1.2.643.7.1.1.3.2");
    EXPECT_EQ(sign->u.Algid, CALG_GR3411_2012_256);
    ASSERT_EQ(sign->ExtraInfo.cbData, sizeof(DWORD));
    DWORD key = 0;
    std::memcpy(&key, sign->ExtraInfo.pbData, sizeof key);
    EXPECT_EQ(key, CALG_GR3410_12_256);
}

TEST(OidInfo, FindsByNameNumberAndPair) {
    const auto* const byName = exports::CryptFindOIDInfo(CRYPT_OID_INFO_NAME_KEY, L"SHA256", 0);
    ASSERT_NE(byName, nullptr);
    EXPECT_STREQ(byName->pszOID, "2.16.840.1.101.3.4.2.1");
    const ALG_ID hash = CALG_GR3411_2012_512;
    EXPECT_STREQ(exports::CryptFindOIDInfo(CRYPT_OID_INFO_ALGID_KEY, &hash, CRYPT_HASH_ALG_OID_GROUP_ID)->pszOID,
                 "1.2.643.7.1.1.2.3");
    const std::array<ALG_ID, 2> pair{CALG_SHA_256, CALG_RSA_SIGN};
    EXPECT_STREQ(exports::CryptFindOIDInfo(CRYPT_OID_INFO_SIGN_KEY, pair.data(), 0)->pszOID, "1.2.840.113549.1.1.11");
    EXPECT_STREQ(byOid("1.2.643.7.1.1.1.1", CRYPT_SIGN_ALG_OID_GROUP_ID)->pszOID, "1.2.643.7.1.1.1.1");
}

TEST(OidInfo, AnUnknownKeyFindsNothing) {
    const ALG_ID none = CALG_OID_INFO_PARAMETERS;
    const ALG_ID zero = 0;
    setLastError(0);
    EXPECT_EQ(byOid("1.2.3.4.5"), nullptr);
    EXPECT_EQ(lastError(), CRYPT_E_NOT_FOUND);
    EXPECT_EQ(byOid("2.5.4.3", CRYPT_HASH_ALG_OID_GROUP_ID), nullptr);
    EXPECT_EQ(exports::CryptFindOIDInfo(CRYPT_OID_INFO_ALGID_KEY, &none, 0), nullptr);
    EXPECT_EQ(exports::CryptFindOIDInfo(CRYPT_OID_INFO_ALGID_KEY, &zero, 0), nullptr);
    EXPECT_EQ(exports::CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, nullptr, 0), nullptr);
    EXPECT_EQ(lastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(exports::CryptFindOIDInfo(77, "1", 0), nullptr);
    EXPECT_EQ(lastError(), ERROR_INVALID_PARAMETER);
}

} // namespace

} // namespace klunortredi::csp::test
