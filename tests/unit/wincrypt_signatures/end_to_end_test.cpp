// Request, certificate, installation, signature, verification: through the embedded service, judged by openssl and
// certtool.

#include "command.hpp"

#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/certificate_store.hpp"
#include "crypto/wincrypt/csr_creator.hpp"
#include "crypto/wincrypt/provider.hpp"
#include "crypto/wincrypt/signature_factory.hpp"
#include "crypto/wincrypt/tools_verify.hpp"
#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "orvik/plugin/exception/exception.hpp"

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <boost/smart_ptr/make_shared.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace orvik::plugin;
using testing_tools::run;
using wincrypt::Certificate;

struct Algorithm {
    const char* label;
    unsigned long providerType;
    const wchar_t* provider;
    const char* paramSet;
    const char* authorityKey; ///< arguments of openssl req for the authority's own key
    const char* certtool;     ///< further options
};

void PrintTo(const Algorithm& algorithm, std::ostream* out) {
    *out << algorithm.label;
}

constexpr const char* pin = "12345678";
constexpr const char* content = "Платёжное поручение № 1, one file to sign\n";

class EndToEnd : public ::testing::TestWithParam<Algorithm> {
protected:
    void SetUp() override {
        directory_ = boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("klunortredi-%%%%-%%%%");
        boost::filesystem::create_directory(directory_);
        ::setenv("KLUNORTREDI_HOME", (directory_ / "home").c_str(), 1);
        crypto::AuthProvider::setDialog(
            [this](const crypto::IAuthHandle&, unsigned) { return ++dialogs_, boost::optional<std::string>(pin); });
        write("content", content);
    }
    void TearDown() override {
        crypto::AuthProvider::setDialog({});
        boost::filesystem::remove_all(directory_);
    }

    [[nodiscard]] std::string file(const std::string& name) const { return (directory_ / name).string(); }
    void write(const std::string& name, const std::string& octets) const {
        std::ofstream(file(name), std::ios::binary) << octets;
    }
    [[nodiscard]] std::string read(const std::string& name) const {
        std::ifstream in(file(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    [[nodiscard]] testing_tools::Outcome shell(const std::string& command) const {
        return run("cd '" + directory_.string() + "' && " + command);
    }

    [[nodiscard]] static boost::shared_ptr<wincrypt::Provider> provider() {
        return boost::make_shared<wincrypt::Provider>(GetParam().providerType, GetParam().provider);
    }

    /// Makes the key and writes request.der.
    void request(const std::wstring& container = L"Иванов 2026") const {
        auto params = boost::make_shared<crypto::CsrCreatorParams>();
        params->provider = provider();
        params->container = container;
        params->subject = "2.5.4.3=Иванов Иван;2.5.4.10=Я;2.5.4.6=RU;1.2.840.113549.1.9.1=ivanov@example.org;"
                          "1.2.643.100.3=12345678901;1.2.643.3.131.1.1=012345678901;"
                          "1.2.643.100.1=1234567890123;1.2.643.100.4=123456789012345";
        params->paramSet = GetParam().paramSet;
        params->keyUsage = 0xC0;
        params->enhancedKeyUsage = {"1.3.6.1.5.5.7.3.4", "1.3.6.1.5.5.7.3.2"};
        params->certificatePolicies = {"1.2.643.100.113.1"};
        params->dnsNames = {"example.org", "www.example.org"};
        params->userPrincipalName = "ivanov@domain";
        params->subjectSignTool = "Средство подписи";
        params->identificationKind = 0;
        const auto result = wincrypt::CsrCreator().create(params, pin);
        EXPECT_NE(result->containerName.find("2026"), std::string::npos) << result->containerName;
        write("request.der", base64::decode(result->request));
    }

    /// Has certificate.pem issued for request.der by a throw-away authority.
    void issue() const {
        const auto authority = shell(std::string("openssl req -x509 ") + GetParam().authorityKey +
                                     " -nodes -keyout ca.key -out ca.pem -days 30 -subj /CN=Authority");
        ASSERT_EQ(authority.status, 0) << authority.output;
        const auto issued = shell("openssl x509 -req -inform DER -in request.der -CA ca.pem -CAkey ca.key -days 10 "
                                  "-CAcreateserial -copy_extensions copy -out certificate.pem");
        ASSERT_EQ(issued.status, 0) << issued.output;
    }

    void install() const {
        const Certificate certificate(read("certificate.pem"));
        certificate.install(*provider(), L"Иванов 2026", pin);
        wincrypt::RegistryCertificateStore store("my", crypto::ICertificateStore::system);
        ASSERT_TRUE(store.addCertificate(certificate));
    }

    /// The certificate as another run of the program finds it.
    [[nodiscard]] static boost::shared_ptr<crypto::ICertificate> signer() {
        const auto certificates =
            wincrypt::RegistryCertificateStore("my", crypto::ICertificateStore::system).certificates();
        return certificates.empty() ? nullptr : *certificates.begin();
    }

    [[nodiscard]] static std::string
    sign(const std::string& format, const std::vector<crypto::format::SignatureRequest::Attribute>& attributes = {},
         const std::string& data = content) {
        const wincrypt::SignatureFactory factory(format);
        const auto creator = factory.creator({});
        const auto params = creator->params();
        auto& own = dynamic_cast<crypto::SignatureFactory::Creator::Params&>(*params);
        own.certificate = signer();
        own.attributes = attributes;
        creator->initialize(own);
        creator->update(reinterpret_cast<const unsigned char*>(data.data()), data.size());
        std::vector<unsigned char> out;
        EXPECT_TRUE(creator->finalize(out));
        return {out.begin(), out.end()};
    }

    [[nodiscard]] static bool verify(const std::string& signature, const boost::optional<std::string>& data = {}) {
        std::istringstream message(signature);
        if (!data) {
            return wincrypt::tools::verify(message, boost::none);
        }
        std::istringstream detached(*data);
        return wincrypt::tools::verify(message, boost::optional<std::istream&>(detached));
    }

    void prepare() {
        ASSERT_NO_THROW(request()) << "request";
        ASSERT_NO_FATAL_FAILURE(issue());
        ASSERT_NO_FATAL_FAILURE(install());
    }

    unsigned dialogs_ = 0;

private:
    boost::filesystem::path directory_;
};

/// Offsets of each octet of `part` in `whole`.
std::vector<std::size_t> octetsOf(const std::string& whole, const std::string& part) {
    const auto at = whole.find(part);
    EXPECT_NE(at, std::string::npos);
    std::vector<std::size_t> offsets;
    for (std::size_t i = 0; at != std::string::npos && i < part.size(); ++i) {
        offsets.push_back(at + i);
    }
    return offsets;
}

std::string changed(std::string octets, std::size_t offset) {
    octets[offset] = static_cast<char>(octets[offset] ^ 0x01);
    return octets;
}

TEST_P(EndToEnd, RequestIsValidAndReadableToOpenssl) {
    request();
    const auto told = shell("openssl req -inform DER -in request.der -verify -text -noout -nameopt utf8,esc_ctrl");
    EXPECT_EQ(told.status, 0);
    for (const char* text : {"verify OK", "CN=Иванов Иван", "O=Я", "C=RU", "emailAddress=ivanov@example.org",
                             "12345678901", "012345678901", "Digital Signature, Non Repudiation",
                             "Class of Signing Tool KC1", "Средство подписи", "1.2.643.100.114", "E-mail Protection",
                             "TLS Web Client Authentication", "DNS:example.org, DNS:www.example.org",
                             "othername: UPN:", ":ivanov@domain", "X509v3 Subject Key Identifier"}) {
        EXPECT_NE(told.output.find(text), std::string::npos) << text << "\n" << told.output;
    }
}

TEST_P(EndToEnd, SecondRequestForOneContainerIsRefusedAndLeavesTheFirst) {
    request();
    const auto containers = provider()->containers();
    EXPECT_THROW(request(), exception::Exception);
    EXPECT_EQ(provider()->containers(), containers);
    EXPECT_EQ(containers.size(), 1U);
}

TEST_P(EndToEnd, FailedRequestLeavesNoContainer) {
    auto params = boost::make_shared<crypto::CsrCreatorParams>();
    params->provider = provider();
    params->container = L"broken";
    params->subject = "2.5.4.3=Name";
    params->paramSet = GetParam().paramSet;
    params->enhancedKeyUsage = {"not an OID"};
    EXPECT_THROW(wincrypt::CsrCreator().create(params, pin), exception::Exception);
    EXPECT_TRUE(provider()->containers().empty());
}

TEST_P(EndToEnd, InstalledCertificateKnowsItsKeyAndProvider) {
    ASSERT_NO_FATAL_FAILURE(prepare());
    const auto certificate = signer();
    ASSERT_TRUE(certificate);
    ASSERT_TRUE(certificate->provider(false));
    EXPECT_EQ(certificate->provider(false)->name(), GetParam().provider);
    EXPECT_TRUE(certificate->container());
    EXPECT_EQ(certificate->keyUsage().value_or(0), 0xC0);
    EXPECT_EQ(certificate->subjectSignTool().value_or(L""), L"Средство подписи");
    EXPECT_NE(certificate->subject().find("2.5.4.3=Иванов Иван"), std::string::npos) << certificate->subject();
    for (const char* number : {"1.2.643.100.3=12345678901", "1.2.643.3.131.1.1=012345678901",
                               "1.2.643.100.1=1234567890123", "1.2.643.100.4=123456789012345"}) {
        EXPECT_NE((certificate->subject() + ";").find(number + std::string(";")), std::string::npos)
            << certificate->subject();
    }
    EXPECT_EQ(certificate->version(), 2U);
    EXPECT_EQ(certificate->thumbprint().value_or("").size(), 20U);
}

TEST_P(EndToEnd, ForeignCertificateIsNotInstalled) {
    ASSERT_NO_THROW(request());
    ASSERT_NO_FATAL_FAILURE(issue());
    const Certificate authority(read("ca.pem"));
    EXPECT_THROW(authority.install(*provider(), L"Иванов 2026", pin), exception::Exception);
    EXPECT_FALSE(authority.container());
}

TEST_P(EndToEnd, AttachedSignatureIsAcceptedByEverybody) {
    ASSERT_NO_FATAL_FAILURE(prepare());
    const auto signature = sign("attached");
    EXPECT_GT(dialogs_, 0U);
    EXPECT_TRUE(verify(signature));
    write("signature.p7s", signature);
    const auto openssl = shell("openssl cms -verify -inform DER -in signature.p7s -CAfile ca.pem -binary -out plain");
    EXPECT_EQ(openssl.status, 0) << openssl.output;
    EXPECT_EQ(read("plain"), content);
    const auto certtool = shell(std::string("certtool --p7-verify --inder --infile signature.p7s --load-ca-certificate "
                                            "ca.pem ") +
                                GetParam().certtool);
    EXPECT_EQ(certtool.status, 0) << certtool.output;
}

TEST_P(EndToEnd, DetachedSignatureIsAcceptedByEverybody) {
    ASSERT_NO_FATAL_FAILURE(prepare());
    const auto signature = sign("detached");
    EXPECT_TRUE(verify(signature, std::string(content)));
    EXPECT_EQ(signature.find("one file to sign"), std::string::npos);
    write("signature.sig", signature);
    const auto openssl =
        shell("openssl cms -verify -inform DER -in signature.sig -content content -CAfile ca.pem -binary -out plain");
    EXPECT_EQ(openssl.status, 0) << openssl.output;
    const auto certtool = shell(std::string("certtool --p7-verify --inder --infile signature.sig --load-data content "
                                            "--load-ca-certificate ca.pem ") +
                                GetParam().certtool);
    EXPECT_EQ(certtool.status, 0) << certtool.output;
}

TEST_P(EndToEnd, ExtraSignedAttributesAreSignedAndAccepted) {
    ASSERT_NO_FATAL_FAILURE(prepare());
    const auto signature = sign("detached", {{"UTF8String", "1.2.643.7.1.9.1", "Подписано"},
                                             {"INTEGER", "1.2.643.7.1.9.2", "-5"},
                                             {"OCTET STRING", "1.2.643.7.1.9.3", "00ff10"},
                                             {"UTCTime", "1.2.840.113549.1.9.5", "1700000000"}});
    EXPECT_TRUE(verify(signature, std::string(content)));
    write("signature.sig", signature);
    const auto openssl = shell("openssl cms -verify -inform DER -in signature.sig -content content -noverify -binary "
                               "-out plain");
    EXPECT_EQ(openssl.status, 0) << openssl.output;
    const auto told = shell("openssl cms -cmsout -print -noout -inform DER -in signature.sig");
    EXPECT_NE(told.output.find("Nov 14 22:13:20 2023 GMT"), std::string::npos) << told.output;
}

TEST_P(EndToEnd, EveryChangedOctetOfContentAttributesSignatureAndKeyIsRefused) {
    ASSERT_NO_FATAL_FAILURE(prepare());
    const auto signature = sign("attached");
    ASSERT_TRUE(verify(signature));
    std::vector<std::size_t> offsets = octetsOf(signature, content);
    const auto key = octetsOf(signature, signer()->publicKey()->key());
    offsets.insert(offsets.end(), key.begin(), key.end());
    // The signed attributes and the signature value are what stands behind the certificates: from the digest's
    // attribute on, nothing follows but the signature's algorithm and value and the zeros that end indefinite lengths.
    const std::string messageDigest("\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x09\x04", 11);
    // Nobody signs the parameters of the signature's algorithm: where there is a NULL (RSA, GOST R 34.10-2001), it may
    // as well be something else.
    std::size_t parameters = signature.size();
    for (const std::string& withNull : {std::string("\x06\x09\x2a\x86\x48\x86\xf7\x0d\x01\x01\x01\x05\x00", 13),
                                        std::string("\x06\x06\x2a\x85\x03\x02\x02\x13\x05\x00", 10)}) {
        const auto algorithm = signature.rfind(withNull);
        if (algorithm != std::string::npos) {
            parameters = algorithm + withNull.size() - 2;
        }
    }
    for (std::size_t i = octetsOf(signature, messageDigest).front(); i < signature.size(); ++i) {
        if (i != parameters && i != parameters + 1) {
            offsets.push_back(i);
        }
    }
    for (const auto offset : offsets) {
        EXPECT_FALSE(verify(changed(signature, offset))) << "octet " << offset << " of " << signature.size();
    }
}

TEST_P(EndToEnd, SignatureTruncatedAnywhereIsRefused) {
    ASSERT_NO_FATAL_FAILURE(prepare());
    const auto signature = sign("detached");
    for (std::size_t size = 0; size < signature.size(); ++size) {
        EXPECT_FALSE(verify(signature.substr(0, size), std::string(content))) << size;
    }
}

TEST_P(EndToEnd, DetachedSignatureWithOtherContentOrNoneIsRefused) {
    ASSERT_NO_FATAL_FAILURE(prepare());
    const auto signature = sign("detached");
    EXPECT_FALSE(verify(signature, std::string("other content")));
    EXPECT_FALSE(verify(signature, std::string()));
    EXPECT_FALSE(verify(signature));
}

TEST_P(EndToEnd, XmlSignatureIsValidAndASecondOneIsRefused) {
    ASSERT_NO_FATAL_FAILURE(prepare());
    const auto valid = [](const std::string& document) {
        const auto validator = wincrypt::SignatureFactory("xmldsig").validator({});
        const auto params = validator->params();
        dynamic_cast<crypto::SignatureFactory::Validator::Params&>(*params).certificate = signer();
        validator->initialize(*params);
        validator->update(reinterpret_cast<const unsigned char*>(document.data()), document.size());
        std::vector<unsigned char> out;
        return validator->finalize(out);
    };
    const std::string document = "<document><line>text</line></document>";
    const auto once = sign("xmldsig", {}, document);
    EXPECT_FALSE(valid(document));
    EXPECT_TRUE(valid(once));
    EXPECT_FALSE(valid(changed(once, once.find("text"))));
    // A second signature would change what the first one covers.
    EXPECT_THROW(static_cast<void>(sign("xmldsig", {}, once)), std::exception);
}

INSTANTIATE_TEST_SUITE_P(
    Algorithms, EndToEnd,
    ::testing::Values(Algorithm{"Gost256", 80, L"Klunortredi GOST R 34.10-2012 (256) Cryptographic Service Provider",
                                "1.2.643.2.2.35.1", "-newkey gost2012_256 -pkeyopt paramset:A", ""},
                      Algorithm{"Gost512", 81, L"Klunortredi GOST R 34.10-2012 (512) Cryptographic Service Provider",
                                "1.2.643.7.1.2.1.2.1", "-newkey gost2012_512 -pkeyopt paramset:A", ""},
                      Algorithm{"Gost2001", 75, L"Klunortredi GOST R 34.10-2001 Cryptographic Service Provider",
                                "1.2.643.2.2.35.1", "-newkey gost2001 -pkeyopt paramset:A", "--verify-allow-broken"},
                      Algorithm{"Rsa", 24, L"Klunortredi RSA and AES Cryptographic Service Provider",
                                "1.2.840.113549.1.1.1", "-newkey rsa:2048", ""}),
    [](const auto& algorithm) { return std::string(algorithm.param.label); });

} // namespace
