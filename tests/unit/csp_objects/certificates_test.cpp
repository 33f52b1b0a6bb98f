#include "asn1/der.hpp"
#include "core/ossl.hpp"
#include "samples.hpp"
#include "support.hpp"
#include "x509/cert_info.hpp"

namespace klunortredi::csp::test {

namespace {

using namespace capi;

TEST(CertificateCodec, TakesACertificateApart) {
    const auto parts = decode<CERT_SIGNED_CONTENT_INFO>(X509_CERT, sampleCertificate());
    EXPECT_STREQ(parts->SignatureAlgorithm.pszObjId, "1.2.840.10045.4.3.2");
    EXPECT_EQ(encode(X509_CERT, *parts), sampleCertificate());
}

TEST(CertificateCodec, DescribesACertificateAndItsToBeSignedPart) {
    const auto parts = decode<CERT_SIGNED_CONTENT_INFO>(X509_CERT, sampleCertificate());
    const Bytes toBeSigned = bytes(parts->ToBeSigned);
    for (const Bytes& der : {sampleCertificate(), toBeSigned}) {
        const auto info = decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, der);
        EXPECT_EQ(info->dwVersion, 2U);
        EXPECT_EQ(bytes(info->SerialNumber), hex("45 23 01"));
        EXPECT_EQ(info->cExtension, 2U);
        EXPECT_STREQ(info->SubjectPublicKeyInfo.Algorithm.pszObjId, "1.2.840.10045.2.1");
        EXPECT_EQ(bytes(info->Issuer), bytes(info->Subject));
        EXPECT_EQ(encode(X509_CERT_TO_BE_SIGNED, *info), toBeSigned);
    }
}

TEST(CertificateCodec, AgreesWithTheDescriptionThatContextsCarry) {
    const CertInfo carried(sampleCertificate());
    const auto decoded = decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, sampleCertificate());
    EXPECT_EQ(encode(X509_CERT_TO_BE_SIGNED, carried.get()), encode(X509_CERT_TO_BE_SIGNED, *decoded));
    EXPECT_EQ(encode(X509_PUBLIC_KEY_INFO, carried.get().SubjectPublicKeyInfo),
              Bytes(carried.subjectPublicKeyInfo().begin(), carried.subjectPublicKeyInfo().end()));
}

TEST(CertificateCodec, RefusesACertificateCutAnywhere) {
    const Bytes& whole = sampleCertificate();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const ByteView cut = ByteView(whole).first(size);
        EXPECT_EQ(failureOf([&] { decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, cut); }), CRYPT_E_ASN1_EOD) << size;
    }
    Bytes longer = whole;
    longer.push_back(0);
    EXPECT_EQ(failureOf([&] { decode<CERT_INFO>(X509_CERT_TO_BE_SIGNED, longer); }), CRYPT_E_ASN1_CORRUPT);
}

TEST(RequestCodec, WritesWhatOpenSslReads) {
    Bytes subject = hex("30 0D 31 0B 30 09 06 03 55 04 06 13 02 52 55");
    Bytes value = hex("0C 00");
    Bytes key = hex("00 AA");
    Bytes parameters = hex("05 00");
    CRYPT_ATTR_BLOB member = blob(value);
    std::array<CRYPT_ATTRIBUTE, 2> attributes{CRYPT_ATTRIBUTE{const_cast<char*>("1.3.6.1.4.1.311.13.2.3"), 1, &member},
                                              CRYPT_ATTRIBUTE{const_cast<char*>("1.2.3"), 1, &member}};
    CERT_REQUEST_INFO info{};
    info.Subject = blob(subject);
    info.SubjectPublicKeyInfo = {{const_cast<char*>("1.2.840.113549.1.1.1"), blob(parameters)}, {2, key.data(), 0}};
    info.cAttribute = 2;
    info.rgAttribute = attributes.data();
    const Bytes der = encode(X509_CERT_REQUEST_TO_BE_SIGNED, info);

    // OpenSSL gives the to-be-signed part only inside a request.
    const Bytes request = der::sequence({der, hex("30 05 06 03 2A 03 04"), hex("03 01 00")});
    EXPECT_TRUE((opensslAgrees<d2i_X509_REQ, i2d_X509_REQ, X509_REQ_free>(request)));

    const auto back = decode<CERT_REQUEST_INFO>(X509_CERT_REQUEST_TO_BE_SIGNED, der);
    ASSERT_EQ(back->cAttribute, 2U);
    EXPECT_STREQ(back->rgAttribute[0].pszObjId, "1.2.3"); // the members of a SET come sorted
    EXPECT_EQ(bytes(back->rgAttribute[1].rgValue[0]), value);
    EXPECT_EQ(bytes(back->Subject), subject);
    EXPECT_EQ(encode(X509_CERT_REQUEST_TO_BE_SIGNED, *back), der);
}

TEST(RequestCodec, WritesAnEmptySubjectAndNoAttributes) {
    CERT_REQUEST_INFO info{};
    info.SubjectPublicKeyInfo.Algorithm.pszObjId = const_cast<char*>("1.2.3");
    EXPECT_EQ(encode(X509_CERT_REQUEST_TO_BE_SIGNED, info),
              hex("30 12 02 01 00 30 00 30 09 30 04 06 02 2A 03 03 01 00 A0 00"));
}

TEST(AttributeCodec, SortsValuesAndCarriesATokenInBer) {
    Bytes second = hex("02 01 02");
    Bytes first = hex("02 01 01");
    std::array<CRYPT_ATTR_BLOB, 2> values{blob(second), blob(first)};
    const CRYPT_ATTRIBUTE attribute{const_cast<char*>("1.2.3.4"), 2, values.data()};
    EXPECT_EQ(encode(PKCS_ATTRIBUTE, attribute), hex("30 0D 06 03 2A 03 04 31 06 02 01 01 02 01 02"));

    Bytes token = hex("30 80 02 01 05 00 00");
    CRYPT_ATTR_BLOB value = blob(token);
    const CRYPT_ATTRIBUTE timestamp{const_cast<char*>("1.2.840.113549.1.9.16.2.14"), 1, &value};
    const Bytes der = encode(PKCS_ATTRIBUTE, timestamp);
    const unsigned char* at = der.data();
    X509_ATTRIBUTE* const read = d2i_X509_ATTRIBUTE(nullptr, &at, static_cast<long>(der.size()));
    EXPECT_NE(read, nullptr);
    X509_ATTRIBUTE_free(read);
    value.cbData -= 1;
    EXPECT_EQ(failureOf([&] { encode(PKCS_ATTRIBUTE, timestamp); }), CRYPT_E_BAD_ENCODE);
}

TEST(EnrollmentCodec, WritesNameValuePairsAsBmpStrings) {
    std::wstring name = L"Имя";
    std::wstring value = L"v";
    const CRYPT_ENROLLMENT_NAME_VALUE_PAIR pair{name.data(), value.data()};
    const Bytes der = encode(szOID_ENROLLMENT_NAME_VALUE_PAIR, pair);
    EXPECT_EQ(der, hex("30 0C 1E 06 04 18 04 3C 04 4F 1E 02 00 76"));
    const auto back = decode<CRYPT_ENROLLMENT_NAME_VALUE_PAIR>(szOID_ENROLLMENT_NAME_VALUE_PAIR, der);
    EXPECT_EQ(std::wstring(back->pwszName), name);
    std::wstring astral = L"😀";
    const CRYPT_ENROLLMENT_NAME_VALUE_PAIR tooWide{astral.data(), nullptr};
    EXPECT_EQ(failureOf([&] { encode(szOID_ENROLLMENT_NAME_VALUE_PAIR, tooWide); }), CRYPT_E_BAD_ENCODE);
    const auto zero = hex("30 0A 1E 04 00 61 00 00 1E 02 00 76");
    EXPECT_EQ(failureOf([&] { decode<CRYPT_ENROLLMENT_NAME_VALUE_PAIR>(szOID_ENROLLMENT_NAME_VALUE_PAIR, zero); }),
              CRYPT_E_ASN1_CORRUPT);
}

TEST(EnrollmentCodec, WritesTheProvider) {
    std::wstring name = L"A";
    Bytes signature = hex("AA");
    const CRYPT_CSP_PROVIDER provider{1, name.data(), {1, signature.data(), 0}};
    const Bytes der = encode(szOID_ENROLLMENT_CSP_PROVIDER, provider);
    EXPECT_EQ(der, hex("30 0B 02 01 01 1E 02 00 41 03 02 00 AA"));
    const auto back = decode<CRYPT_CSP_PROVIDER>(szOID_ENROLLMENT_CSP_PROVIDER, der);
    EXPECT_EQ(back->dwKeySpec, 1U);
    EXPECT_EQ(bytes(back->Signature), signature);
    const CRYPT_CSP_PROVIDER bare{1, nullptr, {0, nullptr, 0}};
    EXPECT_EQ(encode(szOID_ENROLLMENT_CSP_PROVIDER, bare), hex("30 08 02 01 01 1E 00 03 01 00"));
}

} // namespace

} // namespace klunortredi::csp::test
