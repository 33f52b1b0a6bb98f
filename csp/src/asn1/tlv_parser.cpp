#include "asn1/tlv_parser.hpp"

#include "asn1/limit_error.hpp"
#include "core/error.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace klunortredi::csp {

namespace {
constexpr std::uint8_t constructedBit = 0x20;
constexpr std::uint8_t tagNumberMask = 0x1F;
constexpr std::uint8_t moreBit = 0x80;

/// Messages are kept in containers of a fixed size, filled up with zeros (ISO 32000-2, 12.8.1).
void requirePadding(ByteView behind) {
    if (std::ranges::any_of(behind, [](std::uint8_t octet) { return octet != 0; })) {
        fail(capi::CRYPT_E_ASN1_NOEOD);
    }
}

} // namespace

std::uint64_t TlvParser::bound() const noexcept {
    return frames_.empty() ? std::numeric_limits<std::uint64_t>::max() : frames_.back().end;
}

void TlvParser::feed(ByteView piece) {
    while (!piece.empty()) {
        if (complete_) {
            requirePadding(piece);
            return;
        }
        if (!frames_.empty() && frames_.back().octets) {
            piece = feedOctets(piece);
            continue;
        }
        if (position_ == bound()) { // the parent ends inside a header, or before its end-of-contents
            fail(capi::CRYPT_E_ASN1_CORRUPT);
        }
        ++position_;
        feedHeader(piece.front());
        piece = piece.subspan(1);
    }
}

void TlvParser::finish() const {
    if (!complete_) {
        fail(capi::CRYPT_E_ASN1_EOD);
    }
}

ByteView TlvParser::feedOctets(ByteView piece) {
    const std::uint64_t left = frames_.back().end - position_;
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(left, piece.size()));
    handler_.octets(piece.first(count));
    position_ += count;
    closeEnded();
    return piece.subspan(count);
}

void TlvParser::feedHeader(std::uint8_t octet) {
    header_[headerSize_++] = octet;
    switch (expect_) {
    case Expect::Identifier:
        expect_ = (octet & tagNumberMask) == tagNumberMask ? Expect::TagNumber : Expect::Length;
        return;
    case Expect::TagNumber:
        // The first octet of a number carries no leading zeros (X.690 8.1.2.4.2).
        if ((headerSize_ == 2 && octet == moreBit) || headerSize_ > 1 + maxTagNumberOctets) {
            fail(capi::CRYPT_E_ASN1_CORRUPT);
        }
        if ((octet & moreBit) == 0) {
            if (headerSize_ == 2 && octet < tagNumberMask) { // belongs into the short form
                fail(capi::CRYPT_E_ASN1_CORRUPT);
            }
            expect_ = Expect::Length;
        }
        return;
    case Expect::Length:
        indefinite_ = octet == moreBit;
        length_ = octet < moreBit ? octet : 0U;
        lengthOctetsLeft_ = octet < moreBit ? 0U : octet - moreBit;
        if (octet == 0xFF) { // reserved (X.690 8.1.3.5)
            fail(capi::CRYPT_E_ASN1_CORRUPT);
        }
        break;
    case Expect::LengthOctets:
        if (length_ >> 56U != 0) {
            fail(capi::CRYPT_E_ASN1_LARGE);
        }
        length_ = length_ << 8U | octet;
        --lengthOctetsLeft_;
        break;
    }
    expect_ = lengthOctetsLeft_ == 0 ? Expect::Identifier : Expect::LengthOctets;
    if (lengthOctetsLeft_ == 0) {
        beginElement();
    }
}

void TlvParser::beginElement() {
    const std::uint8_t identifier = header_.front();
    const ByteView header{header_.data(), std::exchange(headerSize_, 0)};
    if ((identifier & ~constructedBit) == 0) {
        if (identifier != 0 || header.size() != 2 || header[1] != 0) {
            fail(capi::CRYPT_E_ASN1_CORRUPT);
        }
        endOfContents();
        return;
    }
    const bool constructed = (identifier & constructedBit) != 0;
    if ((indefinite_ && !constructed) || (!indefinite_ && length_ > bound() - position_)) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    if (frames_.size() == maxDepth_) {
        failAtLimit(maxDepth_, "levels of nesting");
    }
    const TlvElement element{identifier, constructed, indefinite_, length_, position_ - header.size(), header};
    const bool asOctets = handler_.begin(element) == TlvHandler::Content::Octets;
    frames_.push_back(
        {indefinite_ ? bound() : position_ + length_, indefinite_, !constructed || (asOctets && !indefinite_)});
    closeEnded();
}

void TlvParser::endOfContents() {
    if (frames_.empty() || !frames_.back().indefinite) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    frames_.pop_back();
    constexpr std::array<std::uint8_t, 2> closing{};
    handler_.end(closing, position_);
    complete_ = frames_.empty();
    closeEnded();
}

void TlvParser::closeEnded() {
    while (!frames_.empty() && !frames_.back().indefinite && frames_.back().end == position_) {
        frames_.pop_back();
        handler_.end({}, position_);
        complete_ = frames_.empty();
    }
}

} // namespace klunortredi::csp
