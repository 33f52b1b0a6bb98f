// Time-stamps on XML signatures: what an authority is asked for, where its token goes, and what is found again.

#include "http_authority.hpp"
#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/crypto/timestamp_tools.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "orvik/plugin/ssl/cadest_transformers.hpp"
#include "orvik/plugin/xml/xml_document.hpp"
#include "xml_signing.hpp"

#include <boost/smart_ptr/make_shared.hpp>
#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

namespace base64 = orvik::plugin::base64;
using host_test::content;
using host_test::HttpAuthority;
using host_test::part;
using host_test::referenceTemplate;
using host_test::replaced;
using host_test::response;
using host_test::Signer;
using host_test::signXml;
using host_test::transformElement;
using orvik::plugin::crypto::cadest::TimestampTools;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::exception::ApplicationException;
using orvik::plugin::ssl::cadest::xmldsig::Transformer;
using orvik::plugin::ssl::xmldsig::Creator;
using orvik::plugin::xml::XmlDocument;
using orvik::plugin::xml::XmlSignatureResult;
using orvik::plugin::xml::XmlSignatureVerdict;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

/// DER of an OCTET STRING: what is taken for a token here.
std::string tokenOf(const std::string& text) {
    return std::string{'\x04', static_cast<char>(text.size())} + text;
}

constexpr const char* document = "<?xml version=\"1.0\"?>\n<order xmlns:x=\"urn:x\"><sum x:k='1'>100</sum></order>\n";

/// Keeps what it is asked for, and takes every response for a token.
class Tools : public TimestampTools {
public:
    [[nodiscard]] std::string makeRequest(boost::string_view /*signature*/,
                                          boost::string_view /*nonce*/) const override {
        return "not for XML";
    }
    [[nodiscard]] std::string embed(boost::string_view /*signature*/, boost::string_view /*response*/,
                                    boost::string_view /*nonce*/) const override {
        return "not for XML";
    }
    [[nodiscard]] std::string makeRequestFor(boost::string_view octets, const std::string& digestOid,
                                             boost::string_view /*nonce*/) const override {
        stamped.push_back(octets.to_string());
        digests.push_back(digestOid);
        return "request";
    }
    [[nodiscard]] std::string tokenFor(boost::string_view octets, const std::string& digestOid,
                                       boost::string_view response, boost::string_view /*nonce*/) const override {
        EXPECT_EQ(octets, stamped.back());
        EXPECT_EQ(digestOid, digests.back());
        if (response == "bad") {
            throw ApplicationException(ApplicationException::Code::timestampInvalid)
                << orvik::plugin::exception::Message_("not for this");
        }
        return response.to_string();
    }
    [[nodiscard]] orvik::plugin::crypto::cadest::TimestampVerdict judge(boost::string_view /*token*/,
                                                                        boost::string_view /*octets*/) const override {
        return {};
    }
    mutable std::vector<std::string> stamped;
    mutable std::vector<std::string> digests;
};

std::vector<XmlSignatureResult> check(const std::string& text, bool parts = false) {
    XmlDocument parsed(text.data(), text.size());
    orvik::plugin::xml::XmlVerifyOptions options;
    options.allowPartial = parts;
    return orvik::plugin::xml::verifyXmlSignatures(parsed, {}, options);
}

XmlSignatureResult checkOne(const std::string& text) {
    const auto results = check(text);
    EXPECT_THAT(results, SizeIs(1));
    return results.at(0);
}

class XmlTimestamps : public testing::Test {
protected:
    XmlTimestamps() { TimestampTools::install(tools_); }
    ~XmlTimestamps() override { TimestampTools::install({}); }

    /// The document with a time-stamp by the authorities at these addresses.
    static std::string stampAt(const std::string& addresses, const std::string& text) {
        Transformer transformer;
        Transformer::Params params;
        params.authority = addresses;
        EXPECT_TRUE(transformer.initialize(params));
        std::size_t consumed = 0;
        const std::size_t half = text.size() / 2;
        const auto* const octets = reinterpret_cast<const unsigned char*>(text.data());
        EXPECT_TRUE(transformer.update(octets, half, &consumed));
        EXPECT_EQ(consumed, half);
        EXPECT_TRUE(transformer.update(octets + half, text.size() - half));
        std::vector<unsigned char> out;
        EXPECT_TRUE(transformer.finalize(out));
        return {out.begin(), out.end()};
    }

    static std::string stamp(const std::string& text, const std::string& token = "token") {
        HttpAuthority authority({response(tokenOf(token))});
        return stampAt(authority.url(), text);
    }

    static void expectNotStamped(const std::string& text, const std::string& reason) {
        try {
            stampAt("http://127.0.0.1:1/", text);
            ADD_FAILURE() << reason;
        } catch (const CryptoException& e) {
            EXPECT_EQ(e.code().value(), 30009);
            EXPECT_THAT(e.what(), HasSubstr(reason));
        }
    }

    /// The octets that a token must be for, by the rules of exclusive canonical form: the element has no attributes,
    /// and its namespace is the only one that it uses.
    static std::string canonicalValue(const std::string& text) {
        return "<SignatureValue xmlns=\"http://www.w3.org/2000/09/xmldsig#\">" + content(text, "SignatureValue") +
               "</SignatureValue>";
    }

    boost::shared_ptr<Tools> tools_ = boost::make_shared<Tools>(); // NOLINT: the tests' own
    Signer signer_{host_test::rsaSigner()};                        // NOLINT: the tests' own
};

TEST_F(XmlTimestamps, AreForTheCanonicalSignatureValueAndFoundAgain) {
    for (const bool properties : {true, false}) {
        Creator::Params params;
        params.properties = properties;
        const std::string text = signXml(signer_, document, params);
        const std::string stamped = stamp(text, "token one");
        EXPECT_EQ(tools_->stamped.back(), canonicalValue(text));
        EXPECT_EQ(tools_->digests.back(), "2.16.840.1.101.3.4.2.1");
        const auto result = checkOne(stamped);
        EXPECT_TRUE(result.valid) << result.reason << stamped;
        ASSERT_THAT(result.timestamps, SizeIs(1));
        EXPECT_EQ(result.timestamps[0].token, tokenOf("token one"));
        EXPECT_EQ(result.timestamps[0].octets, canonicalValue(text));
        EXPECT_EQ(result.timestamps[0].problem, "");
        EXPECT_THAT(result.notCovered, Not(Contains("unsigned properties in the signature")));
        EXPECT_EQ(result.certificateProtected, properties);
        EXPECT_TRUE(host_test::xmlsecVerifies(signer_, stamped));
        // Nothing signed has changed, nor anything else but the place of the token.
        EXPECT_EQ(part(stamped, "<SignedInfo>", "</KeyInfo>"), part(text, "<SignedInfo>", "</KeyInfo>"));
        EXPECT_EQ(stamped.substr(0, stamped.find("<Signature")), text.substr(0, text.find("<Signature")));
    }
}

TEST_F(XmlTimestamps, AreAddedBesideEarlierOnes) {
    const std::string text = stamp(stamp(signXml(signer_, document), "one"), "two");
    const auto result = checkOne(text);
    EXPECT_TRUE(result.valid) << result.reason;
    ASSERT_THAT(result.timestamps, SizeIs(2));
    EXPECT_EQ(result.timestamps[0].token, tokenOf("one"));
    EXPECT_EQ(result.timestamps[1].token, tokenOf("two"));
    EXPECT_EQ(tools_->stamped[0], tools_->stamped[1]);
}

TEST_F(XmlTimestamps, ComeFromTheFirstAuthorityThatGivesOne) {
    HttpAuthority page({response("<html>", "text/html")});
    HttpAuthority bad({response("bad")});
    HttpAuthority good({response(tokenOf("token"))});
    const std::string text = stampAt(page.url() + " " + bad.url() + " " + good.url(), signXml(signer_, document));
    EXPECT_EQ(checkOne(text).timestamps.at(0).token, tokenOf("token"));
    EXPECT_THROW(stampAt("", signXml(signer_, document)), ApplicationException);
    HttpAuthority again({response("bad")});
    EXPECT_THROW(stampAt(again.url(), signXml(signer_, document)), ApplicationException);
}

TEST_F(XmlTimestamps, KeepTheNamespacesOfPropertiesMadeByOthers) {
    // The properties bind the default prefix to XAdES, the signature has one of its own.
    const std::string object =
        "<d:Object><QualifyingProperties xmlns=\"http://uri.etsi.org/01903/v1.3.2#\" Target=\"#s1\">"
        "<UnsignedProperties><UnsignedDataObjectProperties/></UnsignedProperties></QualifyingProperties></d:Object>";
    std::string signature =
        "<d:Signature xmlns:d=\"http://www.w3.org/2000/09/xmldsig#\" Id=\"s1\"><d:SignedInfo><d:CanonicalizationMethod "
        "Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\"/><d:SignatureMethod "
        "Algorithm=\"http://www.w3.org/2001/04/xmldsig-more#rsa-sha256\"/><d:Reference URI=\"\"><d:Transforms>"
        "<d:Transform Algorithm=\"http://www.w3.org/2000/09/xmldsig#enveloped-signature\"/></d:Transforms>"
        "<d:DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"/><d:DigestValue/></d:Reference>"
        "</d:SignedInfo><d:SignatureValue/><d:KeyInfo><d:X509Data/></d:KeyInfo>" +
        object + "</d:Signature>";
    const std::string stamped = stamp(host_test::signTemplate(signer_, "<doc>" + signature + "</doc>"));
    const auto result = checkOne(stamped);
    EXPECT_TRUE(result.valid) << result.reason << stamped;
    ASSERT_THAT(result.timestamps, SizeIs(1));
    EXPECT_EQ(result.timestamps[0].problem, "");
    EXPECT_EQ(result.timestamps[0].token, tokenOf("token"));
    EXPECT_EQ(result.timestamps[0].octets, tools_->stamped.back());
    EXPECT_LT(stamped.find("UnsignedSignatureProperties"), stamped.find("UnsignedDataObjectProperties"));
}

TEST_F(XmlTimestamps, AreRefusedWhereTheyWouldChangeWhatIsSigned) {
    expectNotStamped("<order/>", "carries no signature");
    expectNotStamped("no XML", "not a well-formed");
    const std::string itself = transformElement(host_test::enveloped);
    const auto sign = [&](const std::string& references, const std::string& after) {
        return host_test::signTemplate(signer_,
                                       "<doc Id=\"d1\"><part Id=\"p1\">100</part>" +
                                           replaced(host_test::signatureTemplate(references, "<X509Data/>", after),
                                                    "<Signature ", "<Signature Id=\"s1\" ") +
                                           "</doc>");
    };
    const std::string properties = "<Object Id=\"o1\"><x:QualifyingProperties Target=\"#s1\" "
                                   "xmlns:x=\"http://uri.etsi.org/01903/v1.3.2#\"><x:SignedProperties/>"
                                   "</x:QualifyingProperties></Object>";
    expectNotStamped(sign(referenceTemplate("", itself) + referenceTemplate("#o1"), properties),
                     "the signature covers the place of a time-stamp");
    const std::string whole = sign(referenceTemplate("", itself), "");
    const std::string signature = part(whole, "<Signature", "</Signature>");
    expectNotStamped(replaced(whole, "</doc>", replaced(signature, "s1", "s2") + "</doc>"), "several signatures");
    expectNotStamped(replaced(whole, "<SignatureValue>", "<SignatureValue>!"), "no time-stamp can be put");
    const std::string old = replaced(properties, "v1.3.2", "v1.1.1");
    expectNotStamped(sign(referenceTemplate("", itself), old), "an older version of XAdES");
}

TEST_F(XmlTimestamps, OfADifferentFormAreNamed) {
    const std::string text = stamp(signXml(signer_, document));
    const std::string method = "<CanonicalizationMethod Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\"/>";
    const auto stamped = [](const std::string& octets) {
        return "<xades:EncapsulatedTimeStamp>" + base64::encode(octets) + "</xades:EncapsulatedTimeStamp>";
    };
    const std::string token = stamped(tokenOf("token"));
    struct Row {
        std::string with;
        XmlSignatureVerdict form;
        const char* problem;
    };
    const auto invalid = XmlSignatureVerdict::invalid;
    const auto unknown = XmlSignatureVerdict::unknown;
    const Row rows[] = {
        {"", invalid, "holds no token"},
        {method, invalid, "holds no token"},
        {method + "<xades:EncapsulatedTimeStamp>!</xades:EncapsulatedTimeStamp>", invalid, "not Base64"},
        {method + "<xades:EncapsulatedTimeStamp/>", invalid, "not Base64"},
        {method + stamped(tokenOf("token") + '\0'), invalid, "not exactly one"},
        {method + stamped(tokenOf("token").substr(0, 5)), invalid, "not exactly one"},
        {method + replaced(token, "Stamp>", "Stamp Encoding=\"urn:x\">"), unknown, "encoding"},
        {method + "<xades:XMLTimeStamp/>", unknown, "not supported: XMLTimeStamp"},
        {"<xades:Include URI=\"#x\"/>" + method + token, unknown, "not supported: Include"},
        {replaced(method, "xml-exc-c14n", "xml-c14n99") + token, unknown, "canonicalization that is not supported"},
    };
    for (const Row& row : rows) {
        const auto result = checkOne(replaced(text, method + token, row.with));
        EXPECT_TRUE(result.valid) << "a time-stamp is not the signer's: " << result.reason << row.problem;
        ASSERT_THAT(result.timestamps, SizeIs(1)) << row.problem;
        EXPECT_EQ(result.timestamps[0].form, row.form) << row.problem;
        EXPECT_THAT(result.timestamps[0].problem, HasSubstr(row.problem));
        EXPECT_EQ(result.timestamps[0].token, "");
    }
}

TEST_F(XmlTimestamps, AreReadInEveryForm) {
    const std::string text = stamp(signXml(signer_, document));
    const std::string method = "<CanonicalizationMethod Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\"/>";
    const std::string token = part(text, "<xades:EncapsulatedTimeStamp>", "</xades:EncapsulatedTimeStamp>");
    // Without a method the form is Canonical XML 1.0, which keeps the document's namespaces.
    const auto inclusive = checkOne(replaced(text, method + token, token));
    ASSERT_THAT(inclusive.timestamps, SizeIs(1));
    EXPECT_EQ(inclusive.timestamps[0].octets,
              replaced(canonicalValue(text), "xmldsig#\"", "xmldsig#\" xmlns:x=\"urn:x\""));
    const auto several = checkOne(replaced(text, token, token + replaced(token, "Stamp>", "Stamp Id=\"t\">")));
    ASSERT_THAT(several.timestamps, SizeIs(2));
    EXPECT_EQ(several.timestamps[1].token, tokenOf("token"));
    EXPECT_EQ(several.timestamps[1].problem, "");
}

TEST_F(XmlTimestamps, BeyondTheLimitStandForTheRest) {
    const std::string text = stamp(signXml(signer_, document));
    const std::string whole = part(text, "<xades:SignatureTimeStamp", "</xades:SignatureTimeStamp>");
    const auto begin = text.find(whole);
    std::string many = text;
    for (int i = 0; i < 20; ++i) {
        many.insert(begin, replaced(whole, "Id=\"timestamp-", "Id=\"t" + std::to_string(i) + "-"));
    }
    const auto result = checkOne(many);
    EXPECT_TRUE(result.valid) << result.reason;
    ASSERT_THAT(result.timestamps, SizeIs(9));
    EXPECT_EQ(result.timestamps[7].problem, "");
    EXPECT_EQ(result.timestamps[8].form, XmlSignatureVerdict::unknown);
    EXPECT_THAT(result.timestamps[8].problem, HasSubstr("more time-stamps than are judged"));
}

TEST_F(XmlTimestamps, WithoutTokensBeyondTheLimitAreNamedTogether) {
    const std::string text = stamp(signXml(signer_, document));
    std::string many = text;
    for (int i = 0; i < 20; ++i) {
        many.insert(many.find("<xades:SignatureTimeStamp"), "<xades:SignatureTimeStamp/>");
    }
    const auto result = checkOne(many);
    ASSERT_THAT(result.timestamps, SizeIs(9));
    EXPECT_EQ(result.timestamps[7].form, XmlSignatureVerdict::invalid);
    EXPECT_THAT(result.timestamps[8].problem, HasSubstr("more time-stamps than are judged"));
}

TEST_F(XmlTimestamps, AreNotLookedForInASignatureThatDoesNotFit) {
    const std::string text = stamp(signXml(signer_, document));
    const auto result = checkOne(replaced(text, ">100<", ">101<"));
    EXPECT_FALSE(result.valid);
    EXPECT_THAT(result.timestamps, IsEmpty());
}

TEST_F(XmlTimestamps, NeedTheBackEndsTools) {
    TimestampTools::install({});
    EXPECT_THROW(stampAt("http://127.0.0.1:1/", signXml(signer_, document)), CryptoException);
    TimestampTools::install(tools_);
    EXPECT_THROW(stampAt("http://127.0.0.1:1/", ""), ApplicationException);
}

} // namespace
