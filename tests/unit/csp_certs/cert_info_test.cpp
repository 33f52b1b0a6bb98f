#include "service.hpp"

#include "x509/cert_info.hpp"
#include "x509/compare_keys.hpp"

#include <gmock/gmock.h>

#include <cstring>

namespace {

using csp::Bytes;
using csp::CertInfo;

Bytes blob(const CRYPTOAPI_BLOB& value) {
    return {value.pbData, value.pbData + value.cbData};
}

DWORD refusal(const Bytes& der) {
    try {
        const CertInfo info(der);
        return capi::ERROR_SUCCESS;
    } catch (const csp::ApiError& error) {
        return error.code();
    }
}

const pki::Entity& sample() {
    static const auto* const entity = new pki::Entity(pki::make(
        {.subject = "Проверка",
         .serial = 0x012345,
         .notBefore = 0,
         .notAfter = 1893456000,
         .extensions = {{NID_key_usage, "critical,digitalSignature"}, {NID_subject_key_identifier, "hash"}}}));
    return *entity;
}

TEST(CertInfo, KeepsTheSerialNumberLeastSignificantOctetFirst) {
    EXPECT_EQ(blob(CertInfo(sample().der).get().SerialNumber), (Bytes{0x45, 0x23, 0x01}));
}

TEST(CertInfo, KeepsTheSignOctetOfALargeSerialNumber) {
    const CertInfo info(pki::make({.subject = "x", .serial = 0xF0}).der);
    EXPECT_EQ(blob(info.get().SerialNumber), (Bytes{0xF0, 0x00}));
}

TEST(CertInfo, TellsVersionAsTheEncodingDoes) {
    EXPECT_EQ(CertInfo(sample().der).get().dwVersion, 2U);
}

TEST(CertInfo, ConvertsValidityToFileTimes) {
    const CertInfo info(sample().der);
    const auto units = [](const FILETIME& time) {
        return (std::uint64_t{time.dwHighDateTime} << 32U) | time.dwLowDateTime;
    };
    EXPECT_EQ(units(info.get().NotBefore), 116444736000000000U);
    EXPECT_EQ(units(info.get().NotAfter), 116444736000000000U + 1893456000UL * 10000000U);
}

TEST(CertInfo, KeepsNamesAndKeyAsTheyStandInTheCertificate) {
    const CertInfo info(sample().der);
    unsigned char* name = nullptr;
    const int nameSize = i2d_X509_NAME(X509_get_subject_name(sample().certificate.get()), &name);
    EXPECT_EQ(blob(info.get().Subject), Bytes(name, name + nameSize));
    EXPECT_EQ(blob(info.get().Issuer), Bytes(name, name + nameSize));
    OPENSSL_free(name);
    const csp::ByteView key = info.subjectPublicKeyInfo();
    EXPECT_NE(std::search(sample().der.begin(), sample().der.end(), key.begin(), key.end()), sample().der.end());
}

TEST(CertInfo, ListsExtensionsInOrderWithTheirCriticality) {
    const CertInfo info(sample().der);
    ASSERT_EQ(info.get().cExtension, 2U);
    EXPECT_STREQ(info.get().rgExtension[0].pszObjId, "2.5.29.15");
    EXPECT_TRUE(info.get().rgExtension[0].fCritical);
    EXPECT_EQ(blob(info.get().rgExtension[0].Value), (Bytes{0x03, 0x02, 0x07, 0x80}));
    EXPECT_STREQ(info.get().rgExtension[1].pszObjId, "2.5.29.14");
    EXPECT_FALSE(info.get().rgExtension[1].fCritical);
}

TEST(CertInfo, RoundTripsThePublicKeyInfo) {
    for (const auto kind : {pki::KeyKind::Ec, pki::KeyKind::Rsa, pki::KeyKind::Gost256, pki::KeyKind::Gost512}) {
        const CertInfo info(pki::make({.subject = "x", .kind = kind}).der);
        const csp::ByteView whole = info.subjectPublicKeyInfo();
        EXPECT_EQ(csp::encodePublicKeyInfo(info.get().SubjectPublicKeyInfo), Bytes(whole.begin(), whole.end()));
    }
}

TEST(CertInfo, DecodesACertificateWhoseKeyAlgorithmNobodyKnows) {
    Bytes der = sample().der;
    const Bytes ecPublicKey{0x06, 0x07, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x02, 0x01};
    const auto at = std::search(der.begin(), der.end(), ecPublicKey.begin(), ecPublicKey.end());
    ASSERT_NE(at, der.end());
    at[8] = 0x7F;
    const CertInfo info(der);
    EXPECT_STREQ(info.get().SubjectPublicKeyInfo.Algorithm.pszObjId, "1.2.840.10045.2.127");
}

TEST(CertInfo, RefusesOctetsBehindTheCertificate) {
    Bytes der = sample().der;
    der.push_back(0);
    EXPECT_EQ(refusal(der), capi::CRYPT_E_ASN1_CORRUPT);
}

TEST(CertInfo, RefusesACertificateCutAnywhere) {
    for (std::size_t size = 0; size < sample().der.size(); ++size) {
        const DWORD code = refusal({sample().der.begin(), sample().der.begin() + static_cast<std::ptrdiff_t>(size)});
        EXPECT_EQ(code, capi::CRYPT_E_ASN1_EOD) << "cut at " << size;
    }
}

TEST(CertInfo, TellsAnotherTypeFromACorruptCertificate) {
    EXPECT_EQ(refusal({0x04, 0x02, 0x01, 0x02}), capi::CRYPT_E_ASN1_BADTAG);
    EXPECT_EQ(refusal({0x30, 0x02, 0x05, 0x00}), capi::CRYPT_E_ASN1_CORRUPT);
}

TEST(CertInfo, LeavesNothingOnTheErrorQueueOfTheHost) {
    ERR_clear_error();
    refusal({0x30, 0x02, 0x05, 0x00});
    EXPECT_EQ(ERR_peek_error(), 0U);
}

/// Every octet changed in turn: whatever the answer, it is an answer.
TEST(CertInfo, SurvivesEveryChangedOctet) {
    std::size_t decoded = 0;
    for (std::size_t at = 0; at < sample().der.size(); ++at) {
        Bytes der = sample().der;
        der[at] ^= 0xFFU;
        const DWORD code = refusal(der);
        EXPECT_TRUE(code == capi::ERROR_SUCCESS || (code >> 8U) == (capi::CRYPT_E_ASN1_ERROR >> 8U) ||
                    code == capi::CRYPT_E_OID_FORMAT)
            << std::hex << code << " at " << at;
        decoded += code == capi::ERROR_SUCCESS ? 1U : 0U;
    }
    EXPECT_GT(decoded, 0U);
    EXPECT_LT(decoded, sample().der.size());
}

class KeyComparison : public testing::Test {
protected:
    static CERT_PUBLIC_KEY_INFO key(const CertInfo& info) { return info.get().SubjectPublicKeyInfo; }
    const CertInfo rsa_{pki::make({.subject = "x", .kind = pki::KeyKind::Rsa}).der};
    const CertInfo gost_{pki::make({.subject = "x", .kind = pki::KeyKind::Gost256}).der};
};

TEST_F(KeyComparison, MeetsTheSameKeyAndNoOther) {
    CERT_PUBLIC_KEY_INFO rsa = key(rsa_);
    CERT_PUBLIC_KEY_INFO gost = key(gost_);
    EXPECT_TRUE(api::CertComparePublicKeyInfo(encodings, &rsa, &rsa));
    EXPECT_TRUE(api::CertComparePublicKeyInfo(encodings, &gost, &gost));
    EXPECT_FALSE(api::CertComparePublicKeyInfo(encodings, &rsa, &gost));
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_NO_MATCH);
    EXPECT_FALSE(api::CertComparePublicKeyInfo(encodings, nullptr, &gost));
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
}

TEST_F(KeyComparison, TakesNullParametersForNone) {
    CERT_PUBLIC_KEY_INFO bare = key(rsa_);
    ASSERT_EQ(bare.Algorithm.Parameters.cbData, 2U);
    bare.Algorithm.Parameters = {};
    EXPECT_TRUE(csp::samePublicKey(bare, key(rsa_)));
}

TEST_F(KeyComparison, TellsOtherParametersApart) {
    CERT_PUBLIC_KEY_INFO other = key(gost_);
    Bytes parameters = blob(other.Algorithm.Parameters);
    ++parameters[parameters[3] + 3U]; // the last arc of the curve's OID
    other.Algorithm.Parameters.pbData = parameters.data();
    EXPECT_FALSE(csp::samePublicKey(other, key(gost_)));
    other.Algorithm.Parameters = {};
    EXPECT_TRUE(csp::samePublicKey(other, key(gost_)));
}

TEST_F(KeyComparison, TakesAGostKeyUnderItsAgreementOidForTheSame) {
    CERT_PUBLIC_KEY_INFO agreement = key(gost_);
    std::string oid = "1.2.643.7.1.1.6.1";
    agreement.Algorithm.pszObjId = oid.data();
    EXPECT_TRUE(csp::samePublicKey(agreement, key(gost_)));
}

TEST_F(KeyComparison, TellsAnotherKeyOfTheSameAlgorithmApart) {
    CERT_PUBLIC_KEY_INFO other = key(gost_);
    Bytes bits(other.PublicKey.pbData, other.PublicKey.pbData + other.PublicKey.cbData);
    bits.back() ^= 1U;
    other.PublicKey.pbData = bits.data();
    EXPECT_FALSE(csp::samePublicKey(other, key(gost_)));
}

TEST_F(KeyComparison, TakesTwoEmptyKeysForEqual) {
    CERT_PUBLIC_KEY_INFO one{};
    CERT_PUBLIC_KEY_INFO other{};
    std::string nothing;
    other.Algorithm.pszObjId = nothing.data();
    EXPECT_TRUE(api::CertComparePublicKeyInfo(encodings, &one, &other));
}

} // namespace
