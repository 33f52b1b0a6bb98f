#include "asn1/definite.hpp"

#include "asn1/der.hpp"
#include "asn1/limits.hpp"
#include "asn1/tlv_parser.hpp"
#include "core/error.hpp"

namespace klunortredi::csp {

namespace {

constexpr std::uint8_t constructedOctetString = 0x24;
constexpr std::uint8_t tagNumberMask = 0x1F;
constexpr std::uint8_t moreBit = 0x80;

/// The identifier octets at the start of a header.
ByteView identifierOctets(ByteView header) {
    std::size_t count = 1;
    if ((header[0] & tagNumberMask) == tagNumberMask) {
        while ((header[count] & moreBit) != 0) {
            ++count;
        }
        ++count;
    }
    return header.first(count);
}

void appendLength(Bytes& out, std::uint64_t length) {
    if (length < moreBit) {
        out.push_back(static_cast<std::uint8_t>(length));
        return;
    }
    unsigned octets = 1;
    while (octets < sizeof length && length >> (8 * octets) != 0) {
        ++octets;
    }
    out.push_back(static_cast<std::uint8_t>(moreBit | octets));
    for (unsigned i = octets; i-- > 0;) {
        out.push_back(static_cast<std::uint8_t>(length >> (8 * i)));
    }
}

class Rewriter final : public TlvHandler {
public:
    Content begin(const TlvElement& element) override {
        const bool segment = !open_.empty() && open_.back().identifier.front() == constructedOctetString;
        const bool octetString = (element.identifier & ~0x20U) == der::tag::OctetString;
        if (segment && !octetString) {
            fail(capi::CRYPT_E_ASN1_BADTAG);
        }
        const ByteView identifier = identifierOctets(element.header);
        open_.push_back({{identifier.begin(), identifier.end()}, {}, segment});
        const bool deepest = open_.size() == limits::nestingDepth && !element.indefinite && !octetString;
        return deepest ? Content::Octets : Content::Members;
    }

    void octets(ByteView piece) override { der::append(open_.back().content, piece); }

    void end(ByteView /*endOfContents*/, std::uint64_t /*position*/) override {
        Open ended = std::move(open_.back());
        open_.pop_back();
        Bytes& parent = open_.empty() ? result_ : open_.back().content;
        if (!ended.segment) {
            if (ended.identifier.front() == constructedOctetString) {
                ended.identifier.front() = der::tag::OctetString;
            }
            der::append(parent, ended.identifier);
            appendLength(parent, ended.content.size());
        }
        der::append(parent, ended.content);
    }

    Bytes takeResult() { return std::move(result_); }

private:
    struct Open {
        Bytes identifier;
        Bytes content;
        bool segment; ///< of an octet string: only its content counts
    };
    std::vector<Open> open_;
    Bytes result_;
};

} // namespace

Bytes toDefinite(ByteView ber) {
    Rewriter rewriter;
    TlvParser parser(rewriter, limits::nestingDepth);
    parser.feed(ber);
    parser.finish();
    return rewriter.takeResult();
}

Bytes definiteHeader(std::uint8_t identifier, std::uint64_t length) {
    Bytes out{identifier};
    appendLength(out, length);
    return out;
}

} // namespace klunortredi::csp
