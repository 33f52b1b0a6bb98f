#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/ssl/xmldsig_creator.hpp"
#include "signer.hpp"
#include "support/process.hpp"
#include "xml_signing.hpp"

#include <gmock/gmock.h>

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
    signer.folder().write("signed.xml", signXml(signer, document));
    const auto judged = test_support::run(
        {"xmlsec1", "--verify", "--pubkey-cert-pem", signer.folder() / "c.pem", signer.folder() / "signed.xml"});
    EXPECT_EQ(judged.exit, 0) << judged.err;
}

TEST(XmlCreator, GivesTheSameDocumentWhateverTheChunks) {
    const Signer signer(host_test::rsaSigner());
    EXPECT_EQ(signXml(signer, document, 1), signXml(signer, document));
}

TEST(XmlCreator, KeepsTheDocumentAroundItsSignature) {
    const Signer signer(host_test::rsaSigner());
    const std::string text = signXml(signer, document);
    EXPECT_THAT(text, HasSubstr("<!-- note --><x:sum currency=\"RUB\">100</x:sum>"));
    EXPECT_THAT(text, HasSubstr("<Signature xmlns=\"http://www.w3.org/2000/09/xmldsig#\"><SignedInfo>"));
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

TEST(XmlCreator, DoesNothingBeforeItIsConfigured) {
    Creator creator;
    std::vector<unsigned char> out;
    EXPECT_FALSE(creator.update(reinterpret_cast<const unsigned char*>("<a/>"), 4));
    EXPECT_FALSE(creator.finalize(out));
}

} // namespace
