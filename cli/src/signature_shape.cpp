#include "signature_shape.hpp"

#include "der_head.hpp"
#include "input.hpp"

#include <string>

namespace klunortredi::cli {

namespace {

constexpr std::string_view signedDataOid = "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02";

/// The characters of UTF-16 with a byte order mark, or of a document in UTF-16 whose first character is "<", as octets;
/// those beyond ASCII as '?'. Empty for anything else.
std::string asciiOfUtf16(std::string_view head) {
    using namespace std::string_view_literals;
    const bool marked = head.starts_with("\xFF\xFE") || head.starts_with("\xFE\xFF");
    const bool little = head.starts_with("\xFF\xFE") || head.starts_with("<\0"sv);
    if (!little && !marked && !head.starts_with("\0<"sv)) {
        return {};
    }
    std::string text;
    for (std::size_t i = marked ? 2 : 0; i + 1 < head.size(); i += 2) {
        const char low = head[little ? i : i + 1];
        const char high = head[little ? i + 1 : i];
        text.push_back(high == 0 ? low : '?');
    }
    return text;
}

bool looksLikeXml(std::string_view head) {
    const std::string narrow = asciiOfUtf16(head);
    if (!narrow.empty()) {
        head = narrow;
    }
    if (head.starts_with(byteOrderMark)) {
        head.remove_prefix(byteOrderMark.size());
    }
    const auto first = head.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && head[first] == '<';
}

} // namespace

SignatureShape signatureShape(std::string_view octets) {
    if (looksLikeXml(octets)) {
        return SignatureShape::xml;
    }
    DerHead head(octets);
    if (!head.enter(tagSequence) || head.take(tagOid) != signedDataOid || !head.enter(tagExplicit0) ||
        !head.enter(tagSequence) || !head.take(tagInteger) || head.tag() != tagSet || !head.skip()) {
        return SignatureShape::unknown;
    }
    // EncapsulatedContentInfo: a sequence that ends after its OID has no content. A sequence that lies whole in the
    // head is looked into by itself, because what follows it may be certificates, whose tag is [0] as well.
    DerHead info = head;
    const auto whole = DerHead(info).take(tagSequence); // empty for an indefinite length, or contents beyond the head
    if (!info.enter(tagSequence) || !info.take(tagOid)) {
        return SignatureShape::unknown;
    }
    if (whole) {
        DerHead inside(*whole);
        return inside.take(tagOid) && inside.tag() == tagExplicit0 ? SignatureShape::attached
                                                                   : SignatureShape::detached;
    }
    return info.tag() == tagExplicit0 ? SignatureShape::attached : SignatureShape::detached;
}

std::string contentTypeOf(std::string_view octets) {
    DerHead head(octets);
    const auto oid = head.enter(tagSequence) ? head.take(tagOid) : std::nullopt;
    return oid ? dottedOid(*oid) : std::string{};
}

std::string otherMessage(std::string_view octets) {
    constexpr struct {
        std::string_view type;
        const char* words;
    } rows[] = {
        {"1.2.840.113549.1.7.1", "this is plain data (CMS Data), and nobody signed it"},
        {"1.2.840.113549.1.7.3", "this is an encrypted message (CMS EnvelopedData), not a signature"},
        {digestedDataType, "this is a digest (CMS DigestedData), which anybody can make, not a signature"},
        {"1.2.840.113549.1.7.6", "this is encrypted data (CMS EncryptedData), not a signature"},
        {"1.2.840.113549.1.9.16.1.2", "this is authenticated data (CMS AuthenticatedData), not a signature"},
        {"1.2.840.113549.1.9.16.1.23", "this is an encrypted message (CMS AuthEnvelopedData), not a signature"},
    };
    const std::string type = contentTypeOf(octets);
    for (const auto& row : rows) {
        if (type == row.type) {
            return row.words;
        }
    }
    return {};
}

} // namespace klunortredi::cli
