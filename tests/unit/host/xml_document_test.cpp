#include "orvik/plugin/xml/xml_document.hpp"

#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

#include <gmock/gmock.h>

#include <string>

namespace {

using namespace std::string_literals;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::exception::ApplicationException;
using orvik::plugin::xml::XmlDocument;

TEST(XmlDocument, HoldsAParsedDocument) {
    const std::string text = "<?xml version=\"1.0\" encoding=\"windows-1251\"?><a>\xCF</a>";
    const XmlDocument document(text.data(), text.size());
    EXPECT_NE(document.native(), nullptr);
}

TEST(XmlDocument, RefusesAnEmptyText) {
    EXPECT_THROW(XmlDocument("", 0), ApplicationException);
}

TEST(XmlDocument, TellsWhyATextIsNoXml) {
    for (const auto& text : {"<a>"s, "hello"s, "<a></b>"s, "\0\0\0\0"s, "<a/>trailing"s, "<a>&unknown;</a>"s}) {
        try {
            const XmlDocument document(text.data(), text.size());
            ADD_FAILURE() << text;
        } catch (const CryptoException& e) {
            EXPECT_EQ(e.code().value(), 30009);
            EXPECT_THAT(e.what(), testing::StartsWith("not a well-formed XML document: "));
        }
    }
}

// A billion laughs: refused, or kept unexpanded, but never grown into gigabytes.
TEST(XmlDocument, DoesNotExpandEntities) {
    std::string text = "<!DOCTYPE a [<!ENTITY e0 \"ha\">";
    for (int i = 1; i < 30; ++i) {
        const std::string previous = "&e" + std::to_string(i - 1) + ";";
        text += "<!ENTITY e" + std::to_string(i) + " \"" + previous + previous + "\">";
    }
    text += "]><a>&e29;</a>";
    try {
        const XmlDocument document(text.data(), text.size());
        EXPECT_NE(document.native(), nullptr);
    } catch (const CryptoException& e) {
        EXPECT_EQ(e.code().value(), 30009);
    }
}

TEST(XmlDocument, RefusesAnAmplifyingAttribute) {
    std::string text = "<!DOCTYPE a [<!ENTITY e0 \"ha\">";
    for (int i = 1; i < 30; ++i) {
        const std::string previous = "&e" + std::to_string(i - 1) + ";";
        text += "<!ENTITY e" + std::to_string(i) + " \"" + previous + previous + "\">";
    }
    text += "]><a b=\"&e29;\"/>";
    EXPECT_THROW(XmlDocument(text.data(), text.size()), CryptoException);
}

TEST(XmlDocument, RefusesDepthWithoutBound) {
    std::string text;
    for (int i = 0; i < 100000; ++i) {
        text += "<a>";
    }
    EXPECT_THROW(XmlDocument(text.data(), text.size()), CryptoException);
}

} // namespace
