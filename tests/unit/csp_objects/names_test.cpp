#include "exports/export.hpp"
#include "objects/name_text.hpp"
#include "support.hpp"

#include <openssl/x509v3.h>

namespace klunortredi::csp::test {

namespace {

using namespace capi;

struct Attribute {
    const char* oid;
    DWORD type;
    std::string value;
};

/// A name of RDNs of one or more attributes.
Bytes name(std::vector<std::vector<Attribute>> rdns) {
    std::vector<std::vector<CERT_RDN_ATTR>> attributes;
    std::vector<CERT_RDN> list;
    attributes.reserve(rdns.size());
    for (auto& rdn : rdns) {
        auto& own = attributes.emplace_back();
        for (Attribute& attribute : rdn) {
            own.push_back(
                {const_cast<char*>(attribute.oid),
                 attribute.type,
                 {static_cast<DWORD>(attribute.value.size()), reinterpret_cast<BYTE*>(attribute.value.data())}});
        }
        list.push_back({static_cast<DWORD>(own.size()), own.data()});
    }
    const CERT_NAME_INFO info{static_cast<DWORD>(list.size()), list.data()};
    return encode(capi::X509_NAME, info);
}

std::wstring written(Bytes der, DWORD flags) {
    CERT_NAME_BLOB encoded = blob(der);
    const DWORD size = exports::CertNameToStrW(X509_AND_PKCS_7, &encoded, flags, nullptr, 0);
    std::wstring text(size, L'?');
    EXPECT_EQ(exports::CertNameToStrW(X509_AND_PKCS_7, &encoded, flags, text.data(), size), size);
    EXPECT_EQ(text.back(), L'\0');
    text.pop_back();
    return text;
}

const Bytes& ivanov() {
    static const Bytes der = name({{{"2.5.4.6", CERT_RDN_PRINTABLE_STRING, "RU"}},
                                   {{"2.5.4.3", CERT_RDN_UTF8_STRING, "Иванов Иван"}},
                                   {{"1.2.643.3.131.1.1", CERT_RDN_NUMERIC_STRING, "001234567890"},
                                    {"1.2.840.113549.1.9.1", CERT_RDN_IA5_STRING, "i@example.com"}}});
    return der;
}

TEST(NameCodec, WideValueEndsWithTheOctetsThatItsSizeCounts) {
    std::wstring text = L"Иванов" + std::wstring(64, L'!');
    CERT_RDN_ATTR attribute{const_cast<char*>("2.5.4.3"),
                            CERT_RDN_UTF8_STRING,
                            {6 * sizeof(wchar_t), reinterpret_cast<BYTE*>(text.data())}};
    CERT_RDN rdn{1, &attribute};
    EXPECT_EQ(encode(capi::X509_NAME, CERT_NAME_INFO{1, &rdn}), name({{{"2.5.4.3", CERT_RDN_UTF8_STRING, "Иванов"}}}));
}

TEST(NameCodec, WritesWhatOpenSslReads) {
    EXPECT_TRUE((opensslAgrees<d2i_X509_NAME, i2d_X509_NAME, X509_NAME_free>(ivanov())));
    EXPECT_EQ(name({}), hex("30 00"));
}

TEST(NameCodec, GivesAttributesByType) {
    const auto info = decode<CERT_NAME_INFO>(capi::X509_NAME, ivanov());
    ASSERT_EQ(info->cRDN, 3U);
    ASSERT_EQ(info->rgRDN[2].cRDNAttr, 2U);
    const CERT_RDN_ATTR& country = info->rgRDN[0].rgRDNAttr[0];
    EXPECT_STREQ(country.pszObjId, "2.5.4.6");
    EXPECT_EQ(country.dwValueType, CERT_RDN_PRINTABLE_STRING);
    EXPECT_EQ(bytes(country.Value), hex("52 55"));
    const CERT_RDN_ATTR& common = info->rgRDN[1].rgRDNAttr[0];
    EXPECT_EQ(common.dwValueType, CERT_RDN_UTF8_STRING);
    EXPECT_EQ(common.Value.cbData, 11 * sizeof(wchar_t));
    EXPECT_EQ(encode(capi::X509_NAME, *info), ivanov());
}

TEST(NameCodec, RefusesValuesOutsideTheirAlphabet) {
    EXPECT_EQ(failureOf([] {
                  name({{{"1.2.643.100.3", CERT_RDN_NUMERIC_STRING, "12-34"}}});
              }),
              CRYPT_E_INVALID_NUMERIC_STRING);
    EXPECT_EQ(failureOf([] {
                  name({{{"2.5.4.6", CERT_RDN_PRINTABLE_STRING, "Рос"}}});
              }),
              CRYPT_E_INVALID_PRINTABLE_STRING);
    EXPECT_EQ(failureOf([] {
                  name({{{"1.2.840.113549.1.9.1", CERT_RDN_IA5_STRING, "почта@example.com"}}});
              }),
              CRYPT_E_INVALID_IA5_STRING);
    EXPECT_EQ(failureOf([] { name({{{"CN", CERT_RDN_UTF8_STRING, "a"}}}); }), CRYPT_E_OID_FORMAT);
    EXPECT_EQ(failureOf([] { name({{}}); }), CRYPT_E_BAD_ENCODE);
}

TEST(NameCodec, RefusesMalformedNames) {
    for (const char* const der : {"31 00", "30 02 31 00", "30 04 31 02 30 00", "30 09 31 07 30 05 06 03 55 04 03",
                                  "30 0D 31 0B 30 09 06 03 55 04 06 13 02 52 55 00", "30 02 30 00"}) {
        EXPECT_NE(failureOf([&] { decode<CERT_NAME_INFO>(capi::X509_NAME, hex(der)); }), ERROR_SUCCESS) << der;
    }
}

TEST(NameText, WritesDottedTypes) {
    EXPECT_EQ(written(ivanov(), CERT_OID_NAME_STR | CERT_NAME_STR_SEMICOLON_FLAG | CERT_NAME_STR_NO_QUOTING_FLAG),
              L"2.5.4.6=RU; 2.5.4.3=Иванов Иван; 1.2.643.3.131.1.1=001234567890 + 1.2.840.113549.1.9.1=i@example.com");
}

TEST(NameText, WritesKeysAndValuesAlone) {
    EXPECT_EQ(written(ivanov(), CERT_X500_NAME_STR), L"C=RU, CN=Иванов Иван, INN=001234567890 + E=i@example.com");
    EXPECT_EQ(written(ivanov(), CERT_SIMPLE_NAME_STR | CERT_NAME_STR_NO_PLUS_FLAG),
              L"RU, Иванов Иван, 001234567890 i@example.com");
    EXPECT_EQ(written(ivanov(), CERT_X500_NAME_STR | CERT_NAME_STR_CRLF_FLAG | CERT_NAME_STR_REVERSE_FLAG),
              L"INN=001234567890 + E=i@example.com\r\nCN=Иванов Иван\r\nC=RU");
    EXPECT_EQ(written(name({{{"1.2.3.4", CERT_RDN_UTF8_STRING, "a"}}}), CERT_X500_NAME_STR), L"OID.1.2.3.4=a");
}

TEST(NameText, QuotesWhatWouldBeMisread) {
    struct Row {
        const char* value;
        const wchar_t* text;
    };
    for (const Row& row : {Row{"a,b", L"\"a,b\""}, Row{"ООО \"Рога\"", L"\"ООО \"\"Рога\"\"\""}, Row{" a", L"\" a\""},
                           Row{"a ", L"\"a \""}, Row{"a=b", L"\"a=b\""}, Row{"#12", L"\"#12\""}, Row{"a;b", L"\"a;b\""},
                           Row{"a b", L"a b"}, Row{"", L""}}) {
        const Bytes der = name({{{"2.5.4.3", CERT_RDN_UTF8_STRING, row.value}}});
        EXPECT_EQ(written(der, CERT_X500_NAME_STR), std::wstring(L"CN=") + row.text);
    }
    EXPECT_EQ(written(name({{{"2.5.4.3", CERT_RDN_UTF8_STRING, "a,\"b\""}}}),
                      CERT_X500_NAME_STR | CERT_NAME_STR_NO_QUOTING_FLAG),
              L"CN=a,\"b\"");
}

TEST(NameText, DecodesEveryStringType) {
    struct Row {
        DWORD type;
        std::string value;
        const wchar_t* text;
    };
    for (const Row& row : {Row{CERT_RDN_BMP_STRING, std::string("\x04\x18", 2), L"И"},
                           Row{CERT_RDN_UNIVERSAL_STRING, std::string("\0\0\x04\x18", 4), L"И"},
                           Row{CERT_RDN_TELETEX_STRING, "\xE9", L"é"}, Row{CERT_RDN_NUMERIC_STRING, "1 2", L"1 2"},
                           Row{CERT_RDN_OCTET_STRING, "\x01\xAB", L"#040201AB"},
                           Row{CERT_RDN_ENCODED_BLOB, "\x02\x01\x05", L"#020105"}}) {
        EXPECT_EQ(written(name({{{"2.5.4.3", row.type, row.value}}}), CERT_OID_NAME_STR),
                  std::wstring(L"2.5.4.3=") + row.text);
    }
}

TEST(NameText, AValueWithAZeroCharacterDoesNotCutTheTextShort) {
    const Bytes der = hex("30 10 31 0E 30 0C 06 03 55 04 03 0C 05 67 6F 00 6F 64");
    EXPECT_EQ(written(der, CERT_X500_NAME_STR), L"CN=#0C05676F006F64");
    const Bytes malformed = hex("30 0D 31 0B 30 09 06 03 55 04 03 0C 02 D0 28");
    EXPECT_EQ(written(malformed, CERT_X500_NAME_STR), L"CN=#0C02D028");
}

TEST(NameText, CutsOffWhatDoesNotFit) {
    Bytes der = ivanov();
    CERT_NAME_BLOB encoded = blob(der);
    std::array<wchar_t, 6> out;
    out.fill(L'?');
    EXPECT_EQ(exports::CertNameToStrW(X509_ASN_ENCODING, &encoded, CERT_X500_NAME_STR, out.data(), 5), 5U);
    EXPECT_EQ(std::wstring(out.data()), L"C=RU");
    EXPECT_EQ(out[5], L'?');
    EXPECT_EQ(exports::CertNameToStrW(X509_ASN_ENCODING, &encoded, CERT_X500_NAME_STR, out.data(), 1), 1U);
    EXPECT_EQ(out[0], L'\0');
}

TEST(NameText, WhatIsNoNameIsTheEmptyText) {
    Bytes garbage = hex("30 05 01 02");
    CERT_NAME_BLOB encoded = blob(garbage);
    setLastError(0);
    EXPECT_EQ(exports::CertNameToStrW(X509_ASN_ENCODING, &encoded, CERT_X500_NAME_STR, nullptr, 0), 1U);
    EXPECT_EQ(lastError(), CRYPT_E_ASN1_EOD);
    EXPECT_EQ(exports::CertNameToStrW(X509_ASN_ENCODING, nullptr, CERT_X500_NAME_STR, nullptr, 0), 1U);
    EXPECT_EQ(lastError(), ERROR_INVALID_PARAMETER);
    Bytes der = ivanov();
    CERT_NAME_BLOB good = blob(der);
    EXPECT_EQ(exports::CertNameToStrW(X509_ASN_ENCODING, &good, 7, nullptr, 0), 1U);
    EXPECT_EQ(lastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(exports::CertNameToStrW(X509_ASN_ENCODING, &good, 0, nullptr, 0), 1U);
}

TEST(AlternateNameCodec, WritesWhatOpenSslReads) {
    Bytes principal = hex("0C 03 61 40 62");
    Bytes directory = ivanov();
    Bytes address = hex("7F 00 00 01");
    std::wstring mail = L"a@b";
    std::wstring dns = L"example.com";
    std::wstring url = L"http://example.com/";
    CERT_OTHER_NAME other{const_cast<char*>("1.3.6.1.4.1.311.20.2.3"), blob(principal)};
    std::vector<CERT_ALT_NAME_ENTRY> entries(7);
    entries[0].dwAltNameChoice = CERT_ALT_NAME_OTHER_NAME;
    entries[0].u.pOtherName = &other;
    entries[1].dwAltNameChoice = CERT_ALT_NAME_RFC822_NAME;
    entries[1].u.pwszRfc822Name = mail.data();
    entries[2].dwAltNameChoice = CERT_ALT_NAME_DNS_NAME;
    entries[2].u.pwszDNSName = dns.data();
    entries[3].dwAltNameChoice = CERT_ALT_NAME_DIRECTORY_NAME;
    entries[3].u.DirectoryName = blob(directory);
    entries[4].dwAltNameChoice = CERT_ALT_NAME_URL;
    entries[4].u.pwszURL = url.data();
    entries[5].dwAltNameChoice = CERT_ALT_NAME_IP_ADDRESS;
    entries[5].u.IPAddress = blob(address);
    entries[6].dwAltNameChoice = CERT_ALT_NAME_REGISTERED_ID;
    entries[6].u.pszRegisteredID = const_cast<char*>("1.2.3.4");
    const CERT_ALT_NAME_INFO info{7, entries.data()};
    const Bytes der = encode(X509_ALTERNATE_NAME, info);
    EXPECT_TRUE((opensslAgrees<d2i_GENERAL_NAMES, i2d_GENERAL_NAMES, GENERAL_NAMES_free>(der)));

    const auto back = decode<CERT_ALT_NAME_INFO>("2.5.29.17", der);
    ASSERT_EQ(back->cAltEntry, 7U);
    EXPECT_EQ(bytes(back->rgAltEntry[0].u.pOtherName->Value), principal);
    EXPECT_EQ(std::wstring(back->rgAltEntry[2].u.pwszDNSName), dns);
    EXPECT_EQ(bytes(back->rgAltEntry[3].u.DirectoryName), directory);
    EXPECT_STREQ(back->rgAltEntry[6].u.pszRegisteredID, "1.2.3.4");
}

TEST(AlternateNameCodec, RefusesTextOutsideIa5AndUnknownKinds) {
    std::wstring cyrillic = L"почта@example.com";
    CERT_ALT_NAME_ENTRY entry{};
    entry.dwAltNameChoice = CERT_ALT_NAME_RFC822_NAME;
    entry.u.pwszRfc822Name = cyrillic.data();
    const CERT_ALT_NAME_INFO info{1, &entry};
    EXPECT_EQ(failureOf([&] { encode(X509_ALTERNATE_NAME, info); }), CRYPT_E_INVALID_IA5_STRING);
    entry.u.pwszRfc822Name = nullptr;
    EXPECT_EQ(failureOf([&] { encode(X509_ALTERNATE_NAME, info); }), ERROR_INVALID_PARAMETER);
    entry.dwAltNameChoice = 0;
    EXPECT_EQ(failureOf([&] { encode(X509_ALTERNATE_NAME, info); }), CRYPT_E_BAD_ENCODE);
    for (const char* const der :
         {"30 03 89 01 61", "30 05 82 03 61 00 62", "30 03 82 01 FF", "30 02 A0 00", "30 04 A4 02 05 00"}) {
        EXPECT_NE(failureOf([&] { decode<CERT_ALT_NAME_INFO>("2.5.29.17", hex(der)); }), ERROR_SUCCESS) << der;
    }
}

} // namespace

} // namespace klunortredi::csp::test
