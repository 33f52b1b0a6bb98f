#include "signatures_fixture.hpp"

#include "crypto/wincrypt/signature_creator.hpp"
#include "crypto/wincrypt/signature_factory.hpp"
#include "crypto/wincrypt/signature_validator.hpp"
#include "orvik/plugin/ssl/cadest_transformers.hpp"
#include "orvik/plugin/ssl/xmldsig_creator.hpp"

namespace wincrypt_signatures {
namespace {

using orvik::plugin::FileInfo;
using orvik::plugin::IDataHandler;
using orvik::plugin::crypto::format::SignatureRequest;
using orvik::plugin::wincrypt::SignatureFactory;
namespace binary = orvik::plugin::wincrypt::binary;
namespace ssl = orvik::plugin::ssl;

SignatureRequest request(const std::string& cadesT = "") {
    SignatureRequest result;
    result.cadesT = cadesT;
    return result;
}

template <class T>
bool is(const std::unique_ptr<IDataHandler>& handler) {
    return dynamic_cast<T*>(handler.get()) != nullptr;
}

using FactoryTest = wincrypt_certificates::CertificatesFixture;

TEST_F(FactoryTest, KnowsThreeFormatsSpelledExactly) {
    for (const char* name : {"Attached", "attached ", " attached", "", "DETACHED", "xmlDsig", "cms"}) {
        EXPECT_EQ(thrownBy<CryptoException>([&] { SignatureFactory{name}; }),
                  (Thrown{30009, "signature_factory", "SignatureFactory", 0}))
            << name;
    }
    EXPECT_EQ(thrownBy<CryptoException>([] { SignatureFactory{boost::string_view("attached", 9)}; }).code, 30009)
        << "with the zero at its end";
    EXPECT_EQ(thrownBy<CryptoException>([] { SignatureFactory{boost::string_view("xmldsig", 6)}; }).code, 30009);
}

TEST_F(FactoryTest, GivesTheHandlersOfTheFormat) {
    const SignatureFactory attached("attached");
    EXPECT_TRUE(is<binary::attached::Creator>(attached.creator(request())));
    EXPECT_TRUE(is<binary::Validator>(attached.validator({})));
    EXPECT_TRUE(is<ssl::cadest::binary::Transformer>(attached.transformer(request("true"))));
    const SignatureFactory detached("detached");
    EXPECT_TRUE(is<binary::detached::Creator>(detached.creator(request())));
    EXPECT_TRUE(is<binary::Validator>(detached.validator({})));
    EXPECT_TRUE(is<ssl::cadest::binary::Transformer>(detached.transformer(request("1"))));
    const SignatureFactory xml("xmldsig");
    EXPECT_TRUE(is<ssl::xmldsig::Creator>(xml.creator(request())));
    EXPECT_TRUE(is<orvik::plugin::wincrypt::xmldsig::Validator>(xml.validator({})));
    EXPECT_TRUE(is<ssl::cadest::xmldsig::Transformer>(xml.transformer(request("yes"))));
}

TEST_F(FactoryTest, GivesEachCallerAHandlerOfItsOwn) {
    const SignatureFactory factory("attached");
    const SignatureFactory copy = factory; // NOLINT(performance-unnecessary-copy-initialization): copying is the point
    EXPECT_NE(factory.creator(request()), copy.creator(request()));
    EXPECT_NE(factory.validator({}), copy.validator({}));
    EXPECT_NE(factory.transformer(request("true")), copy.transformer(request("true")));
}

TEST_F(FactoryTest, TransformsOnlyOnRequest) {
    for (const char* format : {"attached", "detached", "xmldsig"}) {
        for (const char* word : {"false", "", "0", "perhaps"}) {
            EXPECT_FALSE(SignatureFactory(format).transformer(request(word))) << format << word;
        }
    }
}

TEST_F(FactoryTest, NamesSignatureFilesByTheLastExtension) {
    const SignatureFactory attached("attached");
    const SignatureFactory detached("detached");
    const SignatureFactory xml("xmldsig");
    EXPECT_EQ(attached.extension(FileInfo("dir.d/report.pdf")), ".pdf.p7s");
    EXPECT_EQ(detached.extension(FileInfo("report.pdf")), ".pdf.sig");
    EXPECT_EQ(xml.extension(FileInfo("invoice.xml")), ".sgn.xml");
    EXPECT_EQ(attached.extension(FileInfo("a.tar.gz")), ".gz.p7s");
    EXPECT_EQ(detached.extension(FileInfo("a.tar.gz")), ".gz.sig");
    EXPECT_EQ(xml.extension(FileInfo("a.tar.gz")), ".sgn.gz");
    EXPECT_EQ(attached.extension(FileInfo("dir.d/report")), ".p7s");
    EXPECT_EQ(detached.extension(FileInfo("report")), ".sig");
    EXPECT_EQ(xml.extension(FileInfo("report")), ".sgn");
}

} // namespace
} // namespace wincrypt_signatures
