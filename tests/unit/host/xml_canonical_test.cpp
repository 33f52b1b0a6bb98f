// Canonical forms against those of libxml2.

#include "xml/canonical.hpp"

#include "xml/libxml.hpp"
#include "xml/nodes.hpp"

#include <gtest/gtest.h>
#include <libxml/c14n.h>
#include <libxml/parser.h>

#include <random>
#include <string>

namespace {

using namespace orvik::plugin::xml::internal; // NOLINT: what is tested

int isVisible(void* apex, xmlNodePtr node, xmlNodePtr parent) {
    const bool declaration = node != nullptr && node->type == XML_NAMESPACE_DECL;
    return isWithin(declaration ? parent : node, static_cast<const xmlNode*>(apex)) ? 1 : 0;
}

/// By libxml2.
std::string expected(xmlDoc* document, xmlNode* apex, int method) {
    xmlOutputBuffer* const output = xmlAllocOutputBuffer(nullptr);
    EXPECT_GE(xmlC14NExecute(document, apex == nullptr ? nullptr : isVisible, apex, method, nullptr, 0, output), 0);
    std::string text(reinterpret_cast<const char*>(xmlOutputBufferGetContent(output)), xmlOutputBufferGetSize(output));
    xmlOutputBufferClose(output);
    return text;
}

std::string ours(const xmlDoc* document, const xmlNode* apex, CanonicalMethod method) {
    CanonicalBudget budget{1 << 24, 1 << 24};
    std::string out;
    canonicalize(document, apex, {method, {}}, {}, budget, [&out](std::string_view octets) { out += octets; });
    return out;
}

void expectSame(const std::string& text) {
    const DocPtr document(xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, XML_PARSE_NONET));
    ASSERT_TRUE(document) << text;
    std::vector<xmlNode*> apexes = {nullptr};
    forEachNode(rootOf(document.get()), [&](const xmlNode* node) {
        if (node->type == XML_ELEMENT_NODE) {
            apexes.push_back(const_cast<xmlNode*>(node));
        }
    });
    for (xmlNode* apex : apexes) {
        EXPECT_EQ(ours(document.get(), apex, CanonicalMethod::exclusive),
                  expected(document.get(), apex, XML_C14N_EXCLUSIVE_1_0))
            << text;
        EXPECT_EQ(ours(document.get(), apex, CanonicalMethod::inclusive10),
                  expected(document.get(), apex, XML_C14N_1_0))
            << text;
        EXPECT_EQ(ours(document.get(), apex, CanonicalMethod::inclusive11),
                  expected(document.get(), apex, XML_C14N_1_1))
            << text;
    }
}

/// A random element: prefixes are declared, redeclared and used, attributes and text hold what must be escaped.
class Maker {
public:
    explicit Maker(unsigned seed) : random_(seed) {}

    std::string document() {
        return std::string(pick(2) == 0 ? "<?one two?>\n<!--c-->" : "") + element(0) +
               (pick(2) == 0 ? "<?three?><!--d-->\n" : "");
    }

private:
    std::size_t pick(std::size_t n) { return random_() % n; }

    std::string element(int depth) {
        std::string attributes;
        for (const char* prefix : {"a", "b"}) {
            if (depth == 0 || pick(4) == 0) {
                attributes += std::string(" xmlns:") + prefix + "=\"urn:" + std::to_string(pick(3)) + prefix + "\"";
            }
        }
        if (pick(3) == 0) {
            attributes += pick(3) == 0 ? " xmlns=\"\"" : " xmlns=\"urn:d" + std::to_string(pick(2)) + "\"";
        }
        attributes += pick(3) == 0 ? " z=\"1 &lt;&amp;&quot;&#9;&#10;&#13;>'\"" : "";
        attributes += pick(3) == 0 ? " b:k='x\"y' a:k=\"2\"" : "";
        attributes += pick(4) == 0 ? " xml:lang=\"ru\" xml:space='preserve'" : "";
        attributes += pick(3) == 0 ? " d='4' c=\"\xD0\x9F\"" : "";
        const std::string name = std::string(pick(2) == 0 ? "" : pick(2) == 0 ? "a:" : "b:") + "e";
        std::string inner;
        for (std::size_t i = depth < 4 ? pick(4) : 0; i > 0; --i) {
            inner += content() + element(depth + 1);
        }
        return "<" + name + attributes + ">" + inner + content() + "</" + name + ">";
    }

    std::string content() {
        static const char* const kinds[] = {
            "text", "&lt;&gt;&amp;\"'&#13;", "<![CDATA[<&>]]>", "<!-- note -->", "<?pi data\r?>", "<?pi?>", "\r\n\t",
            ""};
        return kinds[pick(std::size(kinds))];
    }

    std::mt19937 random_;
};

TEST(XmlCanonical, IsThatOfLibxml) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        expectSame(Maker(seed).document());
    }
}

TEST(XmlCanonical, TakesPrefixesOfTheListFromAncestors) {
    const std::string text = "<r xmlns:u=\"urn:u\" xmlns=\"urn:d\"><p:e xmlns:p=\"urn:p\" k=\"u:x\"/></r>";
    const DocPtr document(xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, XML_PARSE_NONET));
    CanonicalBudget budget{1000, 1000};
    std::string out;
    canonicalize(document.get(), rootOf(document.get())->children, {CanonicalMethod::exclusive, {"u", ""}}, {}, budget,
                 [&out](std::string_view octets) { out += octets; });
    EXPECT_EQ(out, "<p:e xmlns=\"urn:d\" xmlns:p=\"urn:p\" xmlns:u=\"urn:u\" k=\"u:x\"></p:e>");
}

} // namespace
