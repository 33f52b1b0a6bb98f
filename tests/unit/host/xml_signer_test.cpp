// Whose certificate a signed document shows, and whether the signature protects it.

#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/xml/xml_document.hpp"
#include "support/process.hpp"
#include "xml_signing.hpp"

#include <gmock/gmock.h>

#include <string>

namespace {

namespace base64 = orvik::plugin::base64;
using host_test::content;
using host_test::referenceTemplate;
using host_test::replaced;
using host_test::Signer;
using host_test::transformElement;
using orvik::plugin::xml::XmlDocument;
using orvik::plugin::xml::XmlSignatureResult;
using orvik::plugin::xml::XmlSignatureVerdict;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

constexpr const char* notSigned = "the signer's certificate";

XmlSignatureResult checkOne(const std::string& text) {
    XmlDocument parsed(text.data(), text.size());
    return orvik::plugin::xml::verifyXmlSignatures(parsed, {}).at(0);
}

/// The same for a caller who has the signer's certificate.
XmlSignatureResult checkBy(const std::string& certificate, const std::string& text) {
    XmlDocument parsed(text.data(), text.size());
    orvik::plugin::xml::XmlVerifyOptions options;
    options.certificate = certificate;
    return orvik::plugin::xml::verifyXmlSignatures(parsed, {}, options).at(0);
}

/// Documents by one signer, who has a second certificate of the same key.
class XmlSigner : public testing::Test {
protected:
    XmlSigner() {
        const test_support::Openssl openssl(signer_.folder());
        openssl.must({"req", "-x509", "-new", "-key", "key.pem", "-out", "second.pem", "-subj", "/CN=second"});
        openssl.must({"x509", "-in", "second.pem", "-outform", "DER", "-out", "second.der"});
        second_ = signer_.folder().read("second.der");
    }

    [[nodiscard]] std::string sign(const std::string& more, const std::string& after,
                                   const std::string& keyInfo = "<X509Data/>") const {
        std::string signature = host_test::signatureTemplate(
            referenceTemplate("", transformElement(host_test::enveloped)) + more, keyInfo, after);
        return host_test::signTemplate(signer_, "<doc><part>100</part>" + signature + "</doc>");
    }

    /// A XAdES property that names that certificate, in an Object that is covered.
    [[nodiscard]] std::string signNaming(const std::string& certificate) const {
        const std::string property =
            "<Object Id=\"o1\"><x:QualifyingProperties xmlns:x=\"http://uri.etsi.org/01903/v1.3.2#\">"
            "<x:SignedProperties><x:SignedSignatureProperties><x:SigningCertificateV2><x:Cert><x:CertDigest>"
            "<DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"/><DigestValue>" +
            base64::encode(signer_.digest(certificate, false)) +
            "</DigestValue></x:CertDigest></x:Cert></x:SigningCertificateV2></x:SignedSignatureProperties>"
            "</x:SignedProperties></x:QualifyingProperties></Object>";
        return sign(referenceTemplate("#o1"), property);
    }

    [[nodiscard]] std::string withSecondFirst(const std::string& text) const {
        return replaced(text, "<X509Certificate>",
                        "<X509Certificate>" + base64::encode(second_) + "</X509Certificate><X509Certificate>");
    }

    Signer signer_{host_test::rsaSigner()}; // NOLINT: the tests' own
    std::string second_;                    // NOLINT: the tests' own
};

TEST_F(XmlSigner, OfACertificateThatNothingProtectsIsSaidSo) {
    const std::string text = sign("", "");
    const auto result = checkOne(text);
    EXPECT_TRUE(result.valid) << result.reason;
    EXPECT_EQ(result.certificate, signer_.der());
    EXPECT_FALSE(result.certificateProtected);
    EXPECT_THAT(result.notCovered, Contains(notSigned));
    // Anybody can put another certificate of the key in its place, and the result says that nothing speaks against it.
    const auto swapped = checkOne(withSecondFirst(text));
    EXPECT_TRUE(swapped.valid);
    EXPECT_EQ(swapped.certificate, second_);
    EXPECT_THAT(swapped.notCovered, Contains(notSigned));
}

TEST_F(XmlSigner, IsTheOneThatASignedPropertyNames) {
    const std::string text = signNaming(signer_.der());
    for (const auto& one : {text, withSecondFirst(text)}) {
        const auto result = checkOne(one);
        EXPECT_TRUE(result.valid) << result.reason;
        EXPECT_EQ(result.certificate, signer_.der());
        EXPECT_TRUE(result.certificateProtected);
        EXPECT_THAT(result.notCovered, Not(Contains(notSigned)));
    }
}

TEST_F(XmlSigner, IsNotACertificateThatASignedPropertyDoesNotName) {
    const auto other = checkOne(signNaming(second_));
    EXPECT_EQ(other.verdict, XmlSignatureVerdict::invalid);
    EXPECT_THAT(other.reason, HasSubstr("names another certificate"));
    const auto second = checkOne(withSecondFirst(signNaming(second_)));
    EXPECT_TRUE(second.valid) << second.reason;
    EXPECT_EQ(second.certificate, second_);
}

TEST_F(XmlSigner, ThatAnUnsignedPropertyNamesIsNotProtected) {
    const std::string text = signNaming(second_);
    const std::string object = text.substr(text.find("<Object"), text.find("</Object>") + 9 - text.find("<Object"));
    const auto result = checkOne(replaced(sign("", ""), "</Signature>", object + "</Signature>"));
    EXPECT_FALSE(result.valid) << "a reader takes SignedProperties for signed";
    EXPECT_FALSE(result.certificateProtected);
    EXPECT_THAT(result.notCovered, Contains("unsigned properties in the signature"));
}

TEST_F(XmlSigner, MayHavePropertiesAddedAfterSigning) {
    const auto result = checkOne(
        replaced(sign("", ""), "</Signature>",
                 "<Object><x:QualifyingProperties xmlns:x=\"http://uri.etsi.org/01903/v1.3.2#\">"
                 "<x:UnsignedProperties><x:UnsignedSignatureProperties><x:SignatureTimeStamp/><x:CertificateValues/>"
                 "</x:UnsignedSignatureProperties></x:UnsignedProperties>"
                 "</x:QualifyingProperties></Object></Signature>"));
    EXPECT_TRUE(result.valid) << result.reason;
    EXPECT_THAT(result.notCovered, Contains("unsigned properties in the signature"));
    EXPECT_THAT(result.timestamps, testing::SizeIs(1)) << "it has no token";
}

TEST_F(XmlSigner, IsProtectedByAReferenceToItsPlace) {
    const std::string der = base64::encode(signer_.der());
    std::string text = "<doc><part>100</part>" +
                       host_test::signatureTemplate(
                           referenceTemplate("", transformElement(host_test::enveloped)) + referenceTemplate("#p9"),
                           "<X509Data><X509Certificate>" + der + "</X509Certificate></X509Data>") +
                       "</doc>";
    text = replaced(text, "<KeyInfo>", "<KeyInfo Id=\"p9\">");
    const auto& folder = signer_.folder();
    folder.write("template.xml", text);
    const auto made = test_support::run({"xmlsec1", "--sign", "--id-attr:Id",
                                         "http://www.w3.org/2000/09/xmldsig#:KeyInfo", "--privkey-pem",
                                         folder / "key.pem", "--output", folder / "out.xml", folder / "template.xml"});
    ASSERT_EQ(made.exit, 0) << made.err;
    const std::string done = folder.read("out.xml");
    const auto result = checkOne(done);
    EXPECT_TRUE(result.valid) << result.reason;
    EXPECT_TRUE(result.certificateProtected);
    EXPECT_FALSE(checkOne(replaced(done, der, base64::encode(second_))).valid);
}

TEST_F(XmlSigner, IsTheCertificateThatTheCallerGives) {
    const std::string text = sign("", "");
    for (const std::string& given : {second_, signer_.der()}) {
        const auto result = checkBy(given, text);
        EXPECT_TRUE(result.valid) << result.reason;
        EXPECT_EQ(result.certificate, given);
        EXPECT_TRUE(result.certificateProtected);
        EXPECT_THAT(result.notCovered, Not(Contains(notSigned)));
    }
    const auto changed = checkBy(signer_.der(), replaced(text, "100", "101"));
    EXPECT_EQ(changed.verdict, XmlSignatureVerdict::invalid);
}

TEST_F(XmlSigner, MayBeKnownToTheCallerAlone) {
    const std::string text = sign("", "");
    const std::string bare = replaced(text, host_test::part(text, "<KeyInfo>", "</KeyInfo>"), "");
    EXPECT_EQ(checkOne(bare).verdict, XmlSignatureVerdict::unknown);
    const auto result = checkBy(signer_.der(), bare);
    EXPECT_TRUE(result.valid) << result.reason;
    EXPECT_EQ(result.certificate, signer_.der());
    const Signer other(host_test::rsaSigner());
    const auto refused = checkBy(other.der(), bare);
    EXPECT_EQ(refused.verdict, XmlSignatureVerdict::invalid);
    EXPECT_THAT(refused.reason, HasSubstr("the given certificate is not the signer's"));
    // Without identifiers in XML signatures, one that its own certificate verifies is judged by that.
    const auto own = checkBy(other.der(), text);
    EXPECT_TRUE(own.valid);
    EXPECT_EQ(own.certificate, signer_.der());
    EXPECT_FALSE(own.certificateProtected);
}

TEST_F(XmlSigner, ThatTheCallerGivesMustBeTheOneThatASignedPropertyNames) {
    EXPECT_EQ(checkBy(second_, signNaming(signer_.der())).verdict, XmlSignatureVerdict::invalid);
    EXPECT_TRUE(checkBy(signer_.der(), signNaming(signer_.der())).valid);
}

TEST_F(XmlSigner, WhoseCertificateIsOfNoUseIsDescribedAsIs) {
    const std::string text = sign("", "");
    const std::string der = content(text, "X509Certificate");
    std::string damaged = signer_.der();
    damaged.pop_back();
    std::string foreignKey = signer_.der(); // another OID for the key's algorithm
    const std::string rsaKey("\x2A\x86\x48\x86\xF7\x0D\x01\x01\x01", 9);
    foreignKey[foreignKey.find(rsaKey) + rsaKey.size() - 1] = 0x7F;
    signer_.folder().write("ec.pem", "");
    test_support::Openssl(signer_.folder())
        .must({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-noenc", "-keyout", "ec.key",
               "-outform", "DER", "-out", "ec.der", "-subj", "/CN=ec"});
    const std::pair<std::string, std::string> rows[] = {
        {base64::encode(damaged), "a certificate that the signature carries is damaged"},
        {"!", "a certificate that the signature carries is damaged"},
        {base64::encode(foreignKey), "a certificate that the signature carries has a key that is not supported"},
        {base64::encode(signer_.folder().read("ec.der")),
         "no certificate that the signature carries has a key of its algorithm"},
    };
    for (const auto& [certificate, reason] : rows) {
        const auto result = checkOne(replaced(text, der, certificate));
        EXPECT_EQ(result.verdict, XmlSignatureVerdict::unknown) << reason;
        EXPECT_THAT(result.reason, HasSubstr(reason));
    }
    const auto missing = checkOne(replaced(text, host_test::part(text, "<KeyInfo>", "</KeyInfo>"), ""));
    EXPECT_THAT(missing.reason, HasSubstr("the signature carries no certificate"));
}

TEST_F(XmlSigner, OfAManifestIsNotEnough) {
    const std::string object = "<Object Id=\"o1\"><Manifest>" +
                               referenceTemplate("", transformElement(host_test::enveloped)) + "</Manifest></Object>";
    const std::string text = sign(referenceTemplate("#o1"), object);
    const auto result = checkOne(text);
    EXPECT_EQ(result.verdict, XmlSignatureVerdict::invalid);
    EXPECT_THAT(result.reason, HasSubstr("Manifest"));
    EXPECT_THAT(result.notCovered, Contains("what the Manifest lists"));
}

TEST_F(XmlSigner, WithAWeakKeyOrDigestIsNamedSo) {
    const auto strong = checkOne(sign("", ""));
    EXPECT_THAT(strong.weak, testing::IsEmpty());
    EXPECT_EQ(strong.digestAlgorithm, "2.16.840.1.101.3.4.2.1");
    std::string text = "<doc>" +
                       host_test::signatureTemplate(replaced(
                           referenceTemplate("", transformElement(host_test::enveloped)),
                           "http://www.w3.org/2001/04/xmlenc#sha256", "http://www.w3.org/2000/09/xmldsig#sha1")) +
                       "</doc>";
    const auto weak = checkOne(host_test::signTemplate(signer_, text));
    EXPECT_TRUE(weak.valid) << weak.reason;
    ASSERT_THAT(weak.weak, testing::SizeIs(1));
    EXPECT_THAT(weak.weak[0].name, HasSubstr("SHA-1"));
}

} // namespace
