#include "message_end.hpp"

#include "der_head.hpp"

#include <algorithm>

namespace klunortredi::cli {

namespace {

constexpr unsigned char constructedBit = 0x20;
constexpr unsigned char longTag = 0x1F;
constexpr unsigned char moreBit = 0x80;
constexpr unsigned char reservedLength = 0xFF;
constexpr unsigned topOctet = 56; ///< bits below it in a length

} // namespace

std::size_t MessageEnd::take(std::string_view octets) {
    std::size_t at = 0;
    while (at < octets.size() && state_ != State::ended) {
        if (state_ == State::lost) {
            return octets.size();
        }
        if (state_ == State::content) {
            const auto passed = std::min<std::uint64_t>(length_, octets.size() - at);
            length_ -= passed;
            at += static_cast<std::size_t>(passed);
            if (length_ == 0) {
                endValue();
            }
        } else {
            takeHead(static_cast<unsigned char>(octets[at++]));
        }
    }
    return at;
}

void MessageEnd::takeHead(unsigned char octet) {
    bool tooLong = false;
    switch (state_) {
    case State::identifier:
        if (first_ && octet != tagSequence) {
            state_ = State::lost;
            return;
        }
        first_ = false;
        constructed_ = (octet & constructedBit) != 0;
        mark_ = octet == 0;
        state_ = (octet & longTag) == longTag ? State::tagNumber : State::length;
        return;
    case State::tagNumber:
        state_ = (octet & moreBit) != 0 ? State::tagNumber : State::length;
        return;
    case State::length:
        indefinite_ = octet == moreBit;
        length_ = octet < moreBit ? octet : 0;
        lengthOctets_ = octet < moreBit ? 0 : octet - moreBit;
        tooLong = octet == reservedLength;
        break;
    default:
        tooLong = length_ >> topOctet != 0;
        length_ = length_ << 8U | octet;
        --lengthOctets_;
    }
    if (tooLong) {
        state_ = State::lost;
    } else if (lengthOctets_ > 0) {
        state_ = State::lengthOctets;
    } else {
        endHead();
    }
}

void MessageEnd::endHead() {
    if (mark_) {
        const bool closes = open_ > 0 && !indefinite_ && length_ == 0;
        open_ -= closes ? 1U : 0U;
        state_ = State::lost;
        if (closes) {
            endValue();
        }
    } else if (indefinite_) {
        open_ += constructed_ ? 1U : 0U;
        state_ = constructed_ ? State::identifier : State::lost;
    } else if (length_ == 0) {
        endValue();
    } else {
        state_ = State::content;
    }
}

void MessageEnd::endValue() {
    state_ = open_ == 0 ? State::ended : State::identifier;
}

} // namespace klunortredi::cli
