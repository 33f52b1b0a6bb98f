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

std::string repeated(const std::string& text, std::size_t count) {
    std::string out;
    out.reserve(text.size() * count);
    for (std::size_t i = 0; i < count; ++i) {
        out += text;
    }
    return out;
}

bool isRead(const std::string& text) {
    try {
        const XmlDocument document(text.data(), text.size());
        return true;
    } catch (const CryptoException& e) {
        EXPECT_EQ(e.code().value(), 30009);
        return false;
    }
}

TEST(XmlDocument, ReadsUtf16WithItsByteOrderMark) {
    EXPECT_TRUE(isRead("\xFF\xFE<\0a\0/\0>\0"s));
    EXPECT_TRUE(isRead("\xFE\xFF\0<\0a\0/\0>"s));
    EXPECT_FALSE(isRead("\xFF\xFE<\0a\0>\0\x00\xD8<\0/\0"s
                        "a\0>\0"s)) // half a surrogate pair
        << "broken";
}

std::string utf16(const std::string& text, bool bigEndian) {
    std::string wide;
    for (const char c : text) {
        wide += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
    }
    return wide;
}

TEST(XmlDocument, ReadsUtf16WithoutByteOrderMarkWhenItDeclaresItself) {
    for (const bool bigEndian : {false, true}) {
        const std::string own = bigEndian ? "UTF-16BE" : "utf-16le";
        const std::string other = bigEndian ? "UTF-16LE" : "UTF-16BE";
        const auto declared = [&](const std::string& encoding) {
            return utf16("<?xml version='1.0' encoding='" + encoding + "'?><a/>", bigEndian);
        };
        EXPECT_TRUE(isRead(declared("UTF-16")));
        EXPECT_TRUE(isRead(declared(own)));
        EXPECT_FALSE(isRead(declared(other)));
        EXPECT_FALSE(isRead(declared("UTF-8")));
        const std::string undeclared = utf16("<?xml version='1.0'?><a/>", bigEndian);
        for (const std::string& text : {undeclared, utf16("<a/>", bigEndian)}) {
            try {
                const XmlDocument document(text.data(), text.size());
                ADD_FAILURE() << text;
            } catch (const CryptoException& e) {
                EXPECT_EQ(e.code().value(), 30009);
                EXPECT_THAT(e.what(), testing::HasSubstr("neither a byte order mark nor a declaration"));
            }
        }
        EXPECT_FALSE(isRead(declared("UTF-16") + '\0')) << "half a character";
    }
}

TEST(XmlDocument, RefusesEveryDocumentTypeDeclaration) {
    EXPECT_FALSE(isRead("<!DOCTYPE a><a/>"));
    EXPECT_FALSE(isRead("<!DOCTYPE a [<!ATTLIST a b CDATA 'c'>]><a/>"));
    EXPECT_TRUE(isRead("<a><!--<!DOCTYPE a>--><![CDATA[<!DOCTYPE a>]]><?p <!DOCTYPE a>?></a>"));
}

TEST(XmlDocument, RefusesNamespacesThatAreNotWellFormed) {
    for (const char* attribute : {"xmlns:xml='urn:x'", "xmlns:xmlns='urn:x'", "xmlns:p=''", "p:a='1'",
                                  "xmlns='http://www.w3.org/XML/1998/namespace'",
                                  "xmlns:p='http://www.w3.org/2000/xmlns/'", "xmlns:p='u' xmlns:q='u' p:a='' q:a=''"}) {
        EXPECT_FALSE(isRead("<a " + std::string(attribute) + "/>")) << attribute;
    }
    for (const char* element : {"<p:a/>", "<a><p:b:c xmlns:p='u'/></a>", "<a xmlns='u'><?p:i?></a>"}) {
        EXPECT_FALSE(isRead(element)) << element;
    }
    EXPECT_TRUE(isRead("<a xmlns:xml='http://www.w3.org/XML/1998/namespace' xmlns='relative'><b xmlns=''/></a>"));
}

// Both edges of each bound.
TEST(XmlDocument, BoundsWhatADocumentHolds) {
    const auto deep = [](std::size_t levels) { return repeated("<a>", levels) + repeated("</a>", levels); };
    EXPECT_TRUE(isRead(deep(200)));
    EXPECT_FALSE(isRead(deep(201)));
    const auto wide = [](std::size_t count, const std::string& name) {
        std::string text = "<a";
        for (std::size_t i = 0; i < count; ++i) {
            text += " " + name + std::to_string(i) + "='u'";
        }
        return text + "/>";
    };
    EXPECT_TRUE(isRead(wide(256, "b")));
    EXPECT_FALSE(isRead(wide(257, "b")));
    EXPECT_TRUE(isRead(wide(128, "xmlns:b")));
    EXPECT_FALSE(isRead(wide(129, "xmlns:b")));
    EXPECT_TRUE(isRead("<" + std::string(1024, 'a') + "/>"));
    EXPECT_FALSE(isRead("<" + std::string(1025, 'a') + "/>"));
    EXPECT_TRUE(isRead("<a>" + repeated("<b/>", 100000) + "</a>"));
    EXPECT_FALSE(isRead("<a>" + repeated("<b/>", 2000000) + "</a>"));
    const auto named = [](int count) {
        std::string text = "<a>";
        for (int i = 0; i < count; ++i) {
            text += "<b" + std::to_string(i) + "/>";
        }
        return text + "</a>";
    };
    EXPECT_TRUE(isRead(named(16383)));
    EXPECT_FALSE(isRead(named(16384)));
    EXPECT_FALSE(isRead("<a>" + std::string(16UL * 1024 * 1024, ' ') + "</a>"));
}

// Names and messages of the parser come from the document.
TEST(XmlDocument, ItsReasonsArePrintable) {
    const std::string text = "<a\xC2\x9B></b>";
    try {
        const XmlDocument document(text.data(), text.size());
        ADD_FAILURE();
    } catch (const CryptoException& e) {
        for (const char c : std::string(e.what())) {
            EXPECT_TRUE(c >= ' ' && c <= '~') << e.what();
        }
    }
}

TEST(XmlDocument, NothingIsWrittenToStandardError) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(isRead("<?xml version='1.0' encoding='UTF-8'?><a>\xFF\xFE</a>"));
    EXPECT_FALSE(isRead("<a b:c='1'/><"));
    EXPECT_FALSE(isRead("<?xml version='1.0' encoding='US-ASCII'?><a>\xFF</a>"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

} // namespace
