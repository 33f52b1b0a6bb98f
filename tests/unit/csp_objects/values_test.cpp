#include "support.hpp"

#include <openssl/asn1.h>

namespace klunortredi::csp::test {

namespace {

using namespace capi;

Bytes encodeString(DWORD valueType, std::string_view octets) {
    Bytes value(octets.begin(), octets.end());
    const CERT_NAME_VALUE info{valueType, blob(value)};
    return encode(X509_NAME_VALUE, info);
}

std::wstring wideOf(const CERT_RDN_VALUE_BLOB& value) {
    return {reinterpret_cast<const wchar_t*>(value.pbData), value.cbData / sizeof(wchar_t)};
}

TEST(IntegerCodec, WritesTheKnownEncodings) {
    EXPECT_EQ(encode(X509_INTEGER, LONG{0}), hex("02 01 00"));
    EXPECT_EQ(encode(X509_INTEGER, LONG{0x80}), hex("02 02 00 80"));
    EXPECT_EQ(encode(X509_INTEGER, LONG{-1}), hex("02 01 FF"));
    EXPECT_EQ(encode(X509_INTEGER, LONG{0x7FFFFFFF}), hex("02 04 7F FF FF FF"));
    EXPECT_EQ(*decode<LONG>(X509_INTEGER, hex("02 04 80 00 00 00")), std::numeric_limits<LONG>::min());
}

TEST(IntegerCodec, RefusesNumbersOutOfRange) {
    EXPECT_EQ(failureOf([] { decode<LONG>(X509_INTEGER, hex("02 05 00 80 00 00 00")); }), CRYPT_E_ASN1_LARGE);
    EXPECT_EQ(failureOf([] { decode<LONG>(X509_INTEGER, hex("04 01 00")); }), CRYPT_E_ASN1_BADTAG);
}

TEST(MultiByteIntegerCodec, KeepsTheLeastSignificantOctetFirst) {
    Bytes value = hex("45 23 01");
    EXPECT_EQ(encode(X509_MULTI_BYTE_INTEGER, blob(value)), hex("02 03 01 23 45"));
    EXPECT_EQ(bytes(*decode<CRYPT_INTEGER_BLOB>(X509_MULTI_BYTE_INTEGER, hex("02 03 01 23 45"))), value);
    Bytes padded = hex("05 00 00");
    EXPECT_EQ(encode(X509_MULTI_BYTE_INTEGER, blob(padded)), hex("02 01 05"));
    Bytes none;
    EXPECT_EQ(failureOf([&] { encode(X509_MULTI_BYTE_INTEGER, blob(none)); }), CRYPT_E_BAD_ENCODE);
}

TEST(OctetStringCodec, WrapsOctets) {
    Bytes value = hex("01 02 03");
    EXPECT_EQ(encode(X509_OCTET_STRING, blob(value)), hex("04 03 01 02 03"));
    EXPECT_EQ(encode(szOID_SUBJECT_KEY_IDENTIFIER, blob(value)), hex("04 03 01 02 03"));
    Bytes none;
    EXPECT_EQ(encode(X509_OCTET_STRING, blob(none)), hex("04 00"));
    EXPECT_EQ(decode<CRYPT_DATA_BLOB>(X509_OCTET_STRING, hex("04 00"))->cbData, 0U);
}

TEST(NameValueCodec, WritesWideAndByteTextAsUtf8String) {
    std::wstring wide = L"Иванов";
    const CERT_NAME_VALUE info{CERT_RDN_UTF8_STRING,
                               {static_cast<DWORD>(wide.size()), reinterpret_cast<BYTE*>(wide.data())}};
    const Bytes expected = hex("0C 0C D0 98 D0 B2 D0 B0 D0 BD D0 BE D0 B2");
    EXPECT_EQ(encode(X509_NAME_VALUE, info), expected);
    EXPECT_EQ(encodeString(CERT_RDN_UTF8_STRING, "Иванов"), expected);
}

TEST(NameValueCodec, AnEmptyWideStringIsAnEmptyUtf8String) {
    std::wstring wide;
    const CERT_NAME_VALUE info{CERT_RDN_UTF8_STRING, {0, reinterpret_cast<BYTE*>(wide.data())}};
    EXPECT_EQ(encode(X509_NAME_VALUE, info), hex("0C 00"));
}

TEST(NameValueCodec, WritesOctetStrings) {
    EXPECT_EQ(encodeString(CERT_RDN_OCTET_STRING, "\x01\x02\x03"), hex("04 03 01 02 03"));
}

TEST(NameValueCodec, ChecksAlphabets) {
    EXPECT_EQ(encodeString(CERT_RDN_NUMERIC_STRING, "12 34"), hex("12 05 31 32 20 33 34"));
    EXPECT_EQ(encodeString(CERT_RDN_PRINTABLE_STRING, "RU"), hex("13 02 52 55"));
    EXPECT_EQ(encodeString(CERT_RDN_IA5_STRING, "a@b"), hex("16 03 61 40 62"));
    EXPECT_EQ(encodeString(CERT_RDN_BMP_STRING, "\x04\x18"), hex("1E 02 04 18"));
    struct Row {
        DWORD type;
        const char* text;
        DWORD error;
    };
    for (const Row& row :
         {Row{CERT_RDN_NUMERIC_STRING, "12a", CRYPT_E_INVALID_NUMERIC_STRING},
          Row{CERT_RDN_PRINTABLE_STRING, "a@b", CRYPT_E_INVALID_PRINTABLE_STRING},
          Row{CERT_RDN_PRINTABLE_STRING, "Я", CRYPT_E_INVALID_PRINTABLE_STRING},
          Row{CERT_RDN_IA5_STRING, "Я", CRYPT_E_INVALID_IA5_STRING},
          Row{CERT_RDN_VISIBLE_STRING, "a\n", CRYPT_E_BAD_ENCODE}, Row{CERT_RDN_BMP_STRING, "abc", CRYPT_E_BAD_ENCODE},
          Row{CERT_RDN_BMP_STRING, "\xD8\x01", CRYPT_E_BAD_ENCODE},
          Row{CERT_RDN_ENCODED_BLOB, "\x02\x01", CRYPT_E_BAD_ENCODE}, Row{CERT_RDN_ANY_TYPE, "a", CRYPT_E_BAD_ENCODE},
          Row{99, "a", CRYPT_E_BAD_ENCODE}}) {
        EXPECT_EQ(failureOf([&] { encodeString(row.type, row.text); }), row.error) << row.type << row.text;
    }
}

TEST(NameValueCodec, ReadsUtf8StringsAsWideCharacters) {
    const auto value = decode<CERT_NAME_VALUE>(X509_ANY_STRING, hex("0C 04 D0 98 D0 B2"));
    EXPECT_EQ(value->dwValueType, CERT_RDN_UTF8_STRING);
    EXPECT_EQ(value->Value.cbData, 8U);
    EXPECT_EQ(wideOf(value->Value), L"Ив");
    // A terminating zero stands behind what is counted.
    EXPECT_EQ(reinterpret_cast<const wchar_t*>(value->Value.pbData)[2], L'\0');
}

TEST(NameValueCodec, ReadsOtherStringsAsTheirOctets) {
    const auto printable = decode<CERT_NAME_VALUE>(X509_ANY_STRING, hex("13 02 52 55"));
    EXPECT_EQ(printable->dwValueType, CERT_RDN_PRINTABLE_STRING);
    EXPECT_EQ(bytes(printable->Value), hex("52 55"));
    const auto bmp = decode<CERT_NAME_VALUE>(X509_ANY_STRING, hex("1E 02 04 18"));
    EXPECT_EQ(bmp->dwValueType, CERT_RDN_BMP_STRING);
    EXPECT_EQ(bytes(bmp->Value), hex("04 18"));
}

TEST(NameValueCodec, ReadsWhatIsNoStringAsItsWholeEncoding) {
    const Bytes der = hex("30 06 0C 01 61 0C 01 62");
    const auto value = decode<CERT_NAME_VALUE>(X509_ANY_STRING, der);
    EXPECT_EQ(value->dwValueType, CERT_RDN_ENCODED_BLOB);
    EXPECT_EQ(bytes(value->Value), der);
}

TEST(NameValueCodec, RefusesMalformedUtf8) {
    for (const char* const text : {"0C 01 D0", "0C 02 C0 80", "0C 03 ED A0 80", "0C 04 F4 90 80 80", "0C 01 80"}) {
        EXPECT_EQ(failureOf([&] { decode<CERT_NAME_VALUE>(X509_ANY_STRING, hex(text)); }), CRYPT_E_ASN1_UTF8) << text;
    }
}

TEST(UnicodeNameValueCodec, TakesWideTextByOctetsOrToItsZero) {
    std::wstring text = L"Ив1";
    const auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    auto* const data = reinterpret_cast<BYTE*>(text.data());
    for (const DWORD given : {size, DWORD{0}}) {
        const CERT_NAME_VALUE utf8{CERT_RDN_UTF8_STRING, {given, data}};
        EXPECT_EQ(encode(X509_UNICODE_NAME_VALUE, utf8), hex("0C 05 D0 98 D0 B2 31"));
        const CERT_NAME_VALUE bmp{CERT_RDN_BMP_STRING, {given, data}};
        EXPECT_EQ(encode(X509_UNICODE_NAME_VALUE, bmp), hex("1E 06 04 18 04 32 00 31"));
        const CERT_NAME_VALUE printable{CERT_RDN_PRINTABLE_STRING, {given, data}};
        EXPECT_EQ(failureOf([&] { encode(X509_UNICODE_NAME_VALUE, printable); }), CRYPT_E_INVALID_PRINTABLE_STRING);
    }
}

TEST(UnicodeNameValueCodec, ReadsEveryStringTypeAsWideCharacters) {
    for (const char* const text : {"0C 02 41 42", "13 02 41 42", "16 02 41 42", "1E 04 00 41 00 42",
                                   "1C 08 00 00 00 41 00 00 00 42", "14 02 41 42", "1A 02 41 42"}) {
        EXPECT_EQ(wideOf(decode<CERT_NAME_VALUE>(X509_UNICODE_ANY_STRING, hex(text))->Value), L"AB") << text;
    }
    EXPECT_EQ(failureOf([] { decode<CERT_NAME_VALUE>(X509_UNICODE_ANY_STRING, hex("1E 03 00 41 00")); }),
              CRYPT_E_ASN1_CORRUPT);
}

TEST(SequenceOfAnyCodec, GivesEachElementWhole) {
    const auto sequence = decode<CRYPT_SEQUENCE_OF_ANY>(X509_SEQUENCE_OF_ANY, hex("30 09 80 01 61 02 01 05 0C 01 62"));
    ASSERT_EQ(sequence->cValue, 3U);
    EXPECT_EQ(bytes(sequence->rgValue[0]), hex("80 01 61"));
    EXPECT_EQ(bytes(sequence->rgValue[2]), hex("0C 01 62"));
    EXPECT_EQ(encode(X509_SEQUENCE_OF_ANY, *sequence), hex("30 09 80 01 61 02 01 05 0C 01 62"));
}

TEST(SequenceOfAnyCodec, RefusesAMemberThatIsNotOneValue) {
    Bytes truncated = hex("02 02 05");
    CRYPT_DER_BLOB member = blob(truncated);
    const CRYPT_SEQUENCE_OF_ANY sequence{1, &member};
    EXPECT_EQ(failureOf([&] { encode(X509_SEQUENCE_OF_ANY, sequence); }), CRYPT_E_BAD_ENCODE);
}

} // namespace

} // namespace klunortredi::csp::test
