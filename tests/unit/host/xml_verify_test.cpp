#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/xml/xml_document.hpp"
#include "signer.hpp"
#include "support/process.hpp"
#include "xml_signing.hpp"

#include <gmock/gmock.h>

#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace base64 = orvik::plugin::base64;
using host_test::content;
using host_test::replaced;
using host_test::Signer;
using host_test::signXml;
using orvik::plugin::xml::XmlDocument;
using orvik::plugin::xml::XmlSignatureResult;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* document = "<invoice><sum currency='RUB'>100</sum></invoice>";

std::vector<XmlSignatureResult> check(const std::string& text) {
    XmlDocument parsed(text.data(), text.size());
    return orvik::plugin::xml::verifyXmlSignatures(parsed, {});
}

/// The only result.
XmlSignatureResult checkOne(const std::string& text) {
    const auto results = check(text);
    EXPECT_THAT(results, SizeIs(1));
    return results.at(0);
}

class XmlVerify : public testing::TestWithParam<host_test::SignerAlgorithm> {
protected:
    Signer signer_{GetParam()};                       // NOLINT: the tests' own
    std::string signed_ = signXml(signer_, document); // NOLINT: the tests' own
};

TEST_P(XmlVerify, AcceptsWhatTheCreatorMakes) {
    const auto result = checkOne(signed_);
    EXPECT_TRUE(result.valid) << result.reason;
    EXPECT_EQ(result.certificate, signer_.der());
    EXPECT_EQ(result.reason, "");
}

TEST_P(XmlVerify, RefusesAChangedDocument) {
    for (const auto& changed :
         {replaced(signed_, "100", "900"), replaced(signed_, "RUB", "USD"),
          replaced(signed_, "<invoice>", "<invoice added=\"1\">"), replaced(signed_, "</sum>", "</sum> ")}) {
        const auto result = checkOne(changed);
        EXPECT_FALSE(result.valid) << changed;
        EXPECT_NE(result.reason, "");
    }
}

TEST_P(XmlVerify, RefusesAChangedSignature) {
    const std::string value = content(signed_, "SignatureValue");
    std::string octets = base64::decode(value);
    for (const std::size_t at : {std::size_t{0}, octets.size() / 2, octets.size() - 1}) {
        std::string changed = octets;
        changed[at] = static_cast<char>(changed[at] ^ 1);
        EXPECT_FALSE(checkOne(replaced(signed_, value, base64::encode(changed))).valid) << at;
    }
}

// OpenSSL's engine takes a GOST signature with octets behind it.
TEST_P(XmlVerify, RefusesASignatureOfAnotherLength) {
    const std::string value = content(signed_, "SignatureValue");
    const std::string octets = base64::decode(value);
    EXPECT_FALSE(checkOne(replaced(signed_, value, base64::encode(octets + '\0'))).valid);
    EXPECT_FALSE(checkOne(replaced(signed_, value, base64::encode(octets.substr(1)))).valid);
    EXPECT_FALSE(checkOne(replaced(signed_, value, "")).valid);
}

TEST_P(XmlVerify, RefusesAChangedDigest) {
    const std::string value = content(signed_, "DigestValue");
    EXPECT_FALSE(checkOne(replaced(signed_, value, base64::encode(std::string(32, 'x')))).valid);
}

TEST_P(XmlVerify, RefusesAnotherSignersCertificate) {
    const Signer other(GetParam());
    const std::string certificate = content(signed_, "X509Certificate");
    EXPECT_FALSE(checkOne(replaced(signed_, certificate, base64::encode(other.der()))).valid);
}

TEST_P(XmlVerify, FindsTheSignerAmongSeveralCertificates) {
    const Signer other(host_test::rsaSigner());
    const auto result =
        checkOne(replaced(signed_, "<X509Certificate>",
                          "<X509Certificate>" + base64::encode(other.der()) +
                              "</X509Certificate><X509Certificate>!</X509Certificate><X509Certificate>"));
    EXPECT_TRUE(result.valid) << result.reason;
    EXPECT_EQ(result.certificate, signer_.der());
}

INSTANTIATE_TEST_SUITE_P(Algorithms, XmlVerify,
                         testing::Values(host_test::rsaSigner(), host_test::gost256Signer(),
                                         host_test::gost512Signer()),
                         [](const auto& test) { return test.param.newKey == "rsa:2048" ? "Rsa" : test.param.newKey; });

/// The document with `old` in its SignedInfo replaced and that signed anew.
std::string signedAnew(const Signer& signer, const std::string& text, const std::vector<std::string>& old,
                       const std::vector<std::string>& with) {
    std::string info = content(text, "SignedInfo");
    for (std::size_t i = 0; i < old.size(); ++i) {
        info = replaced(info, old[i], with[i]);
    }
    const std::string canonical = "<SignedInfo xmlns=\"http://www.w3.org/2000/09/xmldsig#\">" +
                                  std::regex_replace(info, std::regex("<(\\w+)([^<>]*)/>"), "<$1$2></$1>") +
                                  "</SignedInfo>";
    return replaced(replaced(text, content(text, "SignedInfo"), info), content(text, "SignatureValue"),
                    base64::encode(signer.digest(canonical, true)));
}

TEST(XmlVerifyGost, KnowsTheOtherNamesOfTheAlgorithms) {
    const std::string ours = "urn:ietf:params:xml:ns:cpxmlsec:algorithms:";
    const std::string others = "http://www.w3.org/2001/04/xmldsig-more#";
    const std::string signature = "gostr34102012-gostr34112012-256";
    const std::string digest = "gostr34112012-256";
    const Signer signer(host_test::gost256Signer());
    const auto result = checkOne(signedAnew(signer, signXml(signer, document), {ours + signature, ours + digest},
                                            {others + signature, others + digest}));
    EXPECT_TRUE(result.valid) << result.reason;
}

TEST(XmlVerifyGost, RefusesAKeyOfAnotherAlgorithm) {
    const std::string algorithm = "gostr34102012-gostr34112012-256";
    const Signer signer(host_test::gost256Signer());
    const auto result =
        checkOne(signedAnew(signer, signXml(signer, document), {algorithm}, {"gostr34102001-gostr3411"}));
    EXPECT_FALSE(result.valid);
}

TEST(XmlVerifyDocument, WithoutSignatureGivesNoResult) {
    EXPECT_THAT(check(document), IsEmpty());
}

TEST(XmlVerifyDocument, ChecksEverySignature) {
    const Signer signer(host_test::rsaSigner());
    const std::string one = signXml(signer, document);
    const auto results = check("<all>" + replaced(one, "<?xml version=\"1.0\"?>", "") + "</all>");
    ASSERT_THAT(results, SizeIs(1));
    EXPECT_FALSE(results[0].valid) << "the signature is over the whole document";
    const std::string signature = "<Signature" + one.substr(one.find(" xmlns=\"http://www.w3.org/2000/09/xmldsig#"));
    const std::string second = signature.substr(0, signature.find("</Signature>") + 12);
    EXPECT_THAT(check(replaced(one, "</invoice>", second + "</invoice>")), SizeIs(2));
}

/// Documents that the xmlsec1 command signs by a template.
class XmlTemplates : public testing::Test {
protected:
    std::string sign(const std::string& reference, const std::string& keyInfo = "<X509Data/>",
                     const std::string& method = "http://www.w3.org/2001/04/xmldsig-more#rsa-sha256") {
        return host_test::signTemplate(signer_, "<doc><part Id=\"p1\">one</part><part Id=\"p2\">two</part>" +
                                                    host_test::signatureTemplate(reference, keyInfo, "", method) +
                                                    "</doc>");
    }

    static std::string reference(const std::string& uri, const std::string& transforms) {
        return host_test::referenceTemplate(uri, transforms);
    }

    Signer signer_{host_test::rsaSigner()}; // NOLINT: the tests' own
};

orvik::plugin::xml::XmlSignatureResult checkPart(const std::string& text) {
    XmlDocument parsed(text.data(), text.size());
    orvik::plugin::xml::XmlVerifyOptions options;
    options.allowPartial = true;
    options.allowBareKey = true;
    return orvik::plugin::xml::verifyXmlSignatures(parsed, {}, options).at(0);
}

TEST_F(XmlTemplates, AcceptAReferenceToAPartOnlyWhenAsked) {
    const std::string text = sign(reference("#p1", ""));
    const auto refused = checkOne(text);
    EXPECT_FALSE(refused.valid);
    EXPECT_EQ(refused.reason, "the signature covers only a part of the document");
    EXPECT_FALSE(refused.wholeDocument);
    const auto part = checkPart(text);
    EXPECT_TRUE(part.valid) << part.reason;
    ASSERT_THAT(part.covered, SizeIs(1));
    EXPECT_EQ(part.covered[0].path, "/doc/part[1]");
    EXPECT_EQ(part.covered[0].id, "p1");
    EXPECT_FALSE(checkPart(replaced(text, "one", "ONE")).valid);
}

TEST_F(XmlTemplates, RefuseTwoPartsWithTheSameIdentifier) {
    const auto result = checkOne(replaced(sign(reference("#p1", "")), "Id=\"p2\"", "Id=\"p1\""));
    EXPECT_FALSE(result.valid);
    EXPECT_EQ(result.reason, "two elements have the same identifier");
}

TEST_F(XmlTemplates, FollowIdentifiersThatOtherReadersFollowToo) {
    const std::string text = sign(reference("#p1", ""));
    for (const char* id : {"Id=\" p1\"", "Id=\"p1&#10;\"", "xml:Id=\"p1\"", "xml:ID=\"p1\""}) {
        EXPECT_THAT(checkPart(replaced(text, "Id=\"p1\"", id)).reason, HasSubstr("an identifier that no element has"))
            << id;
    }
    EXPECT_THAT(checkPart(replaced(text, "Id=\"p1\"", "xml:id=\" p1 \"")).reason, HasSubstr("has been changed"));
}

TEST_F(XmlTemplates, DoNotCallABareKeyASigner) {
    const std::string text = sign(reference("", host_test::transformElement(host_test::enveloped)), "<KeyValue/>");
    const auto result = checkOne(text);
    EXPECT_EQ(result.verdict, orvik::plugin::xml::XmlSignatureVerdict::unknown);
    EXPECT_FALSE(result.valid);
    EXPECT_THAT(result.reason, HasSubstr("carries no certificate"));
    EXPECT_TRUE(checkPart(text).valid) << checkPart(text).reason;
    const std::string value = content(text, "SignatureValue");
    const auto forged = checkOne(replaced(text, value, (value[1] == 'A' ? "B" : "A") + value.substr(2)));
    EXPECT_EQ(forged.verdict, orvik::plugin::xml::XmlSignatureVerdict::invalid);
}

TEST_F(XmlTemplates, RefuseASignatureWithoutKey) {
    const std::string text = sign(reference("#p1", ""), "<X509Data/>");
    const auto result = checkOne(replaced(text, "<KeyInfo>" + content(text, "KeyInfo") + "</KeyInfo>", ""));
    EXPECT_FALSE(result.valid);
    EXPECT_THAT(result.reason, testing::StartsWith("the signature carries no certificate"));
}

TEST_F(XmlTemplates, RefuseWhatIsOutsideTheDocument) {
    const std::string file = signer_.folder().write("outside.txt", "outside");
    const auto result = checkOne(sign(reference("file://" + file, "")));
    EXPECT_FALSE(result.valid);
    EXPECT_THAT(result.reason, HasSubstr("file://"));
}

std::string xpath(const std::string& expression) {
    return "<Transform Algorithm=\"http://www.w3.org/TR/1999/REC-xpath-19991116\">"
           "<XPath xmlns:d=\"http://www.w3.org/2000/09/xmldsig#\" xmlns:other=\"urn:other\">" +
           expression + "</XPath></Transform>";
}

TEST_F(XmlTemplates, AcceptTheXpathThatTakesSignaturesOut) {
    const std::string text = sign(reference("", xpath("not(ancestor-or-self::d:Signature)")));
    EXPECT_TRUE(checkOne(text).valid) << checkOne(text).reason;
    EXPECT_FALSE(checkOne(replaced(text, "one", "ONE")).valid);
}

TEST_F(XmlTemplates, RefuseOtherXpath) {
    for (const auto* expression :
         {"ancestor-or-self::part", "not(ancestor-or-self::other:Signature)", "not(ancestor-or-self :: d:Signature)",
          " not(ancestor-or-self::d:Signature)", "not(ancestor-or-self::d:Signature) and not(ancestor-or-self::part)",
          "not(ancestor-or-self::part) or not(ancestor-or-self::d:Signature)"}) {
        const auto result = checkOne(sign(reference("", xpath(expression))));
        EXPECT_FALSE(result.valid) << expression;
        EXPECT_EQ(result.reason, "the signature uses an XPath expression that is not allowed");
    }
}

TEST_F(XmlTemplates, RefuseXslt) {
    const auto result =
        checkOne(sign(reference("#p1", "<Transform Algorithm=\"http://www.w3.org/TR/1999/REC-xslt-19991116\">"
                                       "<xsl:stylesheet xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\" "
                                       "version=\"1.0\"><xsl:template match=\"/\"><x/></xsl:template></xsl:stylesheet>"
                                       "</Transform>")));
    EXPECT_FALSE(result.valid);
    EXPECT_THAT(result.reason, HasSubstr("REC-xslt-19991116"));
}

TEST_F(XmlTemplates, RefuseASharedSecret) {
    const auto result =
        checkOne(sign(reference("#p1", ""), "<KeyName/>", "http://www.w3.org/2000/09/xmldsig#hmac-sha1"));
    EXPECT_FALSE(result.valid);
    EXPECT_THAT(result.reason, HasSubstr("hmac-sha1"));
}

// The library below has a habit of talking to standard error.
TEST_F(XmlTemplates, LeaveStandardErrorAlone) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(checkOne(replaced(sign(reference("#p1", "")), "one", "ONE")).valid);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

} // namespace
