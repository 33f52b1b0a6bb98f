#include "orvik/plugin/ssl/certificate.hpp"

#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/tools.hpp"
#include "support/openssl.hpp"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::ssl::Certificate;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// Self-signed certificates by the openssl command.
class SslCertificate : public testing::Test {
protected:
    std::string make(const std::string& subject, const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments = {"req",     "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout",
                                              "key.pem", "-utf8", "-out",    "c.pem",    "-subj",  subject};
        arguments.insert(arguments.end(), more.begin(), more.end());
        openssl_.must(arguments);
        return orvik::plugin::base64::decode(orvik::plugin::crypto::tools::normalizePEM(folder_.read("c.pem")));
    }

    test_support::TempFolder folder_;        // NOLINT: the tests' own
    test_support::Openssl openssl_{folder_}; // NOLINT: the tests' own
};

TEST_F(SslCertificate, TellsNamesInTheirOrderInUtf8) {
    const Certificate certificate(make("/C=RU/O=ООО \"Ромашка\"/OU=a/OU=b/CN=Иван"));
    EXPECT_THAT(certificate.subjectNameInfo().attributes,
                ElementsAre(Pair("2.5.4.6", "RU"), Pair("2.5.4.10", "ООО \"Ромашка\""), Pair("2.5.4.11", "a"),
                            Pair("2.5.4.11", "b"), Pair("2.5.4.3", "Иван")));
    EXPECT_EQ(certificate.issuerNameInfo().attributes, certificate.subjectNameInfo().attributes);
    EXPECT_EQ(certificate.subjectNameInfo().value("2.5.4.11"), "a");
    EXPECT_EQ(certificate.subjectNameInfo().value("2.5.4.4"), "");
}

// OpenSSL has short names for some of these; consumers compare OIDs.
TEST_F(SslCertificate, TellsRussianAttributesByOid) {
    const Certificate certificate(make("/1.2.643.100.3=12345678901/1.2.643.3.131.1.1=007701234567/CN=x"));
    EXPECT_EQ(certificate.subjectNameInfo().value("1.2.643.100.3"), "12345678901");
    EXPECT_EQ(certificate.subjectNameInfo().value("1.2.643.3.131.1.1"), "007701234567");
}

TEST_F(SslCertificate, TellsExtendedKeyUsagesInTheirOrder) {
    const Certificate certificate(
        make("/CN=x", {"-addext", "extendedKeyUsage=emailProtection,1.2.643.2.2.34.6,clientAuth"}));
    EXPECT_THAT(certificate.enhancedKeyUsage(),
                ElementsAre("1.3.6.1.5.5.7.3.4", "1.2.643.2.2.34.6", "1.3.6.1.5.5.7.3.2"));
}

TEST_F(SslCertificate, HasNoExtendedKeyUsageWithoutTheExtension) {
    EXPECT_THAT(Certificate(make("/CN=x")).enhancedKeyUsage(), IsEmpty());
}

TEST_F(SslCertificate, RefusesAMalformedExtendedKeyUsage) {
    const Certificate certificate(make("/CN=x", {"-addext", "2.5.29.37=DER:0500"}));
    EXPECT_THROW(static_cast<void>(certificate.enhancedKeyUsage()), CryptoException);
}

TEST_F(SslCertificate, RefusesWhatIsNotExactlyOneCertificate) {
    const std::string der = make("/CN=x");
    EXPECT_NO_THROW(Certificate{der});
    EXPECT_THROW(Certificate(""), CryptoException);
    EXPECT_THROW(Certificate(der + '\0'), CryptoException);
    EXPECT_THROW(Certificate("not a certificate"), CryptoException);
    for (std::size_t size = 0; size < der.size(); ++size) {
        EXPECT_THROW(Certificate(der.substr(0, size)), CryptoException) << size;
    }
}

} // namespace
