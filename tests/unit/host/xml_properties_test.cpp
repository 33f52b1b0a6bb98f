// The properties of XAdES that the creator writes, and what the verifier makes of them.

#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/constant.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/xml/xml_document.hpp"
#include "support/process.hpp"
#include "xml_signing.hpp"

#include <boost/date_time/posix_time/ptime.hpp>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <ctime>
#include <string>

namespace {

namespace base64 = orvik::plugin::base64;
namespace converter = orvik::plugin::converter;
using host_test::content;
using host_test::part;
using host_test::replaced;
using host_test::Signer;
using host_test::signXml;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::ssl::xmldsig::Creator;
using orvik::plugin::xml::XmlDocument;
using orvik::plugin::xml::XmlSignatureResult;
using orvik::plugin::xml::XmlSignatureVerdict;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr const char* document = "<order><sum>100</sum></order>";
constexpr const char* unsignedProperties = "unsigned properties in the signature";

XmlSignatureResult checkOne(const std::string& text) {
    XmlDocument parsed(text.data(), text.size());
    return orvik::plugin::xml::verifyXmlSignatures(parsed, {}).at(0);
}

std::time_t secondsOf(const boost::posix_time::ptime& time) {
    return converter::to_time_t_64(time);
}

class XmlProperties : public testing::TestWithParam<host_test::SignerAlgorithm> {
protected:
    /// The creator's document at that time.
    [[nodiscard]] std::string signAt(const std::string& time) const {
        Creator::Params params;
        params.attributes = {{"UTCTime", orvik::plugin::oid::signingTime, time}};
        return signXml(signer_, document, params);
    }

    /// The creator's code of refusal; 0 when it takes the parameters.
    [[nodiscard]] int refusalOf(Creator::Params params) const {
        params.certificate = signer_.certificate();
        try {
            Creator().initialize(params);
            return 0;
        } catch (const CryptoException& e) {
            return e.code().value();
        }
    }

    Signer signer_{GetParam()}; // NOLINT: the tests' own
};

TEST_P(XmlProperties, SayWhenAndByWhomTheDocumentWasSigned) {
    const std::time_t before = std::time(nullptr);
    const std::string text = signXml(signer_, document);
    EXPECT_THAT(text, HasSubstr("Type=\"http://uri.etsi.org/01903#SignedProperties\""));
    const std::string certificate = part(text, "<xades:SigningCertificateV2>", "</xades:SigningCertificateV2>");
    EXPECT_EQ(content(certificate, "DigestValue"), base64::encode(signer_.digest(signer_.der(), false)));
    // The issuer's name and the serial number stand in the certificate, octet for octet.
    const std::string issuerSerial = base64::decode(content(certificate, "xades:IssuerSerialV2"));
    EXPECT_THAT(signer_.der(), HasSubstr(issuerSerial.substr(issuerSerial.find("\x30\x11\x31"), 19))) << "CN=signer";
    const auto result = checkOne(text);
    EXPECT_TRUE(result.valid) << result.reason;
    EXPECT_TRUE(result.certificateProtected);
    EXPECT_TRUE(result.wholeDocument);
    ASSERT_THAT(result.covered, SizeIs(1)) << "properties are not a part of the document";
    EXPECT_EQ(result.covered[0].path, "/");
    EXPECT_THAT(result.notCovered, IsEmpty());
    EXPECT_GE(secondsOf(result.signingTime), before);
    EXPECT_LE(secondsOf(result.signingTime), std::time(nullptr));
}

TEST_P(XmlProperties, StateTheTimeOfTheRequest) {
    for (const std::string time : {"2001-02-03T04:05:06Z", "981173106"}) {
        const std::string text = signAt(time);
        EXPECT_EQ(content(text, "xades:SigningTime"), "2001-02-03T04:05:06Z");
        EXPECT_EQ(secondsOf(checkOne(text).signingTime), 981173106);
    }
}

TEST_P(XmlProperties, AreLeftOutOnRequest) {
    Creator::Params params;
    params.properties = false;
    const std::string text = signXml(signer_, document, params);
    EXPECT_THAT(text, Not(HasSubstr("01903")));
    EXPECT_THAT(text, Not(HasSubstr("Object")));
    const auto result = checkOne(text);
    EXPECT_TRUE(result.valid) << result.reason;
    EXPECT_FALSE(result.certificateProtected);
    EXPECT_TRUE(result.signingTime.is_not_a_date_time());
}

TEST_P(XmlProperties, HaveNoPlaceForOtherAttributes) {
    Creator::Params params;
    params.attributes = {{"UTCTime", orvik::plugin::oid::signingTime, "2001-02-03T04:05:06Z"}};
    EXPECT_EQ(refusalOf(params), 0);
    Creator::Params plain = params;
    plain.properties = false;
    Creator::Params more = params;
    more.attributes.push_back({"UTF8String", "1.2.3.4", "text"});
    Creator::Params twice = params;
    twice.attributes.push_back(params.attributes.front());
    Creator::Params noTime = params;
    noTime.attributes.front().value = "yesterday";
    Creator::Params never = params;
    never.attributes.front().value = "99999999999999999999";
    for (const auto& refused : {plain, more, twice, noTime, never}) {
        EXPECT_EQ(refusalOf(refused), 30048);
    }
}

TEST_P(XmlProperties, ChangedInAnyOctetAreRefused) {
    const std::string text = signXml(signer_, document);
    const auto begin = text.find("<Object");
    const auto end = text.find("</Object>") + 9;
    for (auto at = begin; at < end; ++at) {
        std::string changed = text;
        changed[at] = static_cast<char>(changed[at] ^ 1);
        try {
            EXPECT_FALSE(checkOne(changed).valid) << changed.substr(at - 10, 20);
        } catch (const CryptoException&) { // NOLINT(bugprone-empty-catch): not XML any more
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Algorithms, XmlProperties, testing::Values(host_test::rsaSigner(), host_test::gost256Signer()),
                         [](const auto& test) { return test.param.newKey == "rsa:2048" ? "Rsa" : test.param.newKey; });

/// Documents whose properties xmlsec1 signs as they stand in a template.
class XmlForeignProperties : public testing::Test {
protected:
    /// A document with these SignedSignatureProperties.
    [[nodiscard]] std::string sign(const std::string& properties) const {
        const std::string object = "<Object><x:QualifyingProperties xmlns:x=\"http://uri.etsi.org/01903/v1.3.2#\" "
                                   "Target=\"#s1\"><x:SignedProperties Id=\"p1\"><x:SignedSignatureProperties>" +
                                   properties +
                                   "</x:SignedSignatureProperties></x:SignedProperties></x:QualifyingProperties>"
                                   "</Object>";
        const std::string signature = host_test::signatureTemplate(
            host_test::referenceTemplate("", host_test::transformElement(host_test::enveloped)) +
                host_test::referenceTemplate("#p1", host_test::transformElement(host_test::exclusive),
                                             " Type=\"http://uri.etsi.org/01903#SignedProperties\""),
            "<X509Data/>", object);
        return host_test::signTemplate(
            signer_, "<doc><part>100</part>" + replaced(signature, "<Signature ", "<Signature Id=\"s1\" ") + "</doc>");
    }

    [[nodiscard]] std::string digestOf(const std::string& certificate) const {
        return "<x:Cert><x:CertDigest><DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"/>"
               "<DigestValue>" +
               base64::encode(signer_.digest(certificate, false)) + "</DigestValue></x:CertDigest>";
    }

    /// The first version of the property, with the serial number as text.
    [[nodiscard]] std::string named(const std::string& serial) const {
        return "<x:SigningCertificate>" + digestOf(signer_.der()) +
               "<x:IssuerSerial><X509IssuerName>CN=signer</X509IssuerName><X509SerialNumber>" + serial +
               "</X509SerialNumber></x:IssuerSerial></x:Cert></x:SigningCertificate>";
    }

    /// The second version, with that IssuerSerial.
    [[nodiscard]] std::string namedV2(const std::string& issuerSerial) const {
        return "<x:SigningCertificateV2>" + digestOf(signer_.der()) + "<x:IssuerSerialV2>" +
               base64::encode(issuerSerial) + "</x:IssuerSerialV2></x:Cert></x:SigningCertificateV2>";
    }

    /// IssuerSerial of the signer's certificate, by what the creator writes.
    [[nodiscard]] std::string ownIssuerSerial() const {
        return base64::decode(content(signXml(signer_, document), "xades:IssuerSerialV2"));
    }

    void expectInvalid(const std::string& text, const std::string& reason) const {
        const auto result = checkOne(text);
        EXPECT_EQ(result.verdict, XmlSignatureVerdict::invalid) << reason;
        EXPECT_THAT(result.reason, HasSubstr(reason));
    }

    Signer signer_{host_test::rsaSigner()}; // NOLINT: the tests' own
};

TEST_F(XmlForeignProperties, NameTheSignerByIssuerAndSerialNumberToo) {
    const std::string own = ownIssuerSerial();
    EXPECT_TRUE(checkOne(sign(namedV2(own))).valid);
    std::string otherSerial = own;
    otherSerial.back() = static_cast<char>(otherSerial.back() ^ 1);
    std::string otherIssuer = own;
    otherIssuer[otherIssuer.find("signer")] = 'z';
    for (const std::string& wrong : {otherSerial, otherIssuer, own + '\0', own.substr(1), std::string("text")}) {
        expectInvalid(sign(namedV2(wrong)), "names another certificate");
    }
    const auto& folder = signer_.folder();
    const auto hexadecimal = test_support::run({"openssl", "x509", "-in", folder / "c.pem", "-noout", "-serial"}).out;
    ASSERT_THAT(hexadecimal, testing::StartsWith("serial="));
    expectInvalid(sign(named("1")), "names another certificate");
    // The same number as decimal digits, computed digit by digit.
    std::string decimal = "0";
    for (const char digit : hexadecimal.substr(7, hexadecimal.find('\n') - 7)) {
        int carry = digit <= '9' ? digit - '0' : digit - 'A' + 10;
        for (auto at = decimal.rbegin(); at != decimal.rend(); ++at) {
            carry += (*at - '0') * 16;
            *at = static_cast<char>('0' + carry % 10);
            carry /= 10;
        }
        for (; carry > 0; carry /= 10) {
            decimal.insert(0, 1, static_cast<char>('0' + carry % 10));
        }
    }
    const auto right = checkOne(sign(named(decimal)));
    EXPECT_TRUE(right.valid) << right.reason << decimal;
    EXPECT_TRUE(right.certificateProtected);
}

// Each name of two octets becomes an object of a hundred.
TEST_F(XmlForeignProperties, WithMillionsOfIssuersAreNotDecoded) {
    std::string names;
    for (int i = 0; i < 3000000; ++i) {
        names += std::string("\x82\0", 2);
    }
    const auto length = [](std::size_t size) {
        return std::string{'\x83', static_cast<char>(size >> 16U), static_cast<char>(size >> 8U),
                           static_cast<char>(size)};
    };
    const std::string serial("\x02\x01\x01", 3);
    const std::string issuer = "\x30" + length(names.size()) + names;
    const std::string text = sign(namedV2("\x30" + length(issuer.size() + serial.size()) + issuer + serial));
    const auto peak = [] {
        rusage used{};
        getrusage(RUSAGE_SELF, &used);
        return used.ru_maxrss;
    };
    const auto before = peak();
    expectInvalid(text, "names another certificate");
    EXPECT_LT(peak() - before, 200L * 1024) << "KiB";
}

TEST_F(XmlForeignProperties, OfMoreThanOneKindAreRefused) {
    const std::string own = namedV2(ownIssuerSerial());
    expectInvalid(sign(own + own), "more than one SigningCertificateV2");
    const std::string text = sign(own);
    const std::string properties = part(text, "<x:QualifyingProperties", "</x:QualifyingProperties>");
    expectInvalid(replaced(text, properties, properties + properties), "");
    const std::string empty = "<x:QualifyingProperties xmlns:x=\"http://uri.etsi.org/01903/v1.3.2#\"/>";
    expectInvalid(replaced(text, "</Signature>", "<Object>" + empty + "</Object></Signature>"),
                  "more than one QualifyingProperties");
    const std::string more = "<x:UnsignedProperties/>";
    expectInvalid(replaced(text, "</x:QualifyingProperties>", more + more + "</x:QualifyingProperties>"),
                  "more than one UnsignedProperties");
    expectInvalid(sign("<x:SigningCertificateV2/>"), "names no certificate");
    expectInvalid(sign("<x:SigningTime>2001-02-03T04:05:06Z</x:SigningTime><x:SigningTime/>"),
                  "more than one SigningTime");
}

TEST_F(XmlForeignProperties, OfAnotherSignatureAreNotSigned) {
    const std::string text = sign("");
    EXPECT_TRUE(checkOne(text).valid);
    EXPECT_FALSE(checkOne(replaced(text, "Target=\"#s1\"", "Target=\"#s2\"")).valid);
    EXPECT_FALSE(checkOne(replaced(text, "Id=\"s1\"", "Id=\"s2\"")).valid);
}

TEST_F(XmlForeignProperties, StateATimeInAnyZone) {
    const std::pair<const char*, std::time_t> rows[] = {{"2001-02-03T04:05:06Z", 981173106},
                                                        {" 2001-02-03T04:05:06.789Z\n", 981173106},
                                                        {"2001-02-03T07:05:06+03:00", 981173106},
                                                        {"2001-02-02T16:35:06-11:30", 981173106},
                                                        {"2001-02-03T04:05:06", 0},
                                                        {"2001-02-03T04:05:06+25:00", 0},
                                                        {"2001-02-30T04:05:06Z", 0},
                                                        {"2001-02-03", 0},
                                                        {"", 0},
                                                        {"2001-02-03T04:05:06Zx", 0},
                                                        {"2001-02-03T04:05:06.Z and more than that", 0}};
    for (const auto& [time, seconds] : rows) {
        const auto result = checkOne(sign("<x:SigningTime>" + std::string(time) + "</x:SigningTime>"));
        EXPECT_TRUE(result.valid) << result.reason;
        ASSERT_EQ(result.signingTime.is_special(), seconds == 0) << time;
        if (seconds != 0) {
            EXPECT_EQ(secondsOf(result.signingTime), seconds) << time;
        }
    }
}

TEST_F(XmlForeignProperties, ThatAreUnsignedHoldNoAttributesOfOthers) {
    const std::string text = sign("");
    const auto with = [&](const std::string& property) {
        return checkOne(replaced(text, "</x:QualifyingProperties>",
                                 "<x:UnsignedProperties><x:UnsignedSignatureProperties>" + property +
                                     "</x:UnsignedSignatureProperties></x:UnsignedProperties>"
                                     "</x:QualifyingProperties>"));
    };
    const auto honest = with("<x:CertificateValues Id=\"c1\"/>");
    EXPECT_TRUE(honest.valid) << honest.reason;
    EXPECT_THAT(honest.notCovered, Contains(unsignedProperties));
    EXPECT_FALSE(with("<x:CertificateValues order=\"pay 999\"/>").valid);
    EXPECT_FALSE(with("<x:CertificateValues xmlns:q=\"urn:q\" q:order=\"pay 999\"/>").valid);
}

} // namespace
