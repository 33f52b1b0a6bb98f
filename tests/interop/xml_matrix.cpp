#include "interop/xml_matrix.hpp"

#include "interop/cms_matrix.hpp"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <initializer_list>
#include <utility>

namespace interop {

namespace {

using cli_test::Outcome;
using test_support::RunOptions;

constexpr const char* withProperties = "properties";
constexpr const char* withoutProperties = "plain";
constexpr const char* damaged = ".damaged";

constexpr std::array notOffered = {
    NotOffered{"*gost*", "*", "neither xmlsec1 1.2.37 with OpenSSL nor Java 17 has GOST R 34.10 in XML signatures"},
};

const char* columnOf(bool properties) {
    return properties ? withProperties : withoutProperties;
}

std::string fileOf(const std::string& maker, const std::string& kind, bool properties) {
    return maker + "/" + kind + "/" + columnOf(properties) + ".xml";
}

std::string rowOfOurs(const std::string& judge, const std::string& kind) {
    return "ours, " + judge + " verifies, " + kind;
}

std::string rowOfTheirs(const std::string& maker, const std::string& kind) {
    return maker + "'s, we verify, " + kind;
}

constexpr const char* document = R"(<?xml version="1.0"?>
<order xmlns:x="urn:x"><x:sum currency='RUB'>100</x:sum><!-- note --></order>
)";

/// For xmlsec1, which fills in what is empty. The comment marks the place of what properties add.
std::string templateOf(bool properties) {
    const std::string exclusive = R"(<Transform Algorithm="http://www.w3.org/2001/10/xml-exc-c14n#"/>)";
    const std::string digest =
        R"(<DigestMethod Algorithm="http://www.w3.org/2001/04/xmlenc#sha256"/><DigestValue></DigestValue></Reference>)";
    std::string text = R"(<order xmlns:x="urn:x"><x:sum currency='RUB'>100</x:sum>)"
                       R"(<Signature xmlns="http://www.w3.org/2000/09/xmldsig#" Id="signature"><SignedInfo>)"
                       R"(<CanonicalizationMethod Algorithm="http://www.w3.org/2001/10/xml-exc-c14n#"/>)"
                       R"(<SignatureMethod Algorithm="http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"/>)"
                       R"(<Reference URI=""><Transforms>)"
                       R"(<Transform Algorithm="http://www.w3.org/2000/09/xmldsig#enveloped-signature"/>)" +
                       exclusive + "</Transforms>" + digest;
    if (properties) {
        text += R"(<Reference URI="#properties" Type="http://uri.etsi.org/01903#SignedProperties"><Transforms>)" +
                exclusive + "</Transforms>" + digest;
    }
    text += "</SignedInfo><SignatureValue></SignatureValue>"
            "<KeyInfo><X509Data><X509Certificate></X509Certificate></X509Data></KeyInfo>";
    if (properties) {
        text += R"(<Object><a:QualifyingProperties xmlns:a="http://uri.etsi.org/01903/v1.3.2#" Target="#signature">)"
                R"(<a:SignedProperties Id="properties"><a:SignedSignatureProperties>)"
                "<a:SigningTime>2026-11-20T12:00:00Z</a:SigningTime></a:SignedSignatureProperties>"
                "</a:SignedProperties></a:QualifyingProperties></Object>";
    }
    return text + "</Signature></order>\n";
}

/// The attribute of SignedProperties is an identifier, which no schema says here.
constexpr std::array idOption = {"--id-attr:Id", "http://uri.etsi.org/01903/v1.3.2#:SignedProperties"};

Outcome xmlsec(const cli_test::Workplace& place, std::vector<std::string> words) {
    words.insert(words.begin(), "xmlsec1");
    RunOptions options;
    options.folder = place.folder().path();
    return test_support::run(words, options);
}

} // namespace

XmlMatrix::XmlMatrix(const cli_test::Workplace& place)
    : place_(place), table_("XML signatures", {withProperties, withoutProperties}, notOffered) {
    for (const char* maker : {"ours", "xmlsec1", "java"}) {
        for (const KeyKind& kind : keyKinds()) {
            std::filesystem::create_directories(place_.folder() / (std::string(maker) + "/" + kind.name));
        }
    }
    place_.folder().write("order.xml", document);
}

void XmlMatrix::make() {
    for (const KeyKind& kind : keyKinds()) {
        for (const bool properties : {true, false}) {
            const std::string file = fileOf("ours", kind.name, properties);
            std::vector<std::string> words{"sign",     "order.xml", "--cert", std::string("Signer ") + kind.name,
                                           "--format", "xmldsig",   "--out",  file};
            if (!properties) {
                words.emplace_back("--no-signing-certificate");
            }
            const Outcome signing = place_.cliWithPin(words);
            EXPECT_EQ(signing.exit, 0) << file << ": " << signing.err;
            damage(file, properties);
            const std::string certificate = std::string(kind.name) + ".pem";
            judgeOurs("xmlsec1", kind.name, properties, xmlsecAccepts(file, certificate),
                      !xmlsecAccepts(file + damaged, certificate));
        }
    }
    for (const bool properties : {true, false}) {
        signByXmlsec(properties);
    }
}

void XmlMatrix::judgeOurs(const std::string& judge, const std::string& kind, bool properties, bool accepts,
                          bool refuses) {
    const std::string row = rowOfOurs(judge, kind);
    if (table_.offered(row, columnOf(properties))) {
        table_.set(row, columnOf(properties), accepts && refuses);
    } else {
        EXPECT_FALSE(accepts) << row << " is listed as not offered";
    }
}

void XmlMatrix::signByXmlsec(bool properties) const {
    place_.folder().write("template.xml", templateOf(properties));
    const Outcome signing =
        xmlsec(place_, {"--sign", "--privkey-pem", "rsa.key,other-rsa.pem", idOption[0], idOption[1], "--output",
                        fileOf("xmlsec1", "rsa", properties), "template.xml"});
    EXPECT_EQ(signing.exit, 0) << signing.err;
}

void XmlMatrix::damage(const std::string& file, bool properties) const {
    std::string text = place_.folder().read(file);
    const std::string from = properties ? "SigningTime>2" : ">100<";
    const auto at = text.find(from);
    ASSERT_NE(at, std::string::npos) << file;
    place_.folder().write(file + damaged, text.replace(at, from.size(), properties ? "SigningTime>3" : ">101<"));
}

bool XmlMatrix::xmlsecAccepts(const std::string& file, const std::string& certificate) const {
    return xmlsec(place_, {"--verify", "--pubkey-cert-pem", certificate, idOption[0], idOption[1], file}).exit == 0;
}

std::vector<std::string> XmlMatrix::javaWords() const {
    place_.openssl().must({"pkcs8", "-topk8", "-nocrypt", "-outform", "DER", "-in", "rsa.key", "-out", "rsa.p8"});
    place_.openssl().must({"x509", "-in", "other-rsa.pem", "-outform", "DER", "-out", "other-rsa.der"});
    std::vector<std::string> words{"xml",
                                   "sign",
                                   "order.xml",
                                   "rsa.p8",
                                   "other-rsa.der",
                                   fileOf("java", "rsa", false),
                                   fileOf("java", "rsa", true),
                                   "--",
                                   "xml",
                                   "verify"};
    for (const KeyKind& kind : keyKinds()) {
        for (const bool properties : {true, false}) {
            const std::string file = fileOf("ours", kind.name, properties);
            words.insert(words.end(), {file, file + damaged});
        }
    }
    return words;
}

void XmlMatrix::take(const std::vector<std::string>& lines) {
    std::size_t line = 0;
    for (const KeyKind& kind : keyKinds()) {
        for (const bool properties : {true, false}) {
            judgeOurs("Java", kind.name, properties, lines.at(line) == std::string("valid CN=Signer ") + kind.name,
                      lines.at(line + 1) == "invalid");
            line += 2;
        }
    }
    EXPECT_EQ(line, lines.size());
}

void XmlMatrix::judgeTheirs() {
    for (const auto& [maker, name] : {std::pair{"xmlsec1", "xmlsec1"}, std::pair{"java", "Java"}}) {
        for (const KeyKind& kind : keyKinds()) {
            for (const bool properties : {true, false}) {
                const std::string row = rowOfTheirs(name, kind.name);
                if (!table_.offered(row, columnOf(properties))) {
                    continue;
                }
                const std::string file = fileOf(maker, kind.name, properties);
                damage(file, properties);
                const Outcome verdict = place_.cli({"verify", file});
                table_.set(row, columnOf(properties),
                           verdict.exit == 0 && verdict.out.find("CN=Other rsa") != std::string::npos &&
                               place_.cli({"verify", file + damaged}).exit == 1);
            }
        }
    }
}

} // namespace interop
