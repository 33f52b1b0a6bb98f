// The readers of a certificate over the embedded service: what its decoder makes of extensions of real size.
#include "crypto/wincrypt/certificate.hpp"
#include "orvik/plugin/converter.hpp"

#include <openssl/evp.h>
#include <openssl/x509v3.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using orvik::plugin::wincrypt::Certificate;

std::string element(char tag, const std::string& content) {
    std::string head(1, tag);
    if (content.size() >= 0x100) {
        head += {'\x82', static_cast<char>(content.size() >> 8U)};
    } else if (content.size() >= 0x80) {
        head += '\x81';
    }
    return head + static_cast<char>(content.size()) + content;
}

/// A self-signed certificate with that value of extension 1.2.643.100.112.
std::string certificateWith(const std::string& value) {
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"),
                                                                  EVP_PKEY_free);
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), X509_free);
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 0x1234);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
    X509_set_pubkey(certificate.get(), key.get());
    const std::unique_ptr<ASN1_OBJECT, decltype(&ASN1_OBJECT_free)> oid(OBJ_txt2obj("1.2.643.100.112", 1),
                                                                        ASN1_OBJECT_free);
    const std::unique_ptr<ASN1_OCTET_STRING, decltype(&ASN1_OCTET_STRING_free)> octets(ASN1_OCTET_STRING_new(),
                                                                                       ASN1_OCTET_STRING_free);
    ASN1_OCTET_STRING_set(octets.get(), reinterpret_cast<const unsigned char*>(value.data()),
                          static_cast<int>(value.size()));
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509_EXTENSION_create_by_OBJ(nullptr, oid.get(), 0, octets.get()), X509_EXTENSION_free);
    X509_add_ext(certificate.get(), extension.get(), -1);
    X509_sign(certificate.get(), key.get(), EVP_sha256());
    unsigned char* der = nullptr;
    const int size = i2d_X509(certificate.get(), &der);
    std::string result(reinterpret_cast<const char*>(der), static_cast<std::size_t>(size));
    OPENSSL_free(der);
    return result;
}

std::string toolOf(const std::string& value) {
    const auto tool = Certificate(boost::string_view(certificateWith(value))).issuerSignTool();
    return tool ? orvik::plugin::converter::utf16_to_utf8(*tool) : "nothing";
}

TEST(ReaderEmbedded, IssuersSignToolOfRealSizeIsRead) {
    const std::string tool = "\"КриптоПро CSP\" (версия 4.0)";
    const std::string paper = "Сертификат соответствия № СФ/124-3380 от 11.05.2018";
    for (const std::size_t letters : {20U, 60U, 130U, 3000U}) { // lengths of one, two and three octets
        std::string centre;
        for (std::size_t i = 0; i < letters; ++i) {
            centre += "Ц";
        }
        const std::string sequence = element('\x30', element('\x0C', tool) + element('\x0C', centre) +
                                                         element('\x0C', paper) + element('\x0C', paper));
        ASSERT_GT(sequence.size(), 128U);
        EXPECT_EQ(toolOf(sequence), tool + "; " + centre + "; " + paper + "; " + paper);
    }
}

TEST(ReaderEmbedded, IssuersSignToolThatIsOneTextIsThatText) {
    EXPECT_EQ(toolOf(element('\x13', "ViPNet CSP")), "ViPNet CSP");
}

TEST(ReaderEmbedded, IssuersSignToolThatIsCutIsNone) {
    const std::string whole = element('\x30', element('\x0C', std::string(200, 'x')));
    for (const std::size_t size : {std::size_t{1}, std::size_t{4}, std::size_t{100}, whole.size() - 1}) {
        EXPECT_EQ(toolOf(whole.substr(0, size)), "nothing") << size;
    }
}

} // namespace
