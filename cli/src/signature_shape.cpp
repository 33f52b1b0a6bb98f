#include "signature_shape.hpp"

#include "input.hpp"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace klunortredi::cli {

namespace {

constexpr unsigned char tagInteger = 0x02;
constexpr unsigned char tagOid = 0x06;
constexpr unsigned char tagSequence = 0x30;
constexpr unsigned char tagSet = 0x31;
constexpr unsigned char tagExplicit0 = 0xA0;
constexpr std::string_view signedDataOid = "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02";
constexpr int deepest = 16; // nesting of an indefinite-length value that is to be skipped

/// A reader of tags and lengths that gives up (empty results) where the head ends.
class Head {
public:
    explicit Head(std::string_view octets) : rest_(octets) {}

    [[nodiscard]] std::optional<unsigned char> tag() const {
        return rest_.empty() ? std::nullopt : std::optional(static_cast<unsigned char>(rest_.front()));
    }

    /// Steps into a value of that tag: past its tag and length.
    bool enter(unsigned char expected) { return tag() == expected && header().has_value(); }

    /// The contents of a primitive value of that tag; steps past it.
    std::optional<std::string_view> take(unsigned char expected) {
        if (tag() != expected) {
            return std::nullopt;
        }
        const auto length = header();
        if (!length || *length == indefinite || *length > rest_.size()) {
            return std::nullopt;
        }
        const auto contents = rest_.substr(0, *length);
        rest_.remove_prefix(*length);
        return contents;
    }

    /// Steps past a whole value.
    bool skip(int depth = 0) {
        const auto length = header();
        if (!length || depth > deepest) {
            return false;
        }
        if (*length != indefinite) {
            rest_.remove_prefix(std::min(*length, rest_.size()));
            return !rest_.empty();
        }
        while (!rest_.starts_with(std::string_view("\0\0", 2))) {
            if (!skip(depth + 1)) {
                return false;
            }
        }
        rest_.remove_prefix(2);
        return true;
    }

private:
    static constexpr std::size_t indefinite = static_cast<std::size_t>(-1);

    /// Reads a one-octet tag and the length; the contents are next then.
    std::optional<std::size_t> header() {
        if (rest_.size() < 2) {
            return std::nullopt;
        }
        const auto first = static_cast<unsigned char>(rest_[1]);
        rest_.remove_prefix(2);
        if (first < 0x80) {
            return first;
        }
        if (first == 0x80) {
            return indefinite;
        }
        const std::size_t count = first & 0x7FU;
        if (count > sizeof(std::size_t) - 1 || rest_.size() < count) {
            return std::nullopt;
        }
        std::size_t length = 0;
        for (std::size_t i = 0; i < count; ++i) {
            length = length << 8U | static_cast<unsigned char>(rest_[i]);
        }
        rest_.remove_prefix(count);
        return length;
    }

    std::string_view rest_;
};

bool looksLikeXml(std::string_view head) {
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
    Head head(octets);
    if (!head.enter(tagSequence) || head.take(tagOid) != signedDataOid || !head.enter(tagExplicit0) ||
        !head.enter(tagSequence) || !head.take(tagInteger) || head.tag() != tagSet || !head.skip()) {
        return SignatureShape::unknown;
    }
    // EncapsulatedContentInfo: a sequence that ends behind its OID has no content. A sequence that lies whole in the
    // head is looked into by itself, because what follows it may be certificates, whose tag is [0] as well.
    Head info = head;
    const auto whole = Head(info).take(tagSequence); // empty for an indefinite length, or contents beyond the head
    if (!info.enter(tagSequence) || !info.take(tagOid)) {
        return SignatureShape::unknown;
    }
    if (whole) {
        Head inside(*whole);
        return inside.take(tagOid) && inside.tag() == tagExplicit0 ? SignatureShape::attached
                                                                   : SignatureShape::detached;
    }
    return info.tag() == tagExplicit0 ? SignatureShape::attached : SignatureShape::detached;
}

} // namespace klunortredi::cli
