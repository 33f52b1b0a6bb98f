#include "signature_shape.hpp"

#include "der_head.hpp"
#include "input.hpp"

namespace klunortredi::cli {

namespace {

constexpr std::string_view signedDataOid = "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02";

bool looksLikeXml(std::string_view head) {
    using namespace std::string_view_literals;
    if (head.starts_with("\xFF\xFE<\0"sv) || head.starts_with("\xFE\xFF\0<"sv)) { // UTF-16
        return true;
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

} // namespace klunortredi::cli
