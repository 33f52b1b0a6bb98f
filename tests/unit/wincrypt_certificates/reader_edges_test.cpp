// The readers of a certificate at the edges of what a service can answer: contexts made by hand, exact calls.
#include "certificates_fixture.hpp"

#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/ssl/certificate.hpp"
#include "service_double/flatten.hpp"

#include <boost/date_time/posix_time/time_formatters.hpp>

#include <array>
#include <cstdint>

namespace wincrypt_certificates {
namespace {

using orvik::plugin::crypto::ICertificate;
using service_double::Flat;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr DWORD largest = 102400;

CRYPTOAPI_BLOB blobOf(std::string& octets) {
    return {static_cast<DWORD>(octets.size()), reinterpret_cast<BYTE*>(octets.data())};
}

/// A context that lies in the test: nothing but what the test writes into it.
class ReaderEdges : public CertificatesFixture {
protected:
    ReaderEdges() {
        context_.pCertInfo = &info_;
        service().on.CertFreeCertificateContext = [this](PCCERT_CONTEXT context) {
            return context == &context_ ? 1 : Defaults::CertFreeCertificateContext(context);
        };
    }

    [[nodiscard]] boost::shared_ptr<Certificate> made() { return boost::make_shared<Certificate>(&context_); }

    void extend(const char* oid, std::string value) {
        value_ = std::move(value);
        extension_ = {const_cast<char*>(oid), 0, blobOf(value_)};
        info_.cExtension = 1;
        info_.rgExtension = &extension_;
    }
    /// Each decoding gives this structure; what was asked for is kept.
    void decodeAs(const Flat& flat) {
        service().on.CryptDecodeObject = [this, flat](DWORD encoding, const char* type, const BYTE* data, DWORD size,
                                                      DWORD flags, void* buffer, DWORD* needed) -> BOOL {
            decoded_.push_back(std::to_string(encoding) + "/" + std::to_string(reinterpret_cast<std::uintptr_t>(type)) +
                               "/" + std::string(reinterpret_cast<const char*>(data), size) + "/" +
                               std::to_string(flags));
            return giveFlat(flat, buffer, needed);
        };
    }
    static Flat bits(const std::string& octets) {
        Flat flat(sizeof(CRYPT_BIT_BLOB));
        flat.blob(0, octets);
        return flat;
    }
    static Flat text(const std::string& octets) {
        Flat flat(sizeof(CERT_NAME_VALUE));
        flat.blob(offsetof(CERT_NAME_VALUE, Value), octets);
        return flat;
    }
    static Flat sequence(const std::vector<std::string>& elements) {
        Flat flat(sizeof(CRYPT_SEQUENCE_OF_ANY));
        flat.set(offsetof(CRYPT_SEQUENCE_OF_ANY, cValue), static_cast<DWORD>(elements.size()));
        const auto table = flat.appendStructure(elements.size() * sizeof(CRYPT_DER_BLOB));
        flat.point(offsetof(CRYPT_SEQUENCE_OF_ANY, rgValue), table);
        for (std::size_t i = 0; i < elements.size(); ++i) {
            flat.blob(table + i * sizeof(CRYPT_DER_BLOB), elements[i]);
        }
        return flat;
    }
    /// The name's text as the service gives it, its size as `size` when not 0.
    static void nameAs(const std::wstring& text, DWORD size = 0) {
        service().on.CertNameToStrW = [text, size](DWORD, CERT_NAME_BLOB*, DWORD, wchar_t* buffer, DWORD) {
            if (buffer != nullptr) {
                text.copy(buffer, text.size());
                buffer[text.size()] = L'\0';
            }
            return size != 0 ? size : static_cast<DWORD>(text.size() + 1);
        };
    }

    CERT_CONTEXT context_{};
    CERT_INFO info_{};
    CERT_EXTENSION extension_{};
    std::string value_;
    std::vector<std::string> decoded_;
};

// ---- construction

TEST_F(ReaderEdges, ContextThatIsAdoptedIsFreedAndNothingElseIsCalled) {
    { const auto certificate = made(); }
    EXPECT_THAT(functions(), ElementsAre("CertFreeCertificateContext"));
}

TEST_F(ReaderEdges, FormatThatIsGivenIsNotDetected) {
    std::vector<std::string> handed;
    service().on.CertCreateCertificateContext = [&](DWORD, const BYTE* data, DWORD size) {
        handed.emplace_back(reinterpret_cast<const char*>(data), size);
        return static_cast<PCCERT_CONTEXT>(service_double::fail(capi::CRYPT_E_ASN1_BADTAG));
    };
    for (const auto format : {ICertificate::Format::der, ICertificate::Format::unknown}) {
        EXPECT_EQ(thrownBy<SystemException>([&] { Certificate("-----BEGIN CERTIFICATE-----", format); }),
                  (Thrown{code(capi::CRYPT_E_ASN1_BADTAG), "certificate", "Certificate", 0}));
    }
    EXPECT_EQ(thrownBy<SystemException>([&] {
                  Certificate("-----BEGIN CERTIFICATE-----\nMAI=\n-----END CERTIFICATE-----",
                              ICertificate::Format::pem);
              }).code,
              code(capi::CRYPT_E_ASN1_BADTAG));
    EXPECT_THAT(handed, ElementsAre("-----BEGIN CERTIFICATE-----", "-----BEGIN CERTIFICATE-----", "\x30\x02"));
}

TEST_F(ReaderEdges, LettersThatAreAllBase64ArePemAndOtherOctetsAreNot) {
    std::vector<std::string> handed;
    service().on.CertCreateCertificateContext = [&](DWORD, const BYTE* data, DWORD size) {
        handed.emplace_back(reinterpret_cast<const char*>(data), size);
        return static_cast<PCCERT_CONTEXT>(service_double::fail(capi::CRYPT_E_ASN1_BADTAG));
    };
    const std::string bad("\x30\x05zz", 4); // announces more than there is
    for (const std::string& data : {std::string("QUJDREVGR0hJSg=="), std::string("\x30\x02zz", 4), bad,
                                    std::string("\x80", 1), std::string("-- no armour --")}) {
        EXPECT_THROW(Certificate{boost::string_view(data)}, SystemException);
    }
    EXPECT_THAT(handed, ElementsAre("ABCDEFGHIJ", std::string("\x30\x02zz", 4), bad, "\x80", "-- no armour --"));
}

TEST_F(ReaderEdges, ContextIsFreedBeforeTheKeysThatAreKept) {
    auto signer = linked();
    EXPECT_NE(signer->privateKey()->context(), nullptr);
    EXPECT_NE(signer->publicKey(), nullptr);
    service().clearCalls();
    signer.reset();
    EXPECT_THAT(functions(),
                ElementsAre("CertFreeCertificateContext", "CryptReleaseContext", "CertFreeCertificateContext"));
    EXPECT_EQ(service().trace().front(), "CertFreeCertificateContext(certificate2)");
}

// ---- absent information

TEST_F(ReaderEdges, ContextWithoutInformationAnswersWithNothing) {
    context_.pCertInfo = nullptr;
    const auto none = made();
    EXPECT_EQ(none->version(), 0U);
    EXPECT_EQ(none->serialNumber() + none->issuer() + none->subject() + none->signatureAlgorithm() +
                  none->hashAlgorithm() + none->raw(),
              "");
    EXPECT_TRUE(none->notBefore().is_not_a_date_time());
    EXPECT_TRUE(none->notAfter().is_not_a_date_time());
    EXPECT_TRUE(none->privateKeyNotBefore().is_not_a_date_time());
    EXPECT_TRUE(none->privateKeyNotAfter().is_not_a_date_time());
    EXPECT_EQ(none->publicKey(), nullptr);
    EXPECT_FALSE(none->keyUsage());
    EXPECT_FALSE(none->subjectSignTool());
    EXPECT_FALSE(none->issuerSignTool());
    EXPECT_THAT(service().trace(), IsEmpty());
    EXPECT_THAT(logTexts(Severity::warning), IsEmpty());
}

TEST_F(ReaderEdges, CertificateWithoutContextHasNoSignToolsAndNoKeyPeriod) {
    const Certificate none(nullptr);
    EXPECT_FALSE(none.subjectSignTool());
    EXPECT_FALSE(none.issuerSignTool());
    EXPECT_TRUE(none.privateKeyNotBefore().is_not_a_date_time());
    EXPECT_TRUE(none.privateKeyNotAfter().is_not_a_date_time());
    EXPECT_EQ(none.context(), nullptr);
    EXPECT_EQ(none.asWincrypt(), &none);
    EXPECT_EQ(none.asCryptoki(), nullptr);
    EXPECT_EQ(none.asSsl(), nullptr);
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(ReaderEdges, AlgorithmsWithoutIdentifierAreEmpty) {
    EXPECT_EQ(made()->signatureAlgorithm(), "");
    EXPECT_EQ(made()->hashAlgorithm(), "");
    std::string unknown = "1.2.3";
    info_.SubjectPublicKeyInfo.Algorithm.pszObjId = unknown.data();
    EXPECT_EQ(made()->hashAlgorithm(), "");
}

// ---- what is copied

TEST_F(ReaderEdges, SizesFromTwoTo102400OctetsAreCopied) {
    for (const DWORD size : {0U, 1U, 2U, largest, largest + 1}) {
        std::string octets(size, 'x');
        context_.pbCertEncoded = reinterpret_cast<BYTE*>(octets.data());
        context_.cbCertEncoded = size;
        info_.SerialNumber = blobOf(octets);
        const std::string expected = size < 2 || size > largest ? "" : octets;
        EXPECT_EQ(made()->raw(), expected) << size;
        EXPECT_EQ(made()->serialNumber(), expected) << size;
    }
}

TEST_F(ReaderEdges, TimesAreWholeSeconds) {
    // 2023-11-14 22:13:20.9999999 and one second before 1970.
    const std::uint64_t first = 133444736009999999ULL;
    const std::uint64_t second = 116444735990000000ULL;
    info_.NotBefore = {static_cast<DWORD>(first), static_cast<DWORD>(first >> 32U)};
    info_.NotAfter = {static_cast<DWORD>(second), static_cast<DWORD>(second >> 32U)};
    EXPECT_EQ(to_iso_string(made()->notBefore()), "20231114T221320");
    EXPECT_EQ(to_iso_string(made()->notAfter()), "19691231T235959");
}

TEST_F(ReaderEdges, VersionIsAsItIsEncoded) {
    info_.dwVersion = 7;
    EXPECT_EQ(made()->version(), 7U);
}

TEST_F(ReaderEdges, NamesAndUsagesAreThoseOfTheFrameworksParser) {
    const orvik::plugin::ssl::Certificate parsed(der(signerCertificate));
    const auto signer = certificate();
    EXPECT_EQ(signer->subjectNameInfo().attributes, parsed.subjectNameInfo().attributes);
    EXPECT_EQ(signer->issuerNameInfo().attributes, parsed.issuerNameInfo().attributes);
    EXPECT_EQ(signer->subjectNameInfo().value("2.5.4.3"), "Держатель");
    EXPECT_THAT(signer->enhancedKeyUsage(), ElementsAre("1.3.6.1.5.5.7.3.4"));
    EXPECT_THAT(service().trace(), IsEmpty());
}

// ---- names

TEST_F(ReaderEdges, NamesAreAskedForTwiceInTheContextsEncodingType) {
    context_.dwCertEncodingType = 0x1;
    struct Asked {
        DWORD encoding;
        const CERT_NAME_BLOB* name;
        DWORD format;
        bool sizeOnly;
        DWORD size;
        bool operator==(const Asked&) const = default;
    };
    std::vector<Asked> asked;
    service().on.CertNameToStrW = [&](DWORD encoding, CERT_NAME_BLOB* name, DWORD format, wchar_t* buffer, DWORD size) {
        asked.push_back({encoding, name, format, buffer == nullptr, size});
        if (buffer != nullptr) {
            std::wstring(L"2.5.4.3=A").copy(buffer, 9);
            buffer[9] = L'\0';
        }
        return DWORD{10};
    };
    EXPECT_EQ(made()->issuer(), "2.5.4.3=A");
    EXPECT_EQ(made()->subject(), "2.5.4.3=A");
    EXPECT_EQ(asked, (std::vector<Asked>{{1, &info_.Issuer, 0x50000002, true, 0},
                                         {1, &info_.Issuer, 0x50000002, false, 10},
                                         {1, &info_.Subject, 0x50000002, true, 0},
                                         {1, &info_.Subject, 0x50000002, false, 10}}));
}

TEST_F(ReaderEdges, NamesHaveTwoTo102400Characters) {
    const std::wstring longest = L"1.2=" + std::wstring(largest - 5, L'x');
    nameAs(longest);
    EXPECT_EQ(made()->subject().size(), largest - 1);
    for (const DWORD size : {0U, 1U, largest + 1}) {
        int calls = 0;
        service().on.CertNameToStrW = [&](DWORD, CERT_NAME_BLOB*, DWORD, wchar_t*, DWORD) {
            ++calls;
            return size;
        };
        EXPECT_EQ(made()->issuer(), "");
        EXPECT_EQ(calls, 1) << "no buffer of " << size;
    }
}

TEST_F(ReaderEdges, EachOfTheFourNumbersIsUnwrappedWhateverItsStringType) {
    // NumericString, PrintableString and UTF8String of "123", digits of either case.
    for (const char* oid : {"1.2.643.3.131.1.1", "1.2.643.100.4", "1.2.643.100.3", "1.2.643.100.1"}) {
        for (const char* value : {"#1203313233", "#1303313233", "#0c03313233", "#0C03313233"}) {
            const std::string text = std::string("2.5.4.6=RU; ") + oid + "=" + value + "; 2.5.4.3=N";
            nameAs({text.begin(), text.end()});
            EXPECT_EQ(made()->subject(), std::string("2.5.4.6=RU;") + oid + "=123;2.5.4.3=N");
        }
    }
}

TEST_F(ReaderEdges, WhatIsNoWrappedNumberStaysAsItWas) {
    for (const char* value : {"", "#", "#12", "#1200", "#120", "#xyz", "123", "12#03313233"}) {
        const std::string text = std::string("1.2.643.100.1=") + value;
        nameAs({text.begin(), text.end()});
        EXPECT_EQ(made()->issuer(), text);
    }
    nameAs(L"2.5.4.5=#1203313233");
    EXPECT_EQ(made()->issuer(), "2.5.4.5=#1203313233") << "of no other attribute";
}

TEST_F(ReaderEdges, ZeroInsideANameHidesNothingOfIt) {
    const std::wstring text(L"2.5.4.3=good\0.bad; 2.5.4.6=RU", 29);
    nameAs(text);
    EXPECT_EQ(made()->subject(), std::string("2.5.4.3=good\0.bad;2.5.4.6=RU", 28));
}

TEST_F(ReaderEdges, NamesThatAreNoUnicodeAreEmpty) {
    nameAs(std::wstring(L"2.5.4.3=") + static_cast<wchar_t>(0xD800));
    EXPECT_EQ(made()->subject(), "");
}

// ---- extensions

TEST_F(ReaderEdges, KeyUsageIsDecodedByItsTypesAndHasTwoOctets) {
    extend("2.5.29.15", "value");
    const std::vector<std::pair<std::string, std::uint16_t>> usages{
        {"\xC8", 0x00C8}, {std::string("\xC8\x80", 2), 0x80C8}, {std::string("\x01\x02\xFF", 3), 0x0201}};
    for (const auto& [octets, usage] : usages) {
        decodeAs(bits(octets));
        EXPECT_EQ(made()->keyUsage(), usage);
        EXPECT_EQ(decoded_.back(), "1/14/value/0");
    }
    EXPECT_EQ(functions().front(), "CertFindExtension");
    EXPECT_NE(service().trace().front().find("\"2.5.29.15\""), std::string::npos);
}

TEST_F(ReaderEdges, ExtensionsWithoutOctetsAreNotDecoded) {
    for (const char* oid : {"2.5.29.15", "2.5.29.16", "1.2.643.100.111", "1.2.643.100.112"}) {
        extend(oid, "");
        decodeAs(bits("\xC8"));
        EXPECT_FALSE(made()->keyUsage());
        EXPECT_FALSE(made()->subjectSignTool());
        EXPECT_FALSE(made()->issuerSignTool());
        EXPECT_TRUE(made()->privateKeyNotBefore().is_not_a_date_time());
    }
    EXPECT_THAT(decoded_, IsEmpty());
    EXPECT_THAT(logTexts(Severity::warning), IsEmpty());
}

TEST_F(ReaderEdges, KeyUsageWithoutBitsIsNone) {
    extend("2.5.29.15", "value");
    decodeAs(Flat(sizeof(CRYPT_BIT_BLOB))); // a null pointer and no octets
    EXPECT_FALSE(made()->keyUsage());
}

TEST_F(ReaderEdges, StructureThatIsTooShortIsNone) {
    for (const char* oid : {"2.5.29.15", "1.2.643.100.111", "1.2.643.100.112", "2.5.29.16"}) {
        extend(oid, "value");
        service().on.CryptDecodeObject = [](DWORD, const char*, const BYTE*, DWORD, DWORD, void* buffer, DWORD* size) {
            return service_double::give("12345", buffer, size);
        };
        EXPECT_FALSE(made()->keyUsage());
        EXPECT_FALSE(made()->subjectSignTool());
        EXPECT_FALSE(made()->issuerSignTool());
        EXPECT_TRUE(made()->privateKeyNotAfter().is_not_a_date_time());
    }
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre("wincrypt: extension 2.5.29.16 can't decode object"));
}

TEST_F(ReaderEdges, SignToolsAreDecodedAsAnyString) {
    for (const auto& [oid, read] : {std::pair{"1.2.643.100.111", &Certificate::subjectSignTool},
                                    {"1.2.643.100.112", &Certificate::issuerSignTool}}) {
        extend(oid, "value");
        decodeAs(text(std::string("A\0\0\0", 4)));
        EXPECT_TRUE(((*made()).*read)());
        EXPECT_EQ(decoded_.back(), "65537/6/value/0");
    }
}

TEST_F(ReaderEdges, SignToolsTreatTheSameOctetsInTheirOwnWays) {
    const std::string octets("A\0\0\0\x11\x04\0\0xyz", 11);
    extend("1.2.643.100.111", "value");
    decodeAs(text(octets));
    EXPECT_EQ(made()->subjectSignTool(), std::wstring(L"A\x0411")) << "wide characters, the rest is cut";
    extend("1.2.643.100.112", "value");
    EXPECT_EQ(made()->issuerSignTool(), std::wstring(octets.begin(), octets.end())) << "UTF-8, octet by octet";
}

TEST_F(ReaderEdges, SubjectSignToolOfLessThanACharacterIsEmptyButThere) {
    extend("1.2.643.100.111", "value");
    decodeAs(text("abc"));
    EXPECT_EQ(made()->subjectSignTool(), std::wstring());
    decodeAs(Flat(sizeof(CERT_NAME_VALUE)));
    EXPECT_FALSE(made()->subjectSignTool()) << "no value";
}

TEST_F(ReaderEdges, KeyPeriodIsDecodedAsASequenceAndItsTimesAreCutAt14Digits) {
    extend("2.5.29.16", "value");
    decodeAs(sequence({"\x80\x0F"
                       "20260102030405Z",
                       "\x81\x0F"
                       "202701020304059"}));
    EXPECT_EQ(to_iso_string(made()->privateKeyNotBefore()), "20260102T030405");
    EXPECT_EQ(to_iso_string(made()->privateKeyNotAfter()), "20270102T030405");
    EXPECT_THAT(decoded_, testing::Each("1/34/value/0"));
}

TEST_F(ReaderEdges, KeyPeriodWithoutATimeHasNone) {
    extend("2.5.29.16", "value");
    const std::string only = "\x80\x0F"
                             "20260102030405Z";
    decodeAs(sequence({only}));
    EXPECT_EQ(to_iso_string(made()->privateKeyNotBefore()), "20260102T030405");
    EXPECT_TRUE(made()->privateKeyNotAfter().is_not_a_date_time());
    for (const std::string& time : {std::string("\x81", 1), std::string("\x81\x00", 2), std::string("\x81\x03xyz"),
                                    std::string("\x81\x0F"
                                                "20261332030405Z")}) {
        decodeAs(sequence({only, time}));
        EXPECT_TRUE(made()->privateKeyNotAfter().is_not_a_date_time());
    }
    decodeAs(sequence({}));
    EXPECT_TRUE(made()->privateKeyNotBefore().is_not_a_date_time());
    EXPECT_THAT(logTexts(Severity::warning), IsEmpty());
}

// ---- properties and digests

TEST_F(ReaderEdges, FriendlyNameEndsAtItsFirstZero) {
    const std::wstring name(L"one\0two\0", 8);
    std::vector<DWORD> ids;
    service().on.CertGetCertificateContextProperty = [&](PCCERT_CONTEXT, DWORD id, void* buffer, DWORD* size) {
        ids.push_back(id);
        return service_double::give({reinterpret_cast<const char*>(name.data()), name.size() * sizeof(wchar_t)}, buffer,
                                    size);
    };
    EXPECT_EQ(made()->friendlyName(), "one");
    EXPECT_THAT(ids, ElementsAre(11U, 11U));
}

TEST_F(ReaderEdges, FriendlyNameIsSetWithItsZeroCounted) {
    service().on.CertSetCertificateContextProperty = [&](PCCERT_CONTEXT context, DWORD id, DWORD flags,
                                                         const void* data) {
        const auto& blob = *static_cast<const CRYPT_DATA_BLOB*>(data);
        EXPECT_EQ(context, &context_);
        EXPECT_EQ(id, 11U);
        EXPECT_EQ(flags, 0U);
        EXPECT_EQ(blob.cbData, 4 * sizeof(wchar_t));
        EXPECT_EQ(std::wstring(reinterpret_cast<const wchar_t*>(blob.pbData), 4), std::wstring(L"Имя\0", 4));
        return 1;
    };
    EXPECT_TRUE(made()->setFriendlyName("Имя"));
    EXPECT_EQ(service().count("CertSetCertificateContextProperty"), 1U);
}

TEST_F(ReaderEdges, ThumbprintIsAskedForByTheEncodingAndTwice) {
    std::string encoded = "encoded";
    context_.pbCertEncoded = reinterpret_cast<BYTE*>(encoded.data());
    context_.cbCertEncoded = 7;
    std::vector<std::string> asked;
    service().on.CryptHashCertificate = [&](unsigned long context, ALG_ID algorithm, DWORD flags, const BYTE* data,
                                            DWORD length, BYTE* out, DWORD* size) {
        asked.push_back(std::to_string(context) + "/" + std::to_string(algorithm) + "/" + std::to_string(flags) + "/" +
                        std::string(reinterpret_cast<const char*>(data), length) + "/" + (out == nullptr ? "?" : "!") +
                        std::to_string(*size));
        return service_double::give("0123456789abcdefghij", out, size);
    };
    EXPECT_EQ(made()->thumbprint(), std::string("0123456789abcdefghij"));
    EXPECT_THAT(asked, ElementsAre("0/32772/0/encoded/?0", "0/32772/0/encoded/!20"));
}

TEST_F(ReaderEdges, DigestsOfTwoTo102400OctetsAreTaken) {
    for (const DWORD length : {0U, 1U, 2U, largest, largest + 1}) {
        service().on.CryptHashCertificate = [&](unsigned long, ALG_ID, DWORD, const BYTE*, DWORD, BYTE* out,
                                                DWORD* size) {
            return service_double::give(std::string(length, 'd'), out, size);
        };
        const bool taken = length >= 2 && length <= largest;
        EXPECT_EQ(made()->thumbprint(), boost::make_optional(taken, std::string(length, 'd'))) << length;
    }
    EXPECT_THAT(logTexts(Severity::warning),
                ElementsAre("wincrypt: thumbprint: size is 0", "wincrypt: thumbprint: size is 0",
                            "wincrypt: thumbprint: size is 0"));
}

} // namespace
} // namespace wincrypt_certificates
