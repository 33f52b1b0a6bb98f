#include "messages/structure_reader.hpp"

#include "asn1/definite.hpp"
#include "asn1/limit_error.hpp"
#include "asn1/limits.hpp"
#include "core/error.hpp"
#include "messages/limits.hpp"

#include <algorithm>
#include <utility>

namespace klunortredi::csp {

using structure::Presence;
using structure::Row;
using structure::Treatment;

namespace {

constexpr const char* octetsOfOne = "octets in one element of its kind";

} // namespace

StructureReader::StructureReader(std::span<const Row> grammar, StructureListener& listener)
    : grammar_(grammar), listener_(listener), open_{{structure::outside, firstRow(structure::outside)}},
      parser_(*this, limits::nestingDepth) {}

std::size_t StructureReader::firstRow(structure::Node parent) const {
    const auto found = std::ranges::find(grammar_, parent, &Row::parent);
    return static_cast<std::size_t>(found - grammar_.begin());
}

/// The row from the next one on that takes the identifier; rows passed over must not be required ones.
std::size_t StructureReader::matchRow(const Open& parent, std::uint8_t identifier) const {
    for (std::size_t row = parent.nextRow; row < grammar_.size() && grammar_[row].parent == parent.node; ++row) {
        if (std::ranges::find(grammar_[row].identifiers, identifier) != grammar_[row].identifiers.end()) {
            return row;
        }
        if (grammar_[row].presence == Presence::Required) {
            break;
        }
    }
    fail(capi::CRYPT_E_ASN1_BADTAG);
}

/// Refuses an element that ends before its required members came.
void StructureReader::requireNoMore(const Open& parent) const {
    for (std::size_t row = parent.nextRow; row < grammar_.size() && grammar_[row].parent == parent.node; ++row) {
        if (grammar_[row].presence == Presence::Required) {
            fail(capi::CRYPT_E_ASN1_CORRUPT);
        }
    }
}

TlvHandler::Content StructureReader::begin(const TlvElement& element) {
    if (takingDepth_ > 0) {
        ++takingDepth_;
        take(element.header);
        return Content::Octets;
    }
    Open& parent = open_.back();
    const std::size_t index = matchRow(parent, element.identifier);
    const Row& row = grammar_[index];
    parent.nextRow = row.presence == Presence::Repeated ? index : index + 1;
    open_.push_back({row.node, firstRow(row.node)});
    if (row.treatment == Treatment::Descend) {
        listener_.began(row.node, element.position);
        return Content::Members;
    }
    if (element.length > row.limit) {
        failAtLimit(row.limit, octetsOfOne);
    }
    taking_ = &row;
    takingDepth_ = 1;
    takenOctets_ = 0;
    take(element.header);
    return Content::Octets;
}

void StructureReader::octets(ByteView piece) {
    if (takingDepth_ > 0) {
        take(piece);
    } else {
        listener_.content(piece);
    }
}

void StructureReader::end(ByteView endOfContents, std::uint64_t position) {
    if (takingDepth_ > 0) {
        take(endOfContents);
        if (--takingDepth_ > 0) {
            return;
        }
        taken();
        open_.pop_back();
        return;
    }
    requireNoMore(open_.back());
    const structure::Node node = open_.back().node;
    open_.pop_back();
    listener_.ended(node, position);
}

void StructureReader::take(ByteView octets) {
    takenOctets_ += octets.size();
    if (octets.size() > limits::retainedOctets - retained_) {
        failAtLimit(limits::retainedOctets, "octets in what is kept of a message");
    }
    if (takenOctets_ > taking_->limit) {
        failAtLimit(taking_->limit, octetsOfOne);
    }
    retained_ += octets.size();
    if (taking_->treatment != Treatment::Skip) {
        capture_.insert(capture_.end(), octets.begin(), octets.end());
    }
}

void StructureReader::taken() {
    if (taking_->treatment == Treatment::Skip) {
        return;
    }
    Bytes element = std::exchange(capture_, {});
    if (taking_->treatment == Treatment::Keep) {
        element = toDefinite(element);
    }
    listener_.kept(taking_->node, std::move(element));
}

} // namespace klunortredi::csp
