#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/ssl/xmldsig_creator.hpp"
#include "signer.hpp"
#include "xml_signing.hpp"

#include <gmock/gmock.h>

#include <cstdint>
#include <string>

namespace {

using host_test::Signer;
using host_test::SignerAlgorithm;
using host_test::signXml;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::ssl::xmldsig::Creator;
using testing::HasSubstr;

constexpr const char* document = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<invoice xmlns:x=\"urn:x\">\n  "
                                 "<!-- note --><x:sum currency='RUB'>100</x:sum>\n</invoice>\n";

TEST(XmlCreator, MakesAnRsaSignatureThatXmlsecAccepts) {
    const Signer signer(host_test::rsaSigner());
    const std::string text = signXml(signer, document);
    EXPECT_TRUE(host_test::xmlsecVerifies(signer, text));
    EXPECT_FALSE(host_test::xmlsecVerifies(signer, host_test::replaced(text, ">100<", ">101<")));
}

TEST(XmlCreator, GivesTheSameDocumentWhateverTheChunks) {
    const Signer signer(host_test::rsaSigner());
    Creator::Params params;
    params.properties = false; // they have new identifiers each time
    EXPECT_EQ(signXml(signer, document, params, 1), signXml(signer, document, params));
}

TEST(XmlCreator, KeepsTheDocumentAroundItsSignature) {
    const Signer signer(host_test::rsaSigner());
    const std::string text = signXml(signer, document);
    EXPECT_THAT(text, HasSubstr("<!-- note --><x:sum currency=\"RUB\">100</x:sum>"));
    EXPECT_THAT(text, HasSubstr("<Signature xmlns=\"http://www.w3.org/2000/09/xmldsig#\" Id=\"xmldsig-"));
    EXPECT_THAT(text, HasSubstr("</Signature></invoice>"));
}

TEST(XmlCreator, NeedsACertificateWhoseAlgorithmItKnows) {
    Creator creator;
    Creator::Params params;
    EXPECT_THROW(creator.initialize(params), CryptoException);
    SignerAlgorithm unknown = host_test::rsaSigner();
    unknown.keyOid = "1.2.840.10045.2.1";
    const Signer signer(unknown);
    params.certificate = signer.certificate();
    try {
        creator.initialize(params);
        FAIL() << "taken";
    } catch (const CryptoException& e) {
        EXPECT_EQ(e.code().value(), 30007);
    }
}

TEST(XmlCreator, RefusesToSignWhatIsNoXml) {
    const Signer signer(host_test::rsaSigner());
    EXPECT_THROW(signXml(signer, "no XML"), CryptoException);
}

int refusalOf(const Creator::Params& params) {
    try {
        Creator().initialize(params);
        return 0;
    } catch (const CryptoException& e) {
        return e.code().value();
    }
}

TEST(XmlCreator, NeedsTheKeyUsageDigitalSignature) {
    Signer signer(host_test::rsaSigner());
    Creator::Params params;
    params.certificate = signer.certificate();
    EXPECT_EQ(refusalOf(params), 0);
    for (const boost::optional<std::uint16_t> usage :
         {boost::optional<std::uint16_t>(), boost::optional<std::uint16_t>(std::uint16_t{0x40}),
          boost::optional<std::uint16_t>(std::uint16_t{0x8000})}) {
        signer.keyUsage = usage;
        EXPECT_EQ(refusalOf(params), 30029);
    }
    signer.keyUsage = std::uint16_t{0xC0};
    EXPECT_EQ(refusalOf(params), 0);
}

TEST(XmlCreator, RefusesSignedAttributesInsteadOfDroppingThem) {
    const Signer signer(host_test::rsaSigner());
    Creator::Params params;
    params.certificate = signer.certificate();
    params.attributes = {{"UTF8String", "1.2.3.4", "text"}};
    EXPECT_EQ(refusalOf(params), 30048);
}

void expectUnsignable(const std::string& text, const std::string& reason) {
    static const Signer signer(host_test::rsaSigner());
    try {
        signXml(signer, text);
        ADD_FAILURE() << text;
    } catch (const CryptoException& e) {
        EXPECT_EQ(e.code().value(), 30009);
        EXPECT_THAT(e.what(), HasSubstr(reason));
    }
}

TEST(XmlCreator, RefusesWhatItsSignatureWouldBreakOrNotCover) {
    const Signer signer(host_test::rsaSigner());
    expectUnsignable(signXml(signer, document), "already signed");
    expectUnsignable("<a>10<!-- -->0</a>", "parts a text");
    expectUnsignable("<!DOCTYPE a [<!ENTITY e \"1\">]><a>&e;</a>", "document type declaration");
    expectUnsignable("<a>&e;</a>", "not a well-formed");
}

TEST(XmlCreator, WritesADocumentInItsOwnEncoding) {
    const Signer signer(host_test::rsaSigner());
    const std::string one = signXml(signer, "<?xml version=\"1.0\" encoding=\"windows-1251\"?><a>\xCF</a>");
    EXPECT_THAT(one, HasSubstr("encoding=\"windows-1251\"?>\n<a>\xCF<Signature"));
}

TEST(XmlCreator, DoesNothingBeforeItIsConfigured) {
    Creator creator;
    std::vector<unsigned char> out;
    EXPECT_FALSE(creator.update(reinterpret_cast<const unsigned char*>("<a/>"), 4));
    EXPECT_FALSE(creator.finalize(out));
}

} // namespace
