#include "asn1/der.hpp"
#include "objects/time.hpp"
#include "support.hpp"

#include <openssl/ts.h>

namespace klunortredi::csp::test {

namespace {

using namespace capi;

struct Request {
    Bytes hash = Bytes(20, 0xAB);
    Bytes nonce;
    CRYPT_TIMESTAMP_REQUEST info{};

    explicit Request(std::string_view nonceText = "") : nonce(hex(nonceText)) {
        info.dwVersion = 1;
        info.HashAlgorithm.pszObjId = const_cast<char*>("1.3.14.3.2.26");
        info.HashedMessage = blob(hash);
        info.Nonce = blob(nonce);
        info.fCertReq = 1;
    }
};

TEST(TimestampRequestCodec, WritesWhatOpenSslReads) {
    for (const char* const nonce : {"", "01", "80", "FF FF FF FF", "01 02 03 04 05 06 07 88"}) {
        Request request(nonce);
        const Bytes der = encode(TIMESTAMP_REQUEST, request.info);
        EXPECT_TRUE((opensslAgrees<d2i_TS_REQ, i2d_TS_REQ, TS_REQ_free>(der))) << nonce;
        const auto back = decode<CRYPT_TIMESTAMP_REQUEST>(TIMESTAMP_REQUEST, der);
        EXPECT_EQ(bytes(back->Nonce), request.nonce);
        EXPECT_EQ(bytes(back->HashedMessage), request.hash);
        EXPECT_EQ(back->HashAlgorithm.Parameters.cbData, 0U);
        EXPECT_EQ(back->fCertReq, 1);
        EXPECT_EQ(back->pszTSAPolicyId, nullptr);
    }
}

TEST(TimestampRequestCodec, TakesTheNonceLeastSignificantOctetFirstAndNeverNegative) {
    Request request("01 02 83");
    const Bytes der = encode(TIMESTAMP_REQUEST, request.info);
    const unsigned char* at = der.data();
    TS_REQ* const read = d2i_TS_REQ(nullptr, &at, static_cast<long>(der.size()));
    ASSERT_NE(read, nullptr);
    std::int64_t nonce = 0;
    EXPECT_EQ(ASN1_INTEGER_get_int64(&nonce, TS_REQ_get_nonce(read)), 1);
    EXPECT_EQ(nonce, 0x830201);
    TS_REQ_free(read);
}

TEST(TimestampRequestCodec, CarriesPolicyAndExtensions) {
    Request request("05");
    Bytes value = hex("03 02 06 C0");
    CERT_EXTENSION extension{const_cast<char*>("2.5.29.15"), 0, blob(value)};
    request.info.pszTSAPolicyId = const_cast<char*>("1.2.3.4");
    request.info.cExtension = 1;
    request.info.rgExtension = &extension;
    request.info.fCertReq = 0;
    const Bytes der = encode(TIMESTAMP_REQUEST, request.info);
    EXPECT_TRUE((opensslAgrees<d2i_TS_REQ, i2d_TS_REQ, TS_REQ_free>(der)));
    const auto back = decode<CRYPT_TIMESTAMP_REQUEST>(TIMESTAMP_REQUEST, der);
    EXPECT_STREQ(back->pszTSAPolicyId, "1.2.3.4");
    EXPECT_EQ(back->cExtension, 1U);
    EXPECT_EQ(back->fCertReq, 0);
}

TEST(TimestampRequestCodec, RefusesParametersOfTheDigestThatAreMalformedInside) {
    Bytes der = hex("30 1B 02 01 01 30 13 30 0B 06 05 2B 0E 03 02 1A 02 02 00 01 04 04 AB AB AB AB 01 01 FF");
    EXPECT_EQ(failureOf([&] { decode<CRYPT_TIMESTAMP_REQUEST>(TIMESTAMP_REQUEST, der); }), CRYPT_E_ASN1_CORRUPT)
        << "an INTEGER in a longer form than it needs";
    der = hex("30 19 02 01 01 30 11 30 09 06 05 2B 0E 03 02 1A 02 00 04 04 AB AB AB AB 01 01 FF");
    EXPECT_EQ(failureOf([&] { decode<CRYPT_TIMESTAMP_REQUEST>(TIMESTAMP_REQUEST, der); }), CRYPT_E_ASN1_CORRUPT)
        << "an INTEGER without octets";
    der = hex("30 19 02 01 01 30 11 30 09 06 05 2B 0E 03 02 1A 05 00 04 04 AB AB AB AB 01 01 FF");
    EXPECT_EQ(encode(TIMESTAMP_REQUEST, *decode<CRYPT_TIMESTAMP_REQUEST>(TIMESTAMP_REQUEST, der)), der);
}

TEST(TimestampResponseCodec, GivesStatusTextsAndToken) {
    const auto granted = decode<CRYPT_TIMESTAMP_RESPONSE>(
        TIMESTAMP_RESPONSE, hex("30 1A 30 0B 02 01 00 30 06 0C 04 D0 98 D0 B2 30 0B 06 09 2A 86 48 86 F7 0D 01 07 02"));
    EXPECT_EQ(granted->dwStatus, 0U);
    ASSERT_EQ(granted->cFreeText, 1U);
    EXPECT_EQ(std::wstring(granted->rgFreeText[0]), L"Ив");
    EXPECT_EQ(granted->ContentInfo.cbData, 13U);
    const auto rejected = decode<CRYPT_TIMESTAMP_RESPONSE>(TIMESTAMP_RESPONSE, hex("30 09 30 07 02 01 02 03 02 05 20"));
    EXPECT_EQ(rejected->dwStatus, 2U);
    EXPECT_EQ(bytes(rejected->FailureInfo), hex("20"));
    EXPECT_EQ(rejected->ContentInfo.pbData, nullptr);
    EXPECT_TRUE((opensslAgrees<d2i_TS_RESP, i2d_TS_RESP, TS_RESP_free>(encode(TIMESTAMP_RESPONSE, *rejected))));
}

TEST(TimestampResponseCodec, HandsOutATokenInBerAsItIs) {
    const Bytes token = hex("30 80 06 03 2A 03 04 00 00");
    const auto response =
        decode<CRYPT_TIMESTAMP_RESPONSE>(TIMESTAMP_RESPONSE, der::sequence({hex("30 03 02 01 00"), token}));
    EXPECT_EQ(bytes(response->ContentInfo), token);
    for (const char* const bad : {"30 80 06 03 2A 03 04", "02 01 05", "30 00 00"}) {
        const Bytes der = der::sequence({hex("30 03 02 01 00"), hex(bad)});
        EXPECT_EQ(failureOf([&] { decode<CRYPT_TIMESTAMP_RESPONSE>(TIMESTAMP_RESPONSE, der); }), CRYPT_E_ASN1_CORRUPT)
            << bad;
    }
}

TEST(TimestampInfoCodec, WritesWhatOpenSslReads) {
    Bytes hash(20, 0xAB);
    Bytes serial = hex("45 23 01");
    Bytes nonce = hex("02 80");
    Bytes tsa = hex("82 03 74 73 61");
    CRYPT_TIMESTAMP_ACCURACY accuracy{1, 500, 0};
    CRYPT_TIMESTAMP_INFO info{};
    info.dwVersion = 1;
    info.pszTSAPolicyId = const_cast<char*>("1.2.3.4");
    info.HashAlgorithm.pszObjId = const_cast<char*>("1.3.14.3.2.26");
    info.HashedMessage = blob(hash);
    info.SerialNumber = blob(serial);
    info.ftTime = fileTimeOf({2023, 11, 0, 14, 22, 13, 20, 125});
    info.pvAccuracy = &accuracy;
    info.fOrdering = 1;
    info.Nonce = blob(nonce);
    info.Tsa = blob(tsa);
    const Bytes der = encode(TIMESTAMP_INFO, info);
    ASSERT_TRUE((opensslAgrees<d2i_TS_TST_INFO, i2d_TS_TST_INFO, TS_TST_INFO_free>(der)));

    const auto back = decode<CRYPT_TIMESTAMP_INFO>(TIMESTAMP_INFO, der);
    EXPECT_EQ(back->dwVersion, 1U);
    EXPECT_STREQ(back->pszTSAPolicyId, "1.2.3.4");
    EXPECT_EQ(bytes(back->HashedMessage), hash);
    EXPECT_EQ(bytes(back->SerialNumber), serial);
    EXPECT_EQ(back->ftTime.dwLowDateTime, info.ftTime.dwLowDateTime);
    EXPECT_EQ(back->ftTime.dwHighDateTime, info.ftTime.dwHighDateTime);
    ASSERT_NE(back->pvAccuracy, nullptr);
    EXPECT_EQ(back->pvAccuracy->dwMillis, 500U);
    EXPECT_EQ(back->fOrdering, 1);
    EXPECT_EQ(bytes(back->Nonce), nonce);
    EXPECT_EQ(bytes(back->Tsa), tsa);
}

TEST(TimestampInfoCodec, LeavesOutWhatIsNotThere) {
    const auto info = decode<CRYPT_TIMESTAMP_INFO>(
        TIMESTAMP_INFO, hex("30 2B 02 01 01 06 03 2A 03 04 30 0D 30 07 06 05 2B 0E 03 02 1A 04 02 AB CD 02 01 05 18 0F "
                            "32 30 32 33 31 31 31 34 32 32 31 33 32 30 5A"));
    EXPECT_EQ(info->pvAccuracy, nullptr);
    EXPECT_EQ(info->Nonce.pbData, nullptr);
    EXPECT_EQ(info->Tsa.pbData, nullptr);
    EXPECT_EQ(info->rgExtension, nullptr);
    EXPECT_EQ(info->fOrdering, 0);
}

} // namespace

} // namespace klunortredi::csp::test
