#include "objects/time.hpp"
#include "support.hpp"

#include <openssl/x509v3.h>

namespace klunortredi::csp::test {

namespace {

using namespace capi;

char* text(const char* value) {
    return const_cast<char*>(value);
}

void freeExtensions(::X509_EXTENSIONS* list) {
    sk_X509_EXTENSION_pop_free(list, X509_EXTENSION_free);
}

Bytes encodeUsage(std::string_view bits, DWORD unused) {
    Bytes value = hex(bits);
    const CRYPT_BIT_BLOB info{static_cast<DWORD>(value.size()), value.data(), unused};
    return encode(X509_KEY_USAGE, info);
}

TEST(ExtensionsCodec, WritesWhatOpenSslReads) {
    Bytes usage = hex("03 02 06 C0");
    Bytes constraints = hex("30 03 01 01 FF");
    std::array<CERT_EXTENSION, 2> list{CERT_EXTENSION{text("2.5.29.15"), 0, blob(usage)},
                                       CERT_EXTENSION{text("2.5.29.19"), 1, blob(constraints)}};
    const CERT_EXTENSIONS info{2, list.data()};
    const Bytes der = encode(capi::X509_EXTENSIONS, info);
    EXPECT_TRUE((opensslAgrees<d2i_X509_EXTENSIONS, i2d_X509_EXTENSIONS, freeExtensions>(der)));

    const auto back = decode<CERT_EXTENSIONS>(capi::X509_EXTENSIONS, der);
    ASSERT_EQ(back->cExtension, 2U);
    EXPECT_STREQ(back->rgExtension[1].pszObjId, "2.5.29.19");
    EXPECT_EQ(back->rgExtension[0].fCritical, 0);
    EXPECT_EQ(back->rgExtension[1].fCritical, 1);
    EXPECT_EQ(bytes(back->rgExtension[1].Value), constraints);
}

TEST(ExtensionsCodec, ToleratesAnExplicitFalse) {
    const auto back =
        decode<CERT_EXTENSIONS>(capi::X509_EXTENSIONS, hex("30 0E 30 0C 06 03 55 1D 0F 01 01 00 04 02 03 00"));
    EXPECT_EQ(back->rgExtension[0].fCritical, 0);
    EXPECT_EQ(encode(capi::X509_EXTENSIONS, *back), hex("30 0B 30 09 06 03 55 1D 0F 04 02 03 00"));
}

TEST(ExtensionsCodec, RefusesMalformedLists) {
    for (const char* const der : {"31 00", "30 02 05 00", "30 04 30 02 06 00", "30 07 30 05 06 03 55 1D 0F",
                                  "30 0D 30 0B 06 03 55 1D 0F 04 02 03 00 05 00"}) {
        EXPECT_NE(failureOf([&] { decode<CERT_EXTENSIONS>(capi::X509_EXTENSIONS, hex(der)); }), ERROR_SUCCESS) << der;
    }
    CERT_EXTENSION nameless{nullptr, 0, {0, nullptr}};
    const CERT_EXTENSIONS info{1, &nameless};
    EXPECT_EQ(failureOf([&] { encode(capi::X509_EXTENSIONS, info); }), CRYPT_E_OID_FORMAT);
}

TEST(KeyUsageCodec, WritesNoZerosAtTheEnd) {
    EXPECT_EQ(encodeUsage("C0", 0), hex("03 02 06 C0"));
    EXPECT_EQ(encodeUsage("F0", 0), hex("03 02 04 F0"));
    EXPECT_EQ(encodeUsage("80 80", 7), hex("03 03 07 80 80"));
    EXPECT_EQ(encodeUsage("80 00", 0), hex("03 02 07 80"));
    EXPECT_EQ(encodeUsage("FF", 5), hex("03 02 05 E0"));
    EXPECT_EQ(encodeUsage("00", 0), hex("03 01 00"));
    EXPECT_EQ(encodeUsage("", 0), hex("03 01 00"));
    EXPECT_EQ(failureOf([] { encodeUsage("80", 8); }), CRYPT_E_BAD_ENCODE);
}

TEST(KeyUsageCodec, GivesTheBitsAsTheyStand) {
    const auto bits = decode<CRYPT_BIT_BLOB>("2.5.29.15", hex("03 03 07 80 80"));
    EXPECT_EQ(bytes(*bits), hex("80 80"));
    EXPECT_EQ(bits->cUnusedBits, 7U);
}

TEST(BasicConstraintsCodec, WritesWhatOpenSslReads) {
    for (const CERT_BASIC_CONSTRAINTS2_INFO& info :
         {CERT_BASIC_CONSTRAINTS2_INFO{0, 0, 0}, CERT_BASIC_CONSTRAINTS2_INFO{1, 0, 0},
          CERT_BASIC_CONSTRAINTS2_INFO{1, 1, 0}, CERT_BASIC_CONSTRAINTS2_INFO{1, 1, 300}}) {
        const Bytes der = encode(X509_BASIC_CONSTRAINTS2, info);
        EXPECT_TRUE((opensslAgrees<d2i_BASIC_CONSTRAINTS, i2d_BASIC_CONSTRAINTS, BASIC_CONSTRAINTS_free>(der)));
        const auto back = decode<CERT_BASIC_CONSTRAINTS2_INFO>("2.5.29.19", der);
        EXPECT_EQ(back->fCA, info.fCA);
        EXPECT_EQ(back->fPathLenConstraint, info.fPathLenConstraint);
        EXPECT_EQ(back->dwPathLenConstraint, info.dwPathLenConstraint);
    }
}

TEST(BasicConstraintsCodec, RefusesANegativePathLength) {
    EXPECT_EQ(failureOf([] { decode<CERT_BASIC_CONSTRAINTS2_INFO>("2.5.29.19", hex("30 06 01 01 FF 02 01 FF")); }),
              CRYPT_E_ASN1_LARGE);
}

TEST(PoliciesCodec, WritesWhatOpenSslReads) {
    Bytes uri = hex("16 02 68 3A");
    CERT_POLICY_QUALIFIER_INFO qualifier{text("1.3.6.1.5.5.7.2.1"), blob(uri)};
    std::array<CERT_POLICY_INFO, 2> list{CERT_POLICY_INFO{text("1.2.643.100.113.1"), 0, nullptr},
                                         CERT_POLICY_INFO{text("1.2.643.100.113.2"), 1, &qualifier}};
    const CERT_POLICIES_INFO info{2, list.data()};
    const Bytes der = encode(X509_CERT_POLICIES, info);
    EXPECT_TRUE((opensslAgrees<d2i_CERTIFICATEPOLICIES, i2d_CERTIFICATEPOLICIES, CERTIFICATEPOLICIES_free>(der)));

    const auto back = decode<CERT_POLICIES_INFO>("2.5.29.32", der);
    ASSERT_EQ(back->cPolicyInfo, 2U);
    EXPECT_STREQ(back->rgPolicyInfo[0].pszPolicyIdentifier, "1.2.643.100.113.1");
    EXPECT_EQ(back->rgPolicyInfo[0].cPolicyQualifier, 0U);
    ASSERT_EQ(back->rgPolicyInfo[1].cPolicyQualifier, 1U);
    EXPECT_EQ(bytes(back->rgPolicyInfo[1].rgPolicyQualifier[0].Qualifier), uri);
}

TEST(EnhancedKeyUsageCodec, WritesWhatOpenSslReads) {
    std::array<char*, 2> usages{text("1.3.6.1.5.5.7.3.2"), text("1.3.6.1.5.5.7.3.4")};
    const CTL_USAGE info{2, usages.data()};
    const Bytes der = encode(X509_ENHANCED_KEY_USAGE, info);
    EXPECT_TRUE((opensslAgrees<d2i_EXTENDED_KEY_USAGE, i2d_EXTENDED_KEY_USAGE, EXTENDED_KEY_USAGE_free>(der)));
    const auto back = decode<CTL_USAGE>("2.5.29.37", der);
    ASSERT_EQ(back->cUsageIdentifier, 2U);
    EXPECT_STREQ(back->rgpszUsageIdentifier[1], "1.3.6.1.5.5.7.3.4");
}

TEST(KeyAttributesCodec, LeavesOutWhatIsNotGiven) {
    CERT_KEY_ATTRIBUTES_INFO info{};
    EXPECT_EQ(encode(X509_KEY_ATTRIBUTES, info), hex("30 00"));
    Bytes id = hex("01 02");
    Bytes usage = hex("C0");
    CERT_PRIVATE_KEY_VALIDITY period{};
    period.NotAfter = fileTimeOf({2025, 1, 0, 2, 3, 4, 5, 0});
    info.KeyId = blob(id);
    info.IntendedKeyUsage = {1, usage.data(), 0};
    info.pPrivateKeyUsagePeriod = &period;
    const Bytes der = encode(X509_KEY_ATTRIBUTES, info);
    EXPECT_EQ(der, hex("30 1B 04 02 01 02 03 02 06 C0 30 11 81 0F 32 30 32 35 30 31 30 32 30 33 30 34 30 35 5A"));
    const auto back = decode<CERT_KEY_ATTRIBUTES_INFO>(X509_KEY_ATTRIBUTES, der);
    ASSERT_NE(back->pPrivateKeyUsagePeriod, nullptr);
    EXPECT_EQ(back->pPrivateKeyUsagePeriod->NotBefore.dwHighDateTime, 0U);
    EXPECT_EQ(back->pPrivateKeyUsagePeriod->NotAfter.dwLowDateTime, period.NotAfter.dwLowDateTime);
    // The period is that of RFC 3280, 4.2.1.4.
    const Bytes validity(der.begin() + 10, der.end());
    EXPECT_TRUE((opensslAgrees<d2i_PKEY_USAGE_PERIOD, i2d_PKEY_USAGE_PERIOD, PKEY_USAGE_PERIOD_free>(validity)));
}

} // namespace

} // namespace klunortredi::csp::test
