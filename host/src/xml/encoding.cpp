#include "encoding.hpp"

#include "refusal.hpp"

#include <boost/algorithm/string/predicate.hpp>

#include <algorithm>
#include <array>
#include <initializer_list>

namespace orvik::plugin::xml::internal {

namespace {

constexpr std::string_view blanks = " \t\r\n";
constexpr std::size_t longestDeclaration = 512; // octets of an XML declaration

// One-octet encodings that agree with ASCII, so that markup is found without conversion.
constexpr std::array oneOctet = {
    "US-ASCII",     "ASCII",        "ISO-8859-1",   "ISO-8859-2",   "ISO-8859-3",   "ISO-8859-4",
    "ISO-8859-5",   "ISO-8859-7",   "ISO-8859-9",   "ISO-8859-10",  "ISO-8859-13",  "ISO-8859-14",
    "ISO-8859-15",  "ISO-8859-16",  "windows-1250", "windows-1251", "windows-1252", "windows-1253",
    "windows-1254", "windows-1257", "KOI8-R",       "KOI8-U",
};

const char* oneOctetName(const std::string& declared) {
    for (const char* name : oneOctet) {
        if (boost::algorithm::iequals(declared, name)) {
            return name;
        }
    }
    return nullptr;
}

/// The value of "encoding" in the XML declaration; empty without one.
std::string declaredEncoding(std::string_view text) {
    constexpr std::string_view start = "<?xml";
    constexpr std::string_view name = "encoding";
    if (!text.starts_with(start) || text.size() == start.size() ||
        blanks.find(text[start.size()]) == std::string_view::npos) {
        return {};
    }
    const auto end = text.substr(0, longestDeclaration).find("?>");
    if (end == std::string_view::npos) {
        refuseDocument("the XML declaration has no end");
    }
    const std::string_view declaration = text.substr(0, end);
    auto at = declaration.find(name);
    if (at == std::string_view::npos) {
        return {};
    }
    at = declaration.find_first_of("\"'", at + name.size());
    const auto close = at == std::string_view::npos ? at : declaration.find(declaration[at], at + 1);
    if (close == std::string_view::npos) {
        refuseDocument("the XML declaration's encoding has no end");
    }
    return std::string(declaration.substr(at + 1, close - at - 1));
}

void append(std::string& out, char32_t c) {
    const auto tail = [c](unsigned shift) { return static_cast<char>(0x80U | (c >> shift & 0x3FU)); };
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += {static_cast<char>(0xC0U | c >> 6U), tail(0)};
    } else if (c < 0x10000) {
        out += {static_cast<char>(0xE0U | c >> 12U), tail(6), tail(0)};
    } else {
        out += {static_cast<char>(0xF0U | c >> 18U), tail(12), tail(6), tail(0)};
    }
}

/// UTF-16, after any byte order mark, as UTF-8 (RFC 2781).
std::string fromUtf16(std::string_view octets, bool bigEndian) {
    if (octets.size() % 2 != 0) {
        refuseDocument("the UTF-16 text ends within a character");
    }
    const auto unit = [&](std::size_t at) {
        const auto first = static_cast<unsigned char>(octets[at]);
        const auto second = static_cast<unsigned char>(octets[at + 1]);
        return static_cast<char32_t>(bigEndian ? first << 8U | second : second << 8U | first);
    };
    std::string out;
    out.reserve(octets.size() / 2);
    for (std::size_t at = 0; at < octets.size(); at += 2) {
        char32_t c = unit(at);
        if (c >= 0xD800 && c < 0xE000) {
            const char32_t low = c < 0xDC00 && at + 2 < octets.size() ? unit(at + 2) : 0;
            if (low < 0xDC00 || low >= 0xE000) {
                refuseDocument("the UTF-16 text has half a surrogate pair");
            }
            c = 0x10000 + ((c - 0xD800) << 10U) + (low - 0xDC00);
            at += 2;
        }
        append(out, c);
    }
    return out;
}

/// `allowed` lists what a declaration may say where the first octets have said it already.
void requireDeclared(const std::string& declared, std::initializer_list<const char*> allowed) {
    for (const char* name : allowed) {
        if (declared.empty() || boost::algorithm::iequals(declared, name)) {
            return;
        }
    }
    refuseDocument("the declared encoding contradicts the first octets");
}

/// How a document in UTF-16 begins, with its byte order mark or with the "<" of its XML declaration (XML 1.0, F.1).
struct Utf16Start {
    std::string_view octets;
    bool mark;
    bool bigEndian;
};
constexpr std::array utf16Starts = {
    Utf16Start{{"\xFE\xFF", 2}, true, true},
    Utf16Start{{"\xFF\xFE", 2}, true, false},
    Utf16Start{{"\0<", 2}, false, true},
    Utf16Start{{"<\0", 2}, false, false},
};

/// Null when the document is not in UTF-16.
const Utf16Start* utf16Start(std::string_view octets) {
    const auto* const found = std::find_if(utf16Starts.begin(), utf16Starts.end(),
                                           [&](const Utf16Start& start) { return octets.starts_with(start.octets); });
    return found == utf16Starts.end() ? nullptr : found;
}

DecodedDocument decodeUtf16(std::string_view octets, const Utf16Start& start) {
    DecodedDocument out;
    out.converted = fromUtf16(octets.substr(start.mark ? start.octets.size() : 0), start.bigEndian);
    const std::string declared = declaredEncoding(out.text());
    if (!start.mark && declared.empty()) {
        refuseDocument("the UTF-16 text has neither a byte order mark nor a declaration of its encoding");
    }
    requireDeclared(declared, {"UTF-16", start.bigEndian ? "UTF-16BE" : "UTF-16LE"});
    out.encoding = "UTF-16";
    return out;
}

DecodedDocument decodeOneOctet(std::string_view octets) {
    constexpr std::string_view utf8Mark = "\xEF\xBB\xBF";
    DecodedDocument out;
    const bool marked = octets.starts_with(utf8Mark);
    out.original = octets.substr(marked ? utf8Mark.size() : 0);
    out.encoding = declaredEncoding(out.original);
    if (marked) {
        requireDeclared(out.encoding, {"UTF-8"});
    }
    if (!out.encoding.empty() && !boost::algorithm::iequals(out.encoding, "UTF-8")) {
        out.parserEncoding = oneOctetName(out.encoding);
        if (out.parserEncoding == nullptr) {
            refuseDocument("the encoding " + shown(out.encoding) + " is not supported");
        }
    }
    return out;
}

} // namespace

DecodedDocument decodeDocument(std::string_view octets) {
    const Utf16Start* const wide = utf16Start(octets);
    DecodedDocument out = wide == nullptr ? decodeOneOctet(octets) : decodeUtf16(octets, *wide);
    // The parser stops at a zero octet; other readers may go on.
    const std::string_view text = out.text();
    if (text.find('\0') != std::string_view::npos) {
        refuseDocument("not a well-formed XML document: it holds a zero octet");
    }
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos || text[first] != '<') {
        refuseDocument("not a well-formed XML document: it does not start with \"<\"");
    }
    return out;
}

} // namespace orvik::plugin::xml::internal
