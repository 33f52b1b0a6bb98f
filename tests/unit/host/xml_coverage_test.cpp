// What of a document a signature covers, and what of it the verdict names as not covered.

#include "honest_documents.hpp"
#include "orvik/plugin/base64.hpp"

#include <gmock/gmock.h>

#include <string>

namespace {

namespace base64 = orvik::plugin::base64;
using host_test::honest;
using host_test::part;
using host_test::referenceTemplate;
using host_test::replaced;
using host_test::signatureOf;
using host_test::signatureTemplate;
using host_test::signTemplate;
using host_test::withoutItselfExclusive;
using host_test::withUnsignedProperty;
using host_test::worst;
using orvik::plugin::xml::XmlDocument;
using orvik::plugin::xml::XmlSignatureVerdict;
using orvik::plugin::xml::XmlVerifyOptions;

constexpr const char* looseNamespaces = "namespace declarations that no signed name uses";

TEST(XmlCoverage, UnsignedPropertiesOfXadesLeaveTheDocumentWhole) {
    const std::string text = withUnsignedProperty(
        honest().whole, "<x:CompleteCertificateRefs><x:CertRefs><x:Cert><x:CertDigest><DigestMethod Algorithm=\"u\"/>"
                        "<DigestValue>AAAA</DigestValue></x:CertDigest></x:Cert></x:CertRefs>"
                        "</x:CompleteCertificateRefs><x:SignatureTimeStamp><x:EncapsulatedTimeStamp>AAAA"
                        "</x:EncapsulatedTimeStamp></x:SignatureTimeStamp>");
    const auto result = worst(text, {});
    ASSERT_TRUE(result);
    EXPECT_TRUE(result->valid) << result->reason;
    EXPECT_THAT(result->notCovered, testing::Contains("unsigned properties in the signature"));
}

// "urn:y" is bound to a prefix that no name of the signed document uses. An inclusive form of SignedInfo would protect
// it.
TEST(XmlCoverage, NamesThatAreNotSignedDoNotProtectANamespace) {
    const std::string signature = replaced(signatureTemplate(referenceTemplate("", withoutItselfExclusive)),
                                           "http://www.w3.org/TR/2001/REC-xml-c14n-20010315", host_test::exclusive);
    const std::string text = signTemplate(honest().signer, "<doc xmlns:y=\"urn:y\">" + signature + "</doc>");
    const std::string element =
        withUnsignedProperty(replaced(text, "urn:y", "http://uri.etsi.org/01903/v1.3.2#"), "<y:CertRefs/>");
    const std::string attribute = withUnsignedProperty(replaced(text, "urn:y", "urn:evil"), "<x:CertRefs y:k=\"\"/>");
    for (const std::string& changed : {text, element, attribute}) {
        const auto result = worst(changed, {});
        ASSERT_TRUE(result);
        EXPECT_EQ(result->valid, changed != attribute) << result->reason;
        EXPECT_THAT(result->notCovered, testing::Contains(looseNamespaces)) << changed;
    }
}

// A key of 16,384 bits takes some milliseconds, and every signature may carry sixteen.
TEST(XmlCoverage, TheKeysOfADocumentAreTriedWithinABound) {
    const test_support::Openssl openssl(honest().other.folder());
    std::string certificates;
    for (const char* name : {"1", "2", "3", "4", "5"}) {
        openssl.must({"req", "-x509", "-new", "-key", "key.pem", "-outform", "DER", "-out", "many.der", "-subj",
                      std::string("/CN=") + name});
        certificates +=
            "<X509Certificate>" + base64::encode(honest().other.folder().read("many.der")) + "</X509Certificate>";
    }
    const std::string own = part(honest().part, "<X509Certificate>", "</X509Certificate>");
    const std::string foreign = signatureOf(replaced(honest().part, own, certificates));
    std::string text = honest().part;
    for (int i = 0; i < 60; ++i) { // 300 keys
        text = replaced(text, "</doc>", foreign + "</doc>");
    }
    XmlDocument parsed(text.data(), text.size());
    XmlVerifyOptions parts;
    parts.allowPartial = true;
    const auto results = orvik::plugin::xml::verifyXmlSignatures(parsed, {}, parts);
    ASSERT_EQ(results.size(), 61U);
    EXPECT_TRUE(results[0].valid) << results[0].reason;
    EXPECT_EQ(results[51].verdict, XmlSignatureVerdict::invalid) << "the last whose keys are all tried";
    EXPECT_EQ(results[52].verdict, XmlSignatureVerdict::unknown);
    EXPECT_THAT(results[60].reason, testing::HasSubstr("more keys than are tried"));
}

TEST(XmlCoverage, NamesThatAreSignedProtectANamespace) {
    const std::string text =
        signTemplate(honest().signer, "<doc xmlns:x=\"urn:x\"><x:part/>" +
                                          signatureTemplate(referenceTemplate("", withoutItselfExclusive)) + "</doc>");
    const auto result = worst(text, {});
    ASSERT_TRUE(result);
    EXPECT_TRUE(result->valid) << result->reason;
    EXPECT_THAT(result->notCovered, testing::Not(testing::Contains(looseNamespaces)));
}

// Every octet of a document, one at a time.
TEST(XmlCoverage, OneChangedOctetIsRefusedOrNotCovered) {
    const std::string& text = honest().exclusive;
    const auto keyInfo = text.find("<KeyInfo>");
    const auto keyInfoEnd = text.find("</KeyInfo>");
    std::string passed;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (at > keyInfo && at < keyInfoEnd) {
            continue; // reported as not covered: the signer's certificate
        }
        std::string changed = text;
        changed[at] = static_cast<char>(changed[at] ^ 1);
        const auto result = worst(changed, {});
        if (result && result->valid) {
            passed += text[at];
            EXPECT_THAT(result->notCovered, testing::Contains("the signer's certificate"));
        }
    }
    // Quotes and blanks are not content; "urn:y" is a namespace that no signed name uses.
    EXPECT_THAT(passed, testing::MatchesRegex("[\"' \n0-9a-z:.]*"));
    EXPECT_LT(passed.size(), 40U) << passed;
}

} // namespace
