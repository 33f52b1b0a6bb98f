#include "samples.hpp"

#include "support.hpp"

#include <openssl/evp.h>
#include <openssl/x509v3.h>

#include "core/ossl.hpp"

namespace klunortredi::csp::test {

namespace {

void addExtension(X509* certificate, int nid, std::string value) {
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.data());
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

Bytes makeCertificate() {
    const ossl::Pkey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    const ossl::X509Ptr certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set_int64(X509_get_serialNumber(certificate.get()), 0x012345);
    ASN1_TIME_set_string_X509(X509_getm_notBefore(certificate.get()), "20240102030405Z");
    ASN1_TIME_set_string_X509(X509_getm_notAfter(certificate.get()), "20550102030405Z");
    ::X509_NAME* const name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>("Иванов"), -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "C", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>("RU"), -1, -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    X509_set_pubkey(certificate.get(), key.get());
    addExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE,pathlen:1");
    addExtension(certificate.get(), NID_key_usage, "digitalSignature");
    X509_sign(certificate.get(), key.get(), EVP_sha256());
    Bytes der(static_cast<std::size_t>(i2d_X509(certificate.get(), nullptr)));
    unsigned char* at = der.data();
    i2d_X509(certificate.get(), &at);
    return der;
}

constexpr auto extensionList = "30 20 30 0F 06 03 55 1D 13 01 01 FF 04 05 30 03 01 01 FF 30 0D 06 03 55 1D 0F 04 06 03 "
                               "04 06 C0 00 00";

} // namespace

const Bytes& sampleCertificate() {
    static const Bytes certificate = makeCertificate();
    return certificate;
}

const std::vector<Sample>& samples() {
    using namespace capi;
    static const std::vector<Sample> all{
        {type(X509_CERT), sampleCertificate()},
        {type(X509_CERT_TO_BE_SIGNED), sampleCertificate()},
        {type(X509_CERT_REQUEST_TO_BE_SIGNED),
         hex("30 46 02 01 00 30 0D 31 0B 30 09 06 03 55 04 06 13 02 52 55 30 0F 30 09 06 05 2B 0E 03 02 1A 05 00 03 02 "
             "00 AA A0 21 30 0D 06 03 2A 03 04 31 06 02 01 01 02 01 02 30 10 06 0A 2B 06 01 04 01 82 37 0D 02 03 31 02 "
             "0C 00")},
        {type(capi::X509_EXTENSIONS), hex(extensionList)},
        {type(X509_NAME_VALUE), hex("0C 0A D0 98 D0 B2 D0 B0 D0 BD 2E 2E")},
        {type(X509_NAME_VALUE), hex("13 04 54 65 73 74")},
        {type(X509_NAME_VALUE), hex("1E 04 04 18 04 32")},
        {type(X509_NAME_VALUE), hex("30 06 0C 01 61 0C 01 62")},
        {type(capi::X509_NAME),
         hex("30 2B 31 0B 30 09 06 03 55 04 06 13 02 52 55 31 1C 30 0B 06 03 55 04 03 0C 04 D0 98 "
             "D0 B2 30 0D 06 05 2A 85 03 64 01 12 04 31 32 33 34")},
        {type(X509_PUBLIC_KEY_INFO), hex("30 0F 30 09 06 05 2B 0E 03 02 1A 05 00 03 02 00 AA")},
        {type(X509_KEY_ATTRIBUTES), hex("30 2C 04 02 01 02 03 02 06 C0 30 22 80 0F 32 30 32 34 30 31 30 32 30 33 30 34 "
                                        "30 35 5A 81 0F 32 30 32 35 30 31 30 32 30 33 30 34 30 35 5A")},
        {type(X509_ALTERNATE_NAME),
         hex("30 3E A0 13 06 0A 2B 06 01 04 01 82 37 14 02 03 A0 05 0C 03 61 40 62 81 03 61 40 62 82 01 64 A4 0F 30 0D "
             "31 0B 30 09 06 03 55 04 06 13 02 52 55 86 03 75 3A 2F 87 04 7F 00 00 01 88 03 2A 03 04")},
        {szOID_SUBJECT_ALT_NAME2, hex("30 03 82 01 61")},
        {szOID_ISSUER_ALT_NAME2, hex("30 03 82 01 61")},
        {type(X509_KEY_USAGE), hex("03 02 06 C0")},
        {szOID_KEY_USAGE, hex("03 03 07 80 80")},
        {type(X509_BASIC_CONSTRAINTS2), hex("30 06 01 01 FF 02 01 03")},
        {szOID_BASIC_CONSTRAINTS2, hex("30 00")},
        {type(X509_CERT_POLICIES),
         hex("30 21 30 06 06 04 2A 85 03 64 30 17 06 03 2A 03 04 30 10 30 0E 06 08 2B 06 01 05 "
             "05 07 02 01 16 02 68 3A")},
        {szOID_CERT_POLICIES, hex("30 08 30 06 06 04 2A 85 03 64")},
        {type(PKCS_ATTRIBUTE), hex("30 0D 06 03 2A 03 04 31 06 02 01 01 02 01 02")},
        {type(X509_UNICODE_NAME_VALUE), hex("1E 04 04 18 04 32")},
        {type(X509_UNICODE_NAME_VALUE), hex("0C 02 D0 98")},
        {type(X509_OCTET_STRING), hex("04 03 01 02 03")},
        {szOID_SUBJECT_KEY_IDENTIFIER, hex("04 03 01 02 03")},
        {type(X509_INTEGER), hex("02 02 00 80")},
        {type(X509_MULTI_BYTE_INTEGER), hex("02 09 00 80 02 03 04 05 06 07 08")},
        {type(X509_CHOICE_OF_TIME), hex("17 0D 32 33 31 31 31 34 32 32 31 33 32 30 5A")},
        {type(X509_CHOICE_OF_TIME), hex("18 0F 32 30 35 30 30 31 30 31 30 30 30 30 30 30 5A")},
        {szOID_RSA_signingTime, hex("17 0D 32 33 31 31 31 34 32 32 31 33 32 30 5A")},
        {type(X509_SEQUENCE_OF_ANY), hex("30 09 80 01 61 02 01 05 0C 01 62")},
        {type(X509_ENHANCED_KEY_USAGE), hex("30 14 06 08 2B 06 01 05 05 07 03 02 06 08 2B 06 01 05 05 07 03 04")},
        {szOID_ENHANCED_KEY_USAGE, hex("30 0A 06 08 2B 06 01 05 05 07 03 02")},
        {type(TIMESTAMP_REQUEST),
         hex("30 2F 02 01 01 30 0D 30 07 06 05 2B 0E 03 02 1A 04 02 AB CD 06 03 2A 03 04 02 02 "
             "00 80 01 01 FF A0 0F 30 0D 06 03 55 1D 0F 04 06 03 04 06 C0 00 00")},
        {type(TIMESTAMP_RESPONSE),
         hex("30 1A 30 0B 02 01 00 30 06 0C 04 67 6F 6F 64 30 0B 06 09 2A 86 48 86 F7 0D 01 07 "
             "02")},
        {type(TIMESTAMP_RESPONSE), hex("30 0B 30 09 02 01 02 03 04 00 01 00 01")},
        {type(TIMESTAMP_INFO),
         hex("30 4D 02 01 01 06 03 2A 03 04 30 0D 30 07 06 05 2B 0E 03 02 1A 04 02 AB CD 02 03 01 23 45 18 13 32 30 32 "
             "33 31 31 31 34 32 32 31 33 32 30 2E 31 32 35 5A 30 0A 02 01 01 80 02 01 F4 81 01 64 01 01 FF 02 04 00 80 "
             "02 03 A0 05 82 03 74 73 61")},
        {szOID_ENROLLMENT_NAME_VALUE_PAIR, hex("30 0A 1E 04 04 18 00 61 1E 02 04 32")},
        {szOID_ENROLLMENT_CSP_PROVIDER, hex("30 0B 02 01 01 1E 02 04 18 03 02 00 AA")},
    };
    return all;
}

} // namespace klunortredi::csp::test
