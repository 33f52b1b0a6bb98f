#include "certificates_fixture.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "service_double/flatten.hpp"

#include <boost/date_time/posix_time/time_formatters.hpp>

namespace wincrypt_certificates {
namespace {

using orvik::plugin::crypto::ICertificate;
using service_double::Flat;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class CertificateTest : public CertificatesFixture {
protected:
    static std::string armoured(const std::string& label) {
        return "-----BEGIN " + label + "-----\n" + signerCertificate + "\n-----END " + label + "-----\n";
    }
    static constexpr Thrown constructor(int number) { return {number, "certificate", "Certificate", 0}; }

    /// The extension's text as the service decodes it.
    static void decodeTextAs(const std::string& octets) {
        service().on.CryptDecodeObject = [octets](DWORD encoding, const char* type, const BYTE*, DWORD, DWORD,
                                                  void* buffer, DWORD* size) -> BOOL {
            EXPECT_EQ(encoding, 0x00010001U);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(type), 6U);
            Flat flat(sizeof(CERT_NAME_VALUE));
            flat.blob(offsetof(CERT_NAME_VALUE, Value), octets);
            return giveFlat(flat, buffer, size);
        };
    }
    static std::string wideOctets(const std::wstring& text) {
        return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)};
    }
};

TEST_F(CertificateTest, ReadsTextWithOtherTextBeforeTheArmour) {
    EXPECT_EQ(Certificate("Subject: somebody - something\n" + armoured("CERTIFICATE")).raw(), der(signerCertificate));
}

TEST_F(CertificateTest, ReadsBareBase64AndBinary) {
    EXPECT_EQ(Certificate(boost::string_view(signerCertificate)).raw(), der(signerCertificate));
    EXPECT_EQ(Certificate(der(signerCertificate)).raw(), der(signerCertificate));
}

TEST_F(CertificateTest, KnowsTheX509ArmourAtTheVeryStartOnly) {
    EXPECT_EQ(Certificate(armoured("X509 CERTIFICATE")).raw(), der(signerCertificate));
    EXPECT_EQ(thrownBy<SystemException>([] { Certificate("!!! first\n" + armoured("X509 CERTIFICATE")); }),
              constructor(code(capi::CRYPT_E_ASN1_BADTAG)));
}

TEST_F(CertificateTest, HandsOctetsThatAreNoSequenceToTheService) {
    std::string handed;
    service().on.CertCreateCertificateContext = [&](DWORD encoding, const BYTE* data, DWORD size) {
        EXPECT_EQ(encoding, 0x00010001U);
        handed.assign(reinterpret_cast<const char*>(data), size);
        return static_cast<PCCERT_CONTEXT>(service_double::fail(capi::CRYPT_E_ASN1_BADTAG));
    };
    const std::string octets("\x31\x02\x05\x00", 4);
    EXPECT_EQ(thrownBy<SystemException>([&] { Certificate{boost::string_view(octets)}; }),
              constructor(code(capi::CRYPT_E_ASN1_BADTAG)));
    EXPECT_EQ(handed, octets);
}

TEST_F(CertificateTest, RefusesNoDataAndTextThatDecodesToNothing) {
    EXPECT_EQ(thrownBy<ApplicationException>([] { Certificate{boost::string_view()}; }), constructor(20006));
    EXPECT_EQ(thrownBy<CryptoException>([] { Certificate("!!!!", ICertificate::Format::pem); }), constructor(30040));
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(CertificateTest, FreesItsContextOnce) {
    certificate();
    EXPECT_THAT(functions(), ElementsAre("CertFreeCertificateContext"));
}

TEST_F(CertificateTest, AnswersWithNothingWithoutContext) {
    const Certificate none(nullptr);
    EXPECT_EQ(none.version(), 0U);
    EXPECT_EQ(none.raw() + none.serialNumber() + none.issuer() + none.subject() + none.signatureAlgorithm() +
                  none.hashAlgorithm() + none.friendlyName(),
              "");
    EXPECT_TRUE(none.notBefore().is_not_a_date_time());
    EXPECT_TRUE(none.notAfter().is_not_a_date_time());
    EXPECT_FALSE(none.publicKey());
    EXPECT_FALSE(none.provider(true));
    EXPECT_FALSE(none.container());
    EXPECT_FALSE(none.keyUsage());
    EXPECT_FALSE(none.thumbprint());
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(CertificateTest, KeepsTheSerialNumberLeastSignificantOctetFirst) {
    EXPECT_EQ(certificate()->serialNumber(), "\x45\x23\x01");
}

TEST_F(CertificateTest, SerialNumberOfOneOctetIsEmpty) {
    EXPECT_EQ(certificate(plainCertificate)->serialNumber(), "");
}

TEST_F(CertificateTest, TellsVersionAndAlgorithmsAndValidity) {
    const auto signer = certificate();
    EXPECT_EQ(signer->version(), 2U);
    EXPECT_EQ(certificate(plainCertificate)->version(), 0U);
    EXPECT_EQ(signer->signatureAlgorithm(), "1.2.643.7.1.1.3.2");
    EXPECT_EQ(signer->hashAlgorithm(), "1.2.643.7.1.1.2.2");
    EXPECT_EQ(signer->notAfter().date().year(), 2126);
    EXPECT_LT(signer->notBefore(), signer->notAfter());
    EXPECT_EQ(signer->asWincrypt(), signer.get());
}

TEST_F(CertificateTest, NamesCarryOidsAndUnwrappedNumbers) {
    const auto signer = certificate();
    const std::string name = "2.5.4.6=RU;2.5.4.3=Держатель;1.2.643.3.131.1.1=123456789012";
    EXPECT_EQ(signer->subject(), name);
    EXPECT_EQ(signer->issuer(), name);
    EXPECT_THAT(service().trace(), Contains(HasSubstr("0x50000002")));
}

TEST_F(CertificateTest, OtherHexadecimalValuesStay) {
    std::wstring text = L"1.2.3=#0c0141; 1.2.643.100.3=#12; 1.2.643.100.1=#zz; 1.2.643.100.4=plain";
    service().on.CertNameToStrW = [&](DWORD, CERT_NAME_BLOB*, DWORD, wchar_t* buffer, DWORD) {
        if (buffer != nullptr) {
            text.copy(buffer, text.size());
            buffer[text.size()] = L'\0';
        }
        return static_cast<DWORD>(text.size() + 1);
    };
    EXPECT_EQ(certificate()->subject(), "1.2.3=#0c0141;1.2.643.100.3=#12;1.2.643.100.1=#zz;1.2.643.100.4=plain");
}

TEST_F(CertificateTest, QuotesBackslashesAndSeparatorsInNamesStayWithTheirAttribute) {
    // What the service prints without quoting: every such character belongs to a value.
    const std::wstring number = L"; 1.2.643.3.131.1.1=#120c313233343536373839303132";
    const std::pair<std::wstring, std::string> names[] = {
        {L"2.5.4.3=Firm \"A; 2.5.4.10=\"B\"", "2.5.4.3=Firm \"A;2.5.4.10=\"B\""},
        {L"2.5.4.3=C:\\", "2.5.4.3=C:\\"},
        {L"2.5.4.3=a=b\\=c", "2.5.4.3=a=b\\=c"},
        {L"2.5.4.3=one; two;three", "2.5.4.3=one; two;three"},
        {L"2.5.4.3=ends;", "2.5.4.3=ends;"},
        {L"2.5.4.3=", "2.5.4.3="},
    };
    for (const auto& [printed, wanted] : names) {
        const std::wstring text = printed + number;
        service().on.CertNameToStrW = [&](DWORD, CERT_NAME_BLOB*, DWORD, wchar_t* buffer, DWORD) {
            if (buffer != nullptr) {
                text.copy(buffer, text.size());
                buffer[text.size()] = L'\0';
            }
            return static_cast<DWORD>(text.size() + 1);
        };
        EXPECT_EQ(certificate()->subject(), wanted + ";1.2.643.3.131.1.1=123456789012");
    }
}

TEST_F(CertificateTest, NameOfAnOutrageousSizeIsEmpty) {
    for (const DWORD size : {1U, 102401U}) {
        service().on.CertNameToStrW = [size](DWORD, CERT_NAME_BLOB*, DWORD, wchar_t* buffer, DWORD) {
            EXPECT_EQ(buffer, nullptr);
            return size;
        };
        EXPECT_EQ(certificate()->subject(), "");
    }
}

TEST_F(CertificateTest, KeyUsageHasTheFirstOctetLow) {
    EXPECT_EQ(certificate()->keyUsage().value_or(0), 0x80C8);
    EXPECT_EQ(certificate(enciphermentCertificate)->keyUsage().value_or(0), 0x20);
    EXPECT_FALSE(certificate(plainCertificate)->keyUsage());
    service().failFunction("CryptDecodeObject", capi::CRYPT_E_ASN1_CORRUPT);
    EXPECT_FALSE(certificate()->keyUsage());
}

TEST_F(CertificateTest, SubjectSignToolIsWideAlready) {
    decodeTextAs(wideOctets(L"КриптоПро") + "xy");
    EXPECT_EQ(certificate()->subjectSignTool(), std::wstring(L"КриптоПро"));
}

TEST_F(CertificateTest, IssuerSignToolIsUtf8) {
    decodeTextAs("КриптоПро");
    EXPECT_EQ(certificate()->issuerSignTool(), std::wstring(L"КриптоПро"));
    decodeTextAs("\xD0");
    EXPECT_FALSE(certificate()->issuerSignTool());
}

TEST_F(CertificateTest, IssuerSignToolOfRealSizeIsFound) {
    const auto value = [](unsigned char tag, const std::string& content) {
        std::string head{static_cast<char>(tag)};
        if (content.size() >= 0x100) {
            head += {'\x82', static_cast<char>(content.size() >> 8U)};
        } else if (content.size() >= 0x80) {
            head += '\x81';
        }
        return head + static_cast<char>(content.size()) + content;
    };
    const std::string tool = "\"КриптоПро CSP\" (версия 4.0)";
    const std::string centre = "\"Удостоверяющий центр \"КриптоПро УЦ\" версии 2.0, исполнение для проверки на двести "
                               "знаков, которые занимают больше ста двадцати восьми октетов\"";
    const std::string paper = "Сертификат соответствия № СФ/124-3380 от 11.05.2018";
    const std::string sequence =
        value(0x30, value(0x0C, tool) + value(0x0C, centre) + value(0x0C, paper) + value(0x0C, paper));
    ASSERT_GT(sequence.size(), 0x100U);
    decodeTextAs(sequence);
    const auto found = certificate()->issuerSignTool();
    ASSERT_TRUE(found);
    EXPECT_EQ(orvik::plugin::converter::utf16_to_utf8(*found), tool + "; " + centre + "; " + paper + "; " + paper);
    for (std::size_t size = 0; size < sequence.size(); ++size) {
        decodeTextAs(sequence.substr(0, size));
        EXPECT_FALSE(size > 2 && certificate()->issuerSignTool()) << "cut after " << size;
    }
}

TEST_F(CertificateTest, NoSignToolsWithoutExtensions) {
    EXPECT_FALSE(certificate(plainCertificate)->subjectSignTool());
    EXPECT_FALSE(certificate(plainCertificate)->issuerSignTool());
    decodeTextAs("");
    EXPECT_FALSE(certificate()->subjectSignTool());
}

TEST_F(CertificateTest, PrivateKeyPeriodIsRead) {
    const auto signer = certificate();
    EXPECT_EQ(to_iso_string(signer->privateKeyNotBefore()), "20260102T030405");
    EXPECT_EQ(to_iso_string(signer->privateKeyNotAfter()), "20270102T030405");
}

TEST_F(CertificateTest, NoPrivateKeyPeriodWithoutTheExtensionAndNothingLogged) {
    EXPECT_TRUE(certificate(plainCertificate)->privateKeyNotBefore().is_not_a_date_time());
    EXPECT_TRUE(certificate(enciphermentCertificate)->privateKeyNotAfter().is_not_a_date_time());
    EXPECT_THAT(logTexts(Severity::warning), IsEmpty());
}

TEST_F(CertificateTest, UndecodablePrivateKeyPeriodIsLogged) {
    service().failFunction("CryptDecodeObject", capi::CRYPT_E_ASN1_CORRUPT);
    EXPECT_TRUE(certificate()->privateKeyNotBefore().is_not_a_date_time());
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre("wincrypt: extension 2.5.29.16 can't decode object"));
}

TEST_F(CertificateTest, FriendlyNameIsKeptWithItsZero) {
    const auto signer = certificate();
    std::string stored;
    service().on.CertSetCertificateContextProperty = [&](PCCERT_CONTEXT context, DWORD id, DWORD flags,
                                                         const void* data) {
        const auto* blob = static_cast<const CRYPT_DATA_BLOB*>(data);
        stored.assign(reinterpret_cast<const char*>(blob->pbData), blob->cbData);
        return Defaults::CertSetCertificateContextProperty(context, id, flags, data);
    };
    EXPECT_EQ(signer->friendlyName(), "");
    EXPECT_TRUE(signer->setFriendlyName("Имя"));
    EXPECT_EQ(stored.size(), 4 * sizeof(wchar_t));
    EXPECT_EQ(signer->friendlyName(), "Имя");
}

TEST_F(CertificateTest, EmptyFriendlyNameChangesNothing) {
    const auto signer = certificate();
    EXPECT_FALSE(signer->setFriendlyName(""));
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(CertificateTest, RefusedFriendlyNameIsLogged) {
    service().failFunction("CertSetCertificateContextProperty", 5);
    EXPECT_FALSE(certificate()->setFriendlyName("name"));
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre("wincrypt: can't set 'friendlyname' to certificate: 5"));
}

TEST_F(CertificateTest, FriendlyNameThatIsNotUtf8IsLogged) {
    const auto signer = certificate();
    EXPECT_FALSE(signer->setFriendlyName("a\xFF"));
    EXPECT_THAT(service().trace(), IsEmpty());
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre("wincrypt: can't set 'friendlyname' to certificate: 1113"));
}

TEST_F(CertificateTest, ThumbprintIsTheDigestOfTheEncoding) {
    EXPECT_EQ(certificate()->thumbprint().value_or("").size(), 20U);
    EXPECT_THAT(service().trace(), Contains(HasSubstr("CryptHashCertificate(0, 32772, 0, ")));
}

TEST_F(CertificateTest, RefusedThumbprintIsLogged) {
    service().failFunction("CryptHashCertificate", capi::NTE_BAD_ALGID);
    EXPECT_FALSE(certificate()->thumbprint());
    service().failFunction("CryptHashCertificate", 0);
    int calls = 0;
    service().on.CryptHashCertificate = [&](unsigned long, ALG_ID, DWORD, const BYTE*, DWORD, BYTE* out,
                                            DWORD* size) -> BOOL {
        ++calls;
        *size = 20;
        return out == nullptr ? 1 : static_cast<BOOL>(service_double::fail(7));
    };
    EXPECT_FALSE(certificate()->thumbprint());
    EXPECT_EQ(calls, 2);
    service().on.CryptHashCertificate = [](unsigned long, ALG_ID, DWORD, const BYTE*, DWORD, BYTE*, DWORD* size) {
        *size = 0;
        return 1;
    };
    EXPECT_FALSE(certificate()->thumbprint());
    EXPECT_THAT(logTexts(Severity::warning), ElementsAre("wincrypt: thumbprint: 2148073480", "wincrypt: thumbprint: 7",
                                                         "wincrypt: thumbprint: size is 0"));
}

TEST_F(CertificateTest, PublicKeyIsMadeOnce) {
    const auto signer = certificate();
    EXPECT_EQ(signer->publicKey(), signer->publicKey());
    EXPECT_EQ(signer->publicKey()->algObjId(), "1.2.643.7.1.1.1.1");
}

TEST_F(CertificateTest, ChainNeverGoesToTheNetwork) {
    EXPECT_TRUE(certificate()->chain());
    EXPECT_THAT(service().trace(), Contains(HasSubstr("0x80000004")));
    service().chainStatus = 0x20;
    EXPECT_FALSE(certificate()->chain());
}

} // namespace
} // namespace wincrypt_certificates
