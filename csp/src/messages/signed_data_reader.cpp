#include "messages/signed_data_reader.hpp"

#include "asn1/definite.hpp"
#include "core/error.hpp"
#include "messages/limits.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace klunortredi::csp {

namespace {

using Node = SignedDataReader::Node;

enum class Presence : std::uint8_t { Required, Optional, Repeated };
enum class Treatment : std::uint8_t { Descend, Keep };

/// A member that may stand in `parent`; the members of one parent are listed in their order.
struct Row {
    Node parent;
    Node node;
    std::array<std::uint8_t, 5> identifiers; ///< accepted first identifier octets, zero-filled
    Presence presence;
    Treatment treatment;
};

constexpr std::uint8_t sequence = 0x30;
constexpr std::uint8_t setOf = 0x31;
constexpr std::uint8_t octetString = 0x04;
constexpr std::uint8_t constructedOctetString = 0x24;

// clang-format off
constexpr auto grammar = std::to_array<Row>({
    {Node::Message, Node::ContentInfo, {sequence}, Presence::Required, Treatment::Descend},
    {Node::ContentInfo, Node::ContentType, {0x06}, Presence::Required, Treatment::Keep},
    {Node::ContentInfo, Node::ExplicitContent, {0xA0}, Presence::Required, Treatment::Descend},
    {Node::ExplicitContent, Node::SignedData, {sequence}, Presence::Required, Treatment::Descend},
    {Node::SignedData, Node::Version, {0x02}, Presence::Required, Treatment::Keep},
    {Node::SignedData, Node::DigestAlgorithms, {setOf}, Presence::Required, Treatment::Descend},
    {Node::SignedData, Node::EncapContentInfo, {sequence}, Presence::Required, Treatment::Descend},
    {Node::SignedData, Node::Certificates, {0xA0}, Presence::Optional, Treatment::Descend},
    {Node::SignedData, Node::Crls, {0xA1}, Presence::Optional, Treatment::Descend},
    {Node::SignedData, Node::SignerInfos, {setOf}, Presence::Required, Treatment::Descend},
    {Node::DigestAlgorithms, Node::DigestAlgorithm, {sequence}, Presence::Repeated, Treatment::Keep},
    {Node::EncapContentInfo, Node::EContentType, {0x06}, Presence::Required, Treatment::Keep},
    {Node::EncapContentInfo, Node::ExplicitEContent, {0xA0}, Presence::Optional, Treatment::Descend},
    {Node::ExplicitEContent, Node::EContent, {octetString, constructedOctetString}, Presence::Required, Treatment::Descend},
    {Node::EContent, Node::Segment, {octetString, constructedOctetString}, Presence::Repeated, Treatment::Descend},
    {Node::Segment, Node::Segment, {octetString, constructedOctetString}, Presence::Repeated, Treatment::Descend},
    {Node::Certificates, Node::Certificate, {sequence, 0xA0, 0xA1, 0xA2, 0xA3}, Presence::Repeated, Treatment::Keep},
    {Node::Crls, Node::Crl, {sequence, 0xA1}, Presence::Repeated, Treatment::Keep},
    {Node::SignerInfos, Node::SignerInfo, {sequence}, Presence::Repeated, Treatment::Keep},
});
// clang-format on

/// DER of id-signedData, 1.2.840.113549.1.7.2.
constexpr std::array<std::uint8_t, 11> signedDataType{0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};

std::size_t firstRow(Node parent) {
    const auto* found = std::ranges::find(grammar, parent, &Row::parent);
    return static_cast<std::size_t>(found - grammar.begin());
}

/// The row of `parent` from `row` on that takes the identifier; rows passed over must not be required ones.
std::size_t matchRow(Node parent, std::size_t row, std::uint8_t identifier) {
    for (; row < grammar.size() && grammar[row].parent == parent; ++row) {
        if (std::ranges::find(grammar[row].identifiers, identifier) != grammar[row].identifiers.end()) {
            return row;
        }
        if (grammar[row].presence == Presence::Required) {
            break;
        }
    }
    fail(capi::CRYPT_E_ASN1_BADTAG);
}

/// Refuses an element that ends before its required members came.
void requireNoMore(Node parent, std::size_t row) {
    for (; row < grammar.size() && grammar[row].parent == parent; ++row) {
        if (grammar[row].presence == Presence::Required) {
            fail(capi::CRYPT_E_ASN1_CORRUPT);
        }
    }
}

/// Octets that one kept element may have.
constexpr std::size_t elementLimit(Node node) {
    switch (node) {
    case Node::Certificate:
        return limits::certificate;
    case Node::Crl:
    case Node::SignerInfo:
        return limits::retainedOctets;
    default:
        return limits::smallElement;
    }
}

void append(std::vector<Bytes>& list, Bytes&& element, std::size_t limit) {
    if (list.size() == limit) {
        fail(capi::CRYPT_E_ASN1_LARGE);
    }
    list.push_back(std::move(element));
}

} // namespace

SignedDataReader::SignedDataReader(SignedDataListener& listener)
    : listener_(listener), open_{{Node::Message, firstRow(Node::Message)}}, parser_(*this, limits::nestingDepth) {}

TlvHandler::Content SignedDataReader::begin(const TlvElement& element) {
    if (captureDepth_ > 0) {
        ++captureDepth_;
        keep(element.header);
        return Content::Octets;
    }
    Open& parent = open_.back();
    const std::size_t row = matchRow(parent.node, parent.nextRow, element.identifier);
    const Row& rule = grammar[row];
    parent.nextRow = rule.presence == Presence::Repeated ? row : row + 1;
    open_.push_back({rule.node, firstRow(rule.node)});
    if (rule.node == Node::EncapContentInfo) {
        parts_.encapContentInfoBegin = element.position;
    }
    if (rule.treatment == Treatment::Descend) {
        parts_.hasContent = parts_.hasContent || rule.node == Node::EContent;
        return Content::Members;
    }
    if (element.length > elementLimit(rule.node)) {
        fail(capi::CRYPT_E_ASN1_LARGE);
    }
    captureDepth_ = 1;
    keep(element.header);
    return Content::Octets;
}

void SignedDataReader::octets(ByteView piece) {
    if (captureDepth_ > 0) {
        keep(piece);
    } else {
        listener_.content(piece); // the grammar descends into no other primitive element
    }
}

void SignedDataReader::end(ByteView endOfContents, std::uint64_t position) {
    if (captureDepth_ > 0) {
        keep(endOfContents);
        if (--captureDepth_ > 0) {
            return;
        }
        captured();
    } else {
        requireNoMore(open_.back().node, open_.back().nextRow);
        if (open_.back().node == Node::EncapContentInfo) {
            parts_.encapContentInfoEnd = position;
        }
    }
    open_.pop_back();
}

void SignedDataReader::keep(ByteView octets) {
    if (octets.size() > limits::retainedOctets - retained_ ||
        octets.size() + capture_.size() > elementLimit(open_.back().node)) {
        fail(capi::CRYPT_E_ASN1_LARGE);
    }
    retained_ += octets.size();
    capture_.insert(capture_.end(), octets.begin(), octets.end());
}

void SignedDataReader::captured() {
    const Node node = open_.back().node;
    Bytes element = std::exchange(capture_, {});
    // Certificates and CRLs stay as they were signed.
    if (node != Node::Certificate && node != Node::Crl) {
        element = toDefinite(element);
    }
    switch (node) {
    case Node::ContentType:
        if (!std::ranges::equal(element, signedDataType)) {
            fail(capi::CRYPT_E_INVALID_MSG_TYPE);
        }
        parts_.contentType = std::move(element);
        return;
    case Node::Version:
        parts_.version = std::move(element);
        return;
    case Node::DigestAlgorithm:
        append(parts_.digestAlgorithms, std::move(element), limits::digestAlgorithms);
        return;
    case Node::EContentType:
        parts_.eContentType = std::move(element);
        listener_.contentBegins(parts_);
        return;
    case Node::Certificate:
        append(parts_.certificates, std::move(element), limits::certificates);
        return;
    case Node::Crl:
        append(parts_.crls, std::move(element), limits::certificates);
        return;
    case Node::SignerInfo:
        append(parts_.signerInfos, std::move(element), limits::signers);
        return;
    default:
        fail(capi::CRYPT_E_MSG_ERROR); // no other node is kept
    }
}

} // namespace klunortredi::csp
