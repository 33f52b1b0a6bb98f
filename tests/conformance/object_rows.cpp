#include "object_rows.hpp"

#include <array>

namespace conformance {

namespace {

using namespace capi;

/// The arguments of the CryptoAPI are not const, though it only reads them.
char* text(const char* value) {
    return const_cast<char*>(value); // NOLINT(cppcoreguidelines-pro-type-const-cast)
}
wchar_t* text(const wchar_t* value) {
    return const_cast<wchar_t*>(value); // NOLINT(cppcoreguidelines-pro-type-const-cast)
}
template <std::size_t Size>
CRYPTOAPI_BLOB blob(std::array<BYTE, Size>& octets) {
    return {static_cast<DWORD>(Size), octets.data()};
}

std::array<BYTE, 3> three{1, 2, 3};
std::array<BYTE, 2> derNull{0x05, 0x00};
std::array<BYTE, 3> derOne{0x02, 0x01, 0x01};
std::array<BYTE, 1> digitalSignature{0x80};
std::array<BYTE, 4> name{'N', 'a', 'm', 'e'};
std::array<BYTE, 4> address{127, 0, 0, 1};
std::array<wchar_t, 3> cyrillic{L'Я', L'я', 0};
std::array<BYTE, 14> subject{0x30, 0x0C, 0x31, 0x0A, 0x30, 0x08, 0x06, 0x03, 0x55, 0x04, 0x03, 0x0C, 0x01, 0x41};

const LONG number = -129;
const CRYPT_INTEGER_BLOB bigNumber = blob(three);
const CRYPT_DATA_BLOB octetString = blob(three);
const FILETIME utcTime{0xC66D0000, 0x01DA1747};         // 2023-11-14 22:13:20
const FILETIME generalizedTime{0xE39D8000, 0x01F7630B}; // 2050-01-01
const CERT_NAME_VALUE utf8Text{CERT_RDN_UTF8_STRING, {2 * sizeof(wchar_t), reinterpret_cast<BYTE*>(cyrillic.data())}};
const CRYPT_BIT_BLOB keyUsage{1, digitalSignature.data(), 7};
const CERT_BASIC_CONSTRAINTS2_INFO authority{1, 1, 2};
const CERT_BASIC_CONSTRAINTS2_INFO endEntity{0, 0, 0};

std::array<char*, 2> usages{text("1.3.6.1.5.5.7.3.2"), text("1.3.6.1.5.5.7.3.4")};
const CERT_ENHKEY_USAGE usage{usages.size(), usages.data()};

std::array<CRYPT_DER_BLOB, 2> anything{blob(derOne), blob(derNull)};
const CRYPT_SEQUENCE_OF_ANY sequence{anything.size(), anything.data()};

std::array<CERT_EXTENSION, 1> extension{CERT_EXTENSION{text("1.2.3.4"), 1, blob(derNull)}};
const CERT_EXTENSIONS extensions{extension.size(), extension.data()};

std::array<CRYPT_ATTR_BLOB, 1> attributeValue{blob(derNull)};
const CRYPT_ATTRIBUTE attribute{text("1.2.3.4"), attributeValue.size(), attributeValue.data()};

std::array<CERT_RDN_ATTR, 1> commonName{CERT_RDN_ATTR{text("2.5.4.3"), CERT_RDN_PRINTABLE_STRING, blob(name)}};
std::array<CERT_RDN, 1> relativeName{CERT_RDN{commonName.size(), commonName.data()}};
const CERT_NAME_INFO distinguishedName{relativeName.size(), relativeName.data()};

CERT_ALT_NAME_ENTRY mail() {
    CERT_ALT_NAME_ENTRY entry{};
    entry.dwAltNameChoice = CERT_ALT_NAME_RFC822_NAME;
    entry.u.pwszRfc822Name = text(L"a@b");
    return entry;
}
CERT_ALT_NAME_ENTRY host() {
    CERT_ALT_NAME_ENTRY entry{};
    entry.dwAltNameChoice = CERT_ALT_NAME_IP_ADDRESS;
    entry.u.IPAddress = blob(address);
    return entry;
}
std::array<CERT_ALT_NAME_ENTRY, 2> alternatives{mail(), host()};
const CERT_ALT_NAME_INFO alternativeName{alternatives.size(), alternatives.data()};

std::array<CERT_POLICY_INFO, 1> policy{CERT_POLICY_INFO{text("1.2.643.100.113.1"), 0, nullptr}};
const CERT_POLICIES_INFO policies{policy.size(), policy.data()};

const CERT_PUBLIC_KEY_INFO publicKey{{text("1.2.840.113549.1.1.1"), blob(derNull)}, {3, three.data(), 0}};
const CERT_REQUEST_INFO request{0, blob(subject), publicKey, 0, nullptr};

const CRYPT_TIMESTAMP_REQUEST stampRequest{
    1, {text("2.16.840.1.101.3.4.2.1"), blob(derNull)}, blob(three), nullptr, blob(three), 1, 0, nullptr};

const CRYPT_ENROLLMENT_NAME_VALUE_PAIR pair{text(L"a"), text(L"b")};

} // namespace

const std::vector<ObjectRow>& objectRows() {
    static const std::vector<ObjectRow> rows{
        {"Integer", numbered(X509_INTEGER), &number, "0202ff7f"},
        {"MultiByteInteger", numbered(X509_MULTI_BYTE_INTEGER), &bigNumber, "0203030201"},
        {"OctetString", numbered(X509_OCTET_STRING), &octetString, "0403010203"},
        {"SubjectKeyIdentifier", szOID_SUBJECT_KEY_IDENTIFIER, &octetString, "0403010203"},
        {"UtcTime", numbered(X509_CHOICE_OF_TIME), &utcTime, "170d3233313131343232313332305a"},
        {"GeneralizedTime", numbered(X509_CHOICE_OF_TIME), &generalizedTime, "180f32303530303130313030303030305a"},
        {"SigningTime", szOID_RSA_signingTime, &utcTime, "170d3233313131343232313332305a"},
        {"Utf8Text", numbered(X509_UNICODE_NAME_VALUE), &utf8Text, "0c04d0afd18f"},
        {"KeyUsage", szOID_KEY_USAGE, &keyUsage, "03020780"},
        {"Authority", numbered(X509_BASIC_CONSTRAINTS2), &authority, "30060101ff020102"},
        {"EndEntity", szOID_BASIC_CONSTRAINTS2, &endEntity, "3000"},
        {"EnhancedKeyUsage", szOID_ENHANCED_KEY_USAGE, &usage, "301406082b0601050507030206082b06010505070304"},
        {"SequenceOfAny", numbered(X509_SEQUENCE_OF_ANY), &sequence, "30050201010500"},
        {"Extensions", numbered(X509_EXTENSIONS), &extensions, "300e300c06032a03040101ff04020500"},
        {"Attribute", numbered(PKCS_ATTRIBUTE), &attribute, "300906032a030431020500"},
        {"Name", numbered(capi::X509_NAME), &distinguishedName, "300f310d300b060355040313044e616d65"},
        {"AlternativeName", szOID_SUBJECT_ALT_NAME2, &alternativeName, "300b810361406287047f000001"},
        {"Policies", szOID_CERT_POLICIES, &policies, "300a300806062a8503647101"},
        {"PublicKey", numbered(X509_PUBLIC_KEY_INFO), &publicKey, "3015300d06092a864886f70d0101010500030400010203"},
        {"Request", numbered(X509_CERT_REQUEST_TO_BE_SIGNED), &request,
         "302a020100300c310a300806035504030c01413015300d06092a864886f70d0101010500030400010203a000"},
        {"TimestampRequest", numbered(TIMESTAMP_REQUEST), &stampRequest,
         "30210201013014300d06096086480165030402010500040301020302030302010101ff"},
        {"NameValuePair", szOID_ENROLLMENT_NAME_VALUE_PAIR, &pair, "30081e0200611e020062"},
    };
    return rows;
}

} // namespace conformance
