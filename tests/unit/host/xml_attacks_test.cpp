// Attacks on signed documents: none of them may leave a signature valid.

#include "honest_documents.hpp"
#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/xml/xml_document.hpp"
#include "xml_signing.hpp"

#include <gmock/gmock.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace {

namespace base64 = orvik::plugin::base64;
using host_test::content;
using host_test::Honest;
using host_test::honest;
using host_test::part;
using host_test::referenceTemplate;
using host_test::replaced;
using host_test::signatureOf;
using host_test::signatureTemplate;
using host_test::transformElement;
using host_test::withoutItself;
using host_test::withoutItselfExclusive;
using host_test::withUnsignedProperty;
using host_test::worst;
using orvik::plugin::xml::XmlSignatureVerdict;
using orvik::plugin::xml::XmlVerifyOptions;
using Text = std::string;

/// What must come of an attack.
enum class Outcome {
    document, ///< the document is refused
    invalid,  ///< every signature that is not itself an honest one is invalid
    unknown,
    partial, ///< valid only for a caller who takes parts, and not as a whole document
};

struct Attack {
    const char* name;
    std::string Honest::*base;
    std::string (*mount)(std::string);
    Outcome outcome;
};

void PrintTo(const Attack& attack, std::ostream* out) {
    *out << attack.name;
}

std::string body(const std::string& text) {
    return replaced(text, "<?xml version=\"1.0\"?>", "");
}

std::string transformFirst(const std::string& text, const std::string& transform) {
    return replaced(text, "<Transforms>", "<Transforms>" + transform);
}

std::string changedValue(const std::string& text, const std::string& element, std::size_t at) {
    const std::string value = content(text, element);
    std::string octets = base64::decode(value);
    octets.at(at) = static_cast<char>(octets.at(at) ^ 1);
    return replaced(text, value, base64::encode(octets));
}

std::string doctype(const std::string& text, const std::string& declarations) {
    return replaced(text, "<doc ", "<!DOCTYPE doc " + declarations + "><doc ");
}

std::string utf16(const std::string& text) {
    std::string out = "\xFF\xFE";
    for (const char c : text) {
        out += {c, '\0'};
    }
    return out;
}

std::string repeated(const std::string& text, std::size_t count) {
    std::string out;
    for (std::size_t i = 0; i < count; ++i) {
        out += text;
    }
    return out;
}

constexpr auto whole = &Honest::whole;
constexpr auto exclusiveForm = &Honest::exclusive;
constexpr auto byId = &Honest::byId;
constexpr auto ofPart = &Honest::part;
constexpr auto byXpath = &Honest::byXpath;
constexpr auto enveloping = &Honest::enveloping;

const Attack attacks[] = {
    // Content.
    {"ChangedText", whole, [](Text t) { return replaced(t, "100", "900"); }, Outcome::invalid},
    {"ChangedAttribute", whole, [](Text t) { return replaced(t, "x:k=\"1\"", "x:k=\"2\""); }, Outcome::invalid},
    {"AddedAttribute", whole, [](Text t) { return replaced(t, "<part ", "<part a=\"1\" "); }, Outcome::invalid},
    {"AddedElement", whole, [](Text t) { return replaced(t, "</doc>", "<part/></doc>"); }, Outcome::invalid},
    {"RemovedElement", whole, [](Text t) { return replaced(t, "<part Id=\"p2\">two</part>", ""); }, Outcome::invalid},
    {"SwappedElements", whole,
     [](Text t) {
         return replaced(replaced(t, "<part Id=\"p2\">two</part>", ""), "<part ", "<part Id=\"p2\">two</part><part ");
     },
     Outcome::invalid},
    {"AddedBlank", whole, [](Text t) { return replaced(t, "</part>", "</part> "); }, Outcome::invalid},
    {"RenamedRoot", whole,
     [](Text t) { return replaced(replaced(t, "<doc ", "<bill "), "</doc>", "</bill>"); }, Outcome::invalid},
    {"AddedInstruction", whole, [](Text t) { return replaced(t, "<doc ", "<?xml-stylesheet href=\"e\"?><doc "); },
     Outcome::invalid},
    {"InstructionAfterRootById", byId, [](Text t) { return t + "<?xml-stylesheet href=\"e\"?>"; }, Outcome::partial},
    {"ReboundPrefix", whole, [](Text t) { return replaced(t, "urn:x", "urn:z"); }, Outcome::invalid},
    {"ReboundUnusedPrefix", whole, [](Text t) { return replaced(t, "urn:y", "urn:z"); }, Outcome::invalid},
    {"DefaultNamespaceAdded", whole, [](Text t) { return replaced(t, "<doc ", "<doc xmlns=\"urn:e\" "); },
     Outcome::invalid},
    // What a canonical form does not show.
    {"CommentInText", whole, [](Text t) { return replaced(t, "100", "10<!-- -->0"); }, Outcome::partial},
    {"CommentBeforeText", whole, [](Text t) { return replaced(t, "100", "<!--900-->100"); }, Outcome::partial},
    {"CommentAfterText", whole, [](Text t) { return replaced(t, "100", "100<!-- -->"); }, Outcome::partial},
    {"CdataInText", whole, [](Text t) { return replaced(t, "100", "1<![CDATA[00]]>"); }, Outcome::partial},
    {"TwoCdataSections", whole, [](Text t) { return replaced(t, "100", "<![CDATA[1]]><![CDATA[00]]>"); },
     Outcome::document},
    // Wrapping: the signed part is elsewhere, another stands where readers look.
    {"WholeInAnotherRoot", whole, [](Text t) { return "<evil>" + body(t) + "</evil>"; }, Outcome::invalid},
    {"RootByIdInAnotherRoot", byId, [](Text t) { return "<evil>" + body(t) + "</evil>"; }, Outcome::partial},
    {"RootByIdInsideTheSignature", byId,
     [](Text t) {
         const auto signature = signatureOf(t);
         const auto root = replaced(body(t), signature, "");
         return "<doc><part>900</part>" +
                replaced(signature, "</Signature>", "<Object>" + root + "</Object></Signature>") + "</doc>";
     },
     Outcome::invalid},
    {"PartMovedIntoAnObject", ofPart,
     [](Text t) {
         const auto element = part(t, "<part Id=\"p1\"", "</part>");
         return replaced(replaced(t, element, "<part>900</part>"), "</Signature>",
                         "<Object>" + replaced(element, "<part", "<part xmlns=\"\"") + "</Object></Signature>");
     },
     Outcome::partial},
    {"PartMovedBelowAnother", ofPart,
     [](Text t) {
         const auto element = part(t, "<part Id=\"p1\"", "</part>");
         return replaced(t, element, "<part>900<old>" + element + "</old></part>");
     },
     Outcome::partial},
    {"PartWithEvilSibling", ofPart, [](Text t) { return replaced(t, "<part ", "<part>900</part><part "); },
     Outcome::partial},
    {"PartAlone", ofPart, [](Text t) { return replaced(t, "two", "evil"); }, Outcome::partial},
    {"UnsignedObject", whole,
     [](Text t) { return replaced(t, "</Signature>", "<Object><part>900</part></Object></Signature>"); },
     Outcome::partial},
    {"EnvelopingAlone", enveloping, [](Text t) { return t; }, Outcome::partial},
    {"EnvelopingSecondObject", enveloping,
     [](Text t) { return replaced(t, "</Signature>", "<Object>900</Object></Signature>"); }, Outcome::partial},
    {"EnvelopingInADocument", enveloping, [](Text t) { return "<doc><part>900</part>" + body(t) + "</doc>"; },
     Outcome::partial},
    {"EnvelopingChanged", enveloping, [](Text t) { return replaced(t, ">100<", ">900<"); }, Outcome::invalid},
    // Identifiers.
    {"SameId", ofPart, [](Text t) { return replaced(t, "Id=\"p2\"", "Id=\"p1\""); }, Outcome::invalid},
    {"SameIdUpperCase", ofPart, [](Text t) { return replaced(t, "Id=\"p2\"", "ID=\"p1\""); }, Outcome::invalid},
    {"SameIdLowerCase", ofPart, [](Text t) { return replaced(t, "Id=\"p2\"", "id=\"p1\""); }, Outcome::invalid},
    {"SameXmlId", ofPart, [](Text t) { return replaced(t, "Id=\"p2\"", "xml:id=\"p1\""); }, Outcome::invalid},
    {"SameXmlIdWithBlanks", ofPart, [](Text t) { return replaced(t, "Id=\"p2\"", "xml:id=\" p1 \""); },
     Outcome::invalid},
    {"SameIdInANamespace", ofPart, [](Text t) { return replaced(t, "Id=\"p2\"", "x:Id=\"p1\""); }, Outcome::invalid},
    {"SameIdInsideTheSignature", ofPart,
     [](Text t) { return replaced(t, "</Signature>", "<Object Id=\"p1\"/></Signature>"); }, Outcome::invalid},
    {"IdAsCharacterReference", ofPart, [](Text t) { return replaced(t, "Id=\"p2\"", "Id=\"&#112;1\""); },
     Outcome::invalid},
    {"NoSuchId", ofPart, [](Text t) { return replaced(t, "Id=\"p1\"", "Id=\"p3\""); }, Outcome::invalid},
    {"IdInANamespaceOnly", ofPart, [](Text t) { return replaced(t, "Id=\"p1\"", "x:Id=\"p1\""); }, Outcome::invalid},
    // References.
    {"Xpointer", ofPart, [](Text t) { return replaced(t, "#p1", "#xpointer(id('p1'))"); }, Outcome::unknown},
    {"XpointerRoot", whole, [](Text t) { return replaced(t, "URI=\"\"", "URI=\"#xpointer(/)\""); }, Outcome::unknown},
    {"IdWithBlanks", ofPart, [](Text t) { return replaced(t, "#p1", "#p1 "); }, Outcome::unknown},
    {"EmptyFragment", ofPart, [](Text t) { return replaced(t, "#p1", "#"); }, Outcome::unknown},
    {"ReferenceToAFile", ofPart, [](Text t) { return replaced(t, "#p1", "file:///etc/hostname"); }, Outcome::unknown},
    {"ReferenceToTheNetwork", ofPart, [](Text t) { return replaced(t, "#p1", "http://127.0.0.1:9/"); },
     Outcome::unknown},
    {"ReferenceWithoutUri", whole, [](Text t) { return replaced(t, " URI=\"\"", ""); }, Outcome::unknown},
    {"NoReference", whole, [](Text t) { return replaced(t, part(t, "<Reference", "</Reference>"), ""); },
     Outcome::invalid},
    {"ReferenceToAnotherPart", ofPart, [](Text t) { return replaced(t, "#p1", "#p2"); }, Outcome::invalid},
    {"ReferenceInsideItself", ofPart,
     [](Text t) {
         return replaced(replaced(t, "<SignedInfo>", "<SignedInfo Id=\"s1\">"), "#p1", "#s1");
     },
     Outcome::invalid},
    // Transforms.
    {"Base64Transform", whole,
     [](Text t) { return transformFirst(t, transformElement("http://www.w3.org/2000/09/xmldsig#base64")); },
     Outcome::unknown},
    {"XsltTransform", whole,
     [](Text t) { return transformFirst(t, transformElement("http://www.w3.org/TR/1999/REC-xslt-19991116")); },
     Outcome::unknown},
    {"XpathFilter2", whole,
     [](Text t) { return transformFirst(t, transformElement("http://www.w3.org/2002/06/xmldsig-filter2")); },
     Outcome::unknown},
    {"XpathOfNothing", whole,
     [](Text t) {
         return transformFirst(t, "<Transform Algorithm=\"http://www.w3.org/TR/1999/REC-xpath-19991116\">"
                                  "<XPath>false()</XPath></Transform>");
     },
     Outcome::unknown},
    {"XpathWithBlanks", byXpath, [](Text t) { return replaced(t, "self::d:Sig", "self::d: Sig"); }, Outcome::unknown},
    {"XpathPrefixRebound", byXpath,
     [](Text t) { return replaced(t, "<XPath xmlns:d=\"http://www.w3.org/2000/09/xmldsig#\"", "<XPath xmlns:d=\"u\""); },
     Outcome::unknown},
    {"TwoXpaths", byXpath, [](Text t) { return replaced(t, "</XPath>", "</XPath><XPath>1</XPath>"); },
     Outcome::invalid},
    {"OctetsToNodes", exclusiveForm,
     [](Text t) {
         return replaced(t, "<Transforms>", "<Transforms>" + transformElement(host_test::exclusive));
     },
     Outcome::unknown},
    {"UnknownTransform", whole, [](Text t) { return transformFirst(t, transformElement("urn:evil")); },
     Outcome::unknown},
    {"TransformWithoutAlgorithm", whole, [](Text t) { return transformFirst(t, "<Transform/>"); }, Outcome::unknown},
    {"EnvelopedWithParameter", whole,
     [](Text t) {
         return replaced(t, "#enveloped-signature\"/>", "#enveloped-signature\"><XPath>1</XPath></Transform>");
     },
     Outcome::invalid},
    {"ManyTransforms", whole,
     [](Text t) { return transformFirst(t, repeated(transformElement(host_test::enveloped), 1000)); },
     Outcome::unknown},
    // Algorithms.
    {"HmacWithThePublicKey", whole, [](Text t) { return replaced(t, "2001/04/xmldsig-more#rsa-sha256", "2000/09/xmldsig#hmac-sha1"); },
     Outcome::unknown},
    {"TruncatedHmac", whole,
     [](Text t) {
         return replaced(t, "2001/04/xmldsig-more#rsa-sha256\"/>",
                       "2000/09/xmldsig#hmac-sha1\"><HMACOutputLength>0</HMACOutputLength></SignatureMethod>");
     },
     Outcome::unknown},
    {"OutputLengthWithRsa", whole,
     [](Text t) {
         return replaced(t, "#rsa-sha256\"/>",
                       "#rsa-sha256\"><HMACOutputLength>8</HMACOutputLength></SignatureMethod>");
     },
     Outcome::unknown},
    {"UnknownSignatureMethod", whole, [](Text t) { return replaced(t, "xmldsig-more#rsa-sha256", "xmldsig-more#none"); },
     Outcome::unknown},
    {"WeakerSignatureMethod", whole, [](Text t) { return replaced(t, "2001/04/xmldsig-more#rsa-sha256", "2000/09/xmldsig#rsa-sha1"); },
     Outcome::invalid},
    {"UnknownDigestMethod", whole, [](Text t) { return replaced(t, "xmlenc#sha256", "xmlenc#crc32"); },
     Outcome::unknown},
    {"WeakerDigestMethod", whole, [](Text t) { return replaced(t, "2001/04/xmlenc#sha256", "2000/09/xmldsig#sha1"); },
     Outcome::invalid},
    {"UnknownCanonicalization", whole, [](Text t) { return replaced(t, "REC-xml-c14n-20010315", "none"); },
     Outcome::unknown},
    {"OtherCanonicalization", whole,
     [](Text t) { return replaced(t, "http://www.w3.org/TR/2001/REC-xml-c14n-20010315", host_test::exclusive); },
     Outcome::invalid},
    // Values.
    {"ChangedDigest", whole, [](Text t) { return changedValue(t, "DigestValue", 0); }, Outcome::invalid},
    {"ShortDigest", whole,
     [](Text t) {
         const auto value = content(t, "DigestValue");
         return replaced(t, value, base64::encode(base64::decode(value).substr(0, 16)));
     },
     Outcome::invalid},
    {"EmptyDigest", whole, [](Text t) { return replaced(t, content(t, "DigestValue"), ""); }, Outcome::invalid},
    {"DigestWithAComment", whole, [](Text t) { return replaced(t, "<DigestValue>", "<DigestValue><!-- -->"); },
     Outcome::invalid},
    {"ChangedSignatureValue", whole, [](Text t) { return changedValue(t, "SignatureValue", 100); }, Outcome::invalid},
    {"EmptySignatureValue", whole, [](Text t) { return replaced(t, content(t, "SignatureValue"), ""); },
     Outcome::invalid},
    {"SignatureValueNotBase64", whole, [](Text t) { return replaced(t, "<SignatureValue>", "<SignatureValue>!"); },
     Outcome::invalid},
    // The Signature element.
    {"ElementBeforeSignedInfo", whole, [](Text t) { return replaced(t, "<SignedInfo>", "<Evil/><SignedInfo>"); },
     Outcome::invalid},
    {"TwoSignedInfos", whole,
     [](Text t) {
         const auto info = part(t, "<SignedInfo>", "</SignedInfo>");
         return replaced(t, info, info + info);
     },
     Outcome::invalid},
    {"TwoSignatureValues", whole, [](Text t) { return replaced(t, "<KeyInfo>", "<SignatureValue>AAAA</SignatureValue><KeyInfo>"); },
     Outcome::invalid},
    {"TextInTheSignature", whole, [](Text t) { return replaced(t, "<SignatureValue>", "evil<SignatureValue>"); },
     Outcome::invalid},
    {"CommentInSignedInfo", whole, [](Text t) { return replaced(t, "<SignedInfo>", "<SignedInfo><!-- -->"); },
     Outcome::invalid},
    {"SecondSignatureForged", byXpath,
     [](Text t) { return replaced(t, "</doc>", changedValue(signatureOf(t), "SignatureValue", 9) + "</doc>"); },
     Outcome::invalid},
    {"NestedSignature", byXpath,
     [](Text t) {
         return replaced(t, "</Signature>", "<Object>" + signatureOf(t) + "</Object></Signature>");
     },
     Outcome::partial},
    {"SignatureInAnotherNamespace", whole,
     [](Text t) { return replaced(t, "<Signature xmlns=\"http://www.w3.org/2000/09/xmldsig#\"", "<Signature xmlns=\"u\""); },
     Outcome::invalid},
    {"ElementOfOthersInKeyInfo", whole,
     [](Text t) { return replaced(t, "<KeyInfo>", "<KeyInfo><order xmlns=\"urn:d\">900</order>"); }, Outcome::partial},
    {"ElementOfOthersInX509Data", whole,
     [](Text t) { return replaced(t, "<X509Data>", "<X509Data><order xmlns=\"urn:d\">900</order>"); }, Outcome::partial},
    {"ObjectInKeyInfo", whole,
     [](Text t) { return replaced(t, "<KeyInfo>", "<KeyInfo><Object>900</Object>"); }, Outcome::partial},
    {"TextInKeyInfo", whole, [](Text t) { return replaced(t, "<KeyInfo>", "<KeyInfo>pay 900"); }, Outcome::partial},
    {"InstructionInKeyInfo", whole, [](Text t) { return replaced(t, "<KeyInfo>", "<KeyInfo><?pay 900?>"); },
     Outcome::partial},
    {"AttributeOfTheSignature", whole, [](Text t) { return replaced(t, "<Signature ", "<Signature pay=\"900\" "); },
     Outcome::partial},
    {"AttributeOfTheSignatureValue", whole,
     [](Text t) { return replaced(t, "<SignatureValue>", "<SignatureValue pay=\"900\">"); }, Outcome::partial},
    {"AttributeOfTheCertificate", whole,
     [](Text t) { return replaced(t, "<X509Certificate>", "<X509Certificate pay=\"900\">"); }, Outcome::partial},
    {"SignedPropertiesThatAreNotSigned", whole,
     [](Text t) {
         return replaced(t, "</Signature>",
                         "<Object><x:QualifyingProperties xmlns:x=\"http://uri.etsi.org/01903/v1.3.2#\">"
                         "<x:SignedProperties/></x:QualifyingProperties></Object></Signature>");
     },
     Outcome::partial},
    {"ElementOfOthersInUnsignedProperties", whole,
     [](Text t) {
         return replaced(t, "</Signature>",
                         "<Object><x:QualifyingProperties xmlns:x=\"http://uri.etsi.org/01903/v1.3.2#\"><x:Unsigned"
                         "Properties><order xmlns=\"urn:d\">900</order></x:UnsignedProperties></x:QualifyingProperties>"
                         "</Object></Signature>");
     },
     Outcome::partial},
    {"ElementOfOthersDeepInUnsignedProperties", whole,
     [](Text t) { return withUnsignedProperty(t, "<x:CompleteCertificateRefs><order xmlns=\"urn:d\">900</order>"
                                                 "</x:CompleteCertificateRefs>"); },
     Outcome::partial},
    {"ElementWithoutNamespaceInUnsignedProperties", whole,
     [](Text t) {
         return withUnsignedProperty(t, "<x:CounterSignature><Object><order xmlns=\"\"/></Object></x:CounterSignature>");
     },
     Outcome::partial},
    {"InstructionInUnsignedProperties", whole,
     [](Text t) { return withUnsignedProperty(t, "<x:CompleteCertificateRefs><?pay 900?></x:CompleteCertificateRefs>"); },
     Outcome::partial},
    {"TextInUnsignedProperties", whole,
     [](Text t) { return withUnsignedProperty(t, "<x:CompleteCertificateRefs>900<x:CertRefs/>"
                                                 "</x:CompleteCertificateRefs>"); },
     Outcome::partial},
    {"AttributeOfAnObject", whole,
     [](Text t) {
         return replaced(t, "</Signature>",
                         "<Object pay=\"900\"><x:QualifyingProperties xmlns:x=\"http://uri.etsi.org/01903/v1.3.2#\"/>"
                         "</Object></Signature>");
     },
     Outcome::partial},
    {"LongListOfPrefixes", exclusiveForm,
     [](Text t) {
         const std::string method = std::string("Algorithm=\"") + host_test::exclusive + "\"/>";
         return replaced(t, method,
                         std::string("Algorithm=\"") + host_test::exclusive + "\"><InclusiveNamespaces xmlns=\"" +
                             host_test::exclusive + "\" PrefixList=\"" + std::string(100000, 'a') + "\"/></Transform>");
     },
     Outcome::unknown},
    // Keys.
    {"OtherCertificate", whole,
     [](Text t) { return replaced(t, content(t, "X509Certificate"), base64::encode(honest().other.der())); },
     Outcome::invalid},
    {"NoKeyInfo", whole, [](Text t) { return replaced(t, part(t, "<KeyInfo>", "</KeyInfo>"), ""); }, Outcome::unknown},
    {"BrokenCertificate", whole, [](Text t) { return replaced(t, "<X509Certificate>", "<X509Certificate>MIIA"); },
     Outcome::unknown},
    {"ManyCertificates", whole,
     [](Text t) {
         const auto one = part(t, "<X509Certificate>", "</X509Certificate>");
         return replaced(t, one, repeated(one, 17));
     },
     Outcome::unknown},
    {"RetrievalMethod", whole,
     [](Text t) {
         return replaced(t, part(t, "<X509Data>", "</X509Data>"), "<RetrievalMethod URI=\"file:///etc/hostname\"/>");
     },
     Outcome::unknown},
    // Declarations, entities, encodings, octets.
    {"AttributeDefault", whole, [](Text t) { return doctype(t, "[<!ATTLIST part price CDATA \"900\">]"); },
     Outcome::document},
    {"DoctypeAlone", whole, [](Text t) { return doctype(t, ""); }, Outcome::document},
    {"ExternalDtd", whole, [](Text t) { return doctype(t, "SYSTEM \"file:///etc/hostname\""); }, Outcome::document},
    {"EntityForText", whole, [](Text t) { return doctype(replaced(t, "100", "&e;"), "[<!ENTITY e \"100\">]"); },
     Outcome::document},
    {"UndeclaredEntity", whole, [](Text t) { return replaced(t, "100", "&e;"); }, Outcome::document},
    {"ZeroOctetAfterTheRoot", whole, [](Text t) { return t + '\0' + "<doc>900</doc>"; }, Outcome::document},
    {"ZeroOctetInText", whole, [](Text t) { return replaced(t, "100", std::string("1\0", 2) + "00"); },
     Outcome::document},
    {"SecondRoot", whole, [](Text t) { return t + "<doc>900</doc>"; }, Outcome::document},
    {"TextAfterTheRoot", whole, [](Text t) { return t + "900"; }, Outcome::document},
    {"Utf7", whole, [](Text t) { return replaced(t, "?>", " encoding=\"UTF-7\"?>"); }, Outcome::document},
    {"Ebcdic", whole, [](Text t) { return replaced(t, "?>", " encoding=\"IBM037\"?>"); }, Outcome::document},
    {"OtherXmlVersion", whole, [](Text t) { return replaced(t, "version=\"1.0\"", "version=\"1.1\""); },
     Outcome::document},
    {"BomAgainstDeclaration", whole,
     [](Text t) { return "\xEF\xBB\xBF" + replaced(t, "?>", " encoding=\"windows-1251\"?>"); }, Outcome::document},
    {"Utf16AgainstDeclaration", whole, [](Text t) { return utf16(replaced(t, "?>", " encoding=\"UTF-8\"?>")); },
     Outcome::document},
    {"Utf16WithoutBom", whole, [](Text t) { return utf16(t).substr(2); }, Outcome::document},
    {"HalfACharacter", whole, [](Text t) { return utf16(t) + "<"; }, Outcome::document},
    {"BrokenUtf8", whole, [](Text t) { return replaced(t, "two", "t\xC0\xAFo"); }, Outcome::document},
    // Amounts.
    {"Deep", whole, [](Text t) { return replaced(t, "two", repeated("<a>", 60000) + repeated("</a>", 60000)); },
     Outcome::document},
    {"ManyNamespaces", whole,
     [](Text t) {
         std::string declared;
         for (int i = 0; i < 2000; ++i) {
             declared += " xmlns:n" + std::to_string(i) + "=\"u\"";
         }
         return replaced(t, "<doc ", "<doc" + declared + " ");
     },
     Outcome::document},
    {"ManyAttributes", whole,
     [](Text t) {
         std::string attributes;
         for (int i = 0; i < 20000; ++i) {
             attributes += " a" + std::to_string(i) + "=\"\"";
         }
         return replaced(t, "<doc ", "<doc" + attributes + " ");
     },
     Outcome::document},
    {"ManyReferences", whole,
     [](Text t) {
         const auto one = part(t, "<Reference", "</Reference>");
         return replaced(t, one, repeated(one, 2000));
     },
     Outcome::unknown},
    {"ManySignatures", whole, [](Text t) { return replaced(t, "</doc>", repeated(signatureOf(t), 100) + "</doc>"); },
     Outcome::document},
    {"ManyReferencesOfManySignatures", whole,
     [](Text t) {
         const auto one = part(t, "<Reference", "</Reference>");
         const auto more = replaced(signatureOf(t), one, repeated(one, 60));
         return replaced(t, "</doc>", repeated(more, 20) + "</doc>");
     },
     Outcome::document},
};

class XmlAttack : public testing::TestWithParam<Attack> {};

TEST_P(XmlAttack, FailsForTheRightReason) {
    const Attack& attack = GetParam();
    const std::string text = attack.mount(honest().*attack.base);
    XmlVerifyOptions parts;
    parts.allowPartial = true;
    const auto strict = worst(text, {});
    const auto lenient = worst(text, parts);
    ASSERT_EQ(strict.has_value(), attack.outcome != Outcome::document) << (strict ? strict->reason : "refused");
    if (!strict) {
        return;
    }
    EXPECT_FALSE(strict->valid);
    EXPECT_EQ(strict->verdict,
              attack.outcome == Outcome::unknown ? XmlSignatureVerdict::unknown : XmlSignatureVerdict::invalid)
        << strict->reason;
    EXPECT_EQ(lenient->valid, attack.outcome == Outcome::partial) << lenient->reason;
    EXPECT_FALSE(lenient->wholeDocument);
    if (attack.outcome == Outcome::partial) {
        EXPECT_THAT(lenient->covered, testing::Not(testing::IsEmpty()));
        EXPECT_THAT(lenient->notCovered, testing::Contains("the rest of the document"));
    }
}

INSTANTIATE_TEST_SUITE_P(Documents, XmlAttack, testing::ValuesIn(attacks),
                         [](const auto& test) { return test.param.name; });

TEST(XmlAttacks, StartFromValidDocuments) {
    for (const auto base : {whole, exclusiveForm, byId, byXpath}) {
        const auto result = worst(honest().*base, {});
        ASSERT_TRUE(result);
        EXPECT_TRUE(result->valid) << result->reason;
        EXPECT_TRUE(result->wholeDocument);
    }
    EXPECT_GE(std::size(attacks), 60U);
}

} // namespace
