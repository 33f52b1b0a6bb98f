// XML documents made to cost memory or time.

#include "cli/hostile.hpp"

#include <functional>

namespace cli_test {
namespace {

using testing::AnyOf;

constexpr std::size_t megabyte = 1UL << 20U;

/// A document with a signature of the form that is checked, over nothing that fits.
std::string document(const std::string& before, const std::string& reference, const std::string& keyInfo) {
    const std::string algorithms = "http://www.w3.org/2001/04/";
    return "<doc>" + before + "<Signature xmlns=\"http://www.w3.org/2000/09/xmldsig#\"><SignedInfo>" +
           "<CanonicalizationMethod Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\"/><SignatureMethod "
           "Algorithm=\"" +
           algorithms + "xmldsig-more#rsa-sha256\"/>" + reference +
           "</SignedInfo><SignatureValue>AAAA</SignatureValue><KeyInfo>" + keyInfo + "</KeyInfo></Signature></doc>";
}

std::string reference(const std::string& transforms) {
    return "<Reference URI=\"\"><Transforms>"
           "<Transform Algorithm=\"http://www.w3.org/2000/09/xmldsig#enveloped-signature\"/>" +
           transforms +
           "</Transforms><DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"/>"
           "<DigestValue>AAAA</DigestValue></Reference>";
}

struct HostileRow {
    const char* name;
    std::function<std::string()> make;
};

void PrintTo(const HostileRow& row, std::ostream* out) {
    *out << row.name;
}

std::string numbered(const std::string& before, const std::string& after, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += before + std::to_string(i) + after;
    }
    return all;
}

const std::string canonical = "<Transform Algorithm=\"http://www.w3.org/2001/10/xml-exc-c14n#\"/>";
const std::string certificate = "<X509Data><X509Certificate>AAAA</X509Certificate></X509Data>";

const std::vector<HostileRow> documents{
    {"Depth",
     [] {
         const std::string deep = repeated("<a>", 60000) + repeated("</a>", 60000);
         return document(deep, reference(""), certificate);
     }},
    {"Attributes", [] { return document("<a " + numbered("b", "='' ", 20000) + "/>", reference(""), certificate); }},
    {"Namespaces",
     [] {
         return document("<a " + numbered("xmlns:n", "='urn:n' ", 2000) + ">" + repeated("<b/>", 2000) + "</a>",
                         reference(""), certificate);
     }},
    {"Transforms", [] { return document("", reference(repeated(canonical, 20000)), certificate); }},
    {"References", [] { return document("", repeated(reference(""), 2000), certificate); }},
    {"Certificates", [] { return document("", repeated(reference(""), 200), repeated(certificate, 2000)); }},
    {"EmptyElements", [] { return document(repeated("<a/>", 4 * megabyte - 1000), reference(""), certificate); }},
    {"Signatures", [] { return "<all>" + repeated(document("", reference(""), certificate), 2000) + "</all>"; }},
    {"XPathOverMuchText",
     [] {
         return document(repeated("<a>text</a>", 100000),
                         reference("<Transform Algorithm=\"http://www.w3.org/TR/1999/REC-xpath-19991116\">"
                                   "<XPath xmlns:d=\"http://www.w3.org/2000/09/xmldsig#\">"
                                   "not(ancestor-or-self::d:Signature)</XPath></Transform>"),
                         certificate);
     }},
    {"Entities",
     [] {
         std::string dtd = "<!DOCTYPE doc [<!ENTITY e0 'text'>";
         for (int i = 1; i < 30; ++i) {
             const std::string below = "&e" + std::to_string(i - 1) + ";";
             dtd += "<!ENTITY e" + std::to_string(i) + " '" + below + below + "'>";
         }
         return dtd + "]>" + document("&e29;", reference(""), certificate);
     }},
    {"ZeroAfterTheRoot",
     [] { return document("", reference(""), certificate) + std::string(1, '\0') + repeated("<x>", 1000); }},
};

class HostileDocuments : public HostileSize, public testing::WithParamInterface<HostileRow> {};

TEST_P(HostileDocuments, AreRefusedInBoundedMemory) {
    EXPECT_THAT(verify("d.xml", GetParam().make()).exit, AnyOf(1, 3, 4));
}

INSTANTIATE_TEST_SUITE_P(Rows, HostileDocuments, testing::ValuesIn(documents),
                         [](const auto& row) { return row.param.name; });

} // namespace
} // namespace cli_test
