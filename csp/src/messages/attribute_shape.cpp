#include "messages/attribute_shape.hpp"

#include "asn1/der.hpp"

#include <algorithm>
#include <optional>

namespace klunortredi::csp {

namespace {

/// Reads headers from the start of an encoding whose end may be missing.
class Headers {
public:
    explicit Headers(ByteView head) : rest_(head) {}

    /// The length of the element that begins here; nothing when it has another tag, an indefinite length, or more
    /// octets of length than a size has.
    std::optional<std::uint64_t> read(std::uint8_t tag) {
        constexpr std::uint8_t longForm = 0x80;
        if (rest_.size() < 2 || rest_[0] != tag) {
            return std::nullopt;
        }
        const std::uint8_t first = rest_[1];
        rest_ = rest_.subspan(2);
        if (first < longForm) {
            return first;
        }
        const std::size_t octets = first & 0x7FU;
        std::uint64_t length = 0;
        if (octets == 0 || octets > sizeof length || octets > rest_.size()) {
            return std::nullopt;
        }
        for (const std::uint8_t octet : rest_.first(octets)) {
            length = length << 8U | octet;
        }
        rest_ = rest_.subspan(octets);
        return length;
    }
    [[nodiscard]] ByteView rest() const { return rest_; }
    void skip(std::size_t octets) { rest_ = rest_.subspan(octets); }

private:
    ByteView rest_;
};

} // namespace

void AttributeShape::update(ByteView piece) {
    size_ += piece.size();
    if (head_.size() < keptOctets) {
        der::append(head_, piece.first(std::min(piece.size(), keptOctets - head_.size())));
    }
}

bool AttributeShape::matches() const {
    Headers headers(head_);
    const auto set = headers.read(der::tag::Set);
    if (!set || *set != size_ - (head_.size() - headers.rest().size()) || !headers.read(der::tag::Sequence)) {
        return false;
    }
    const auto identifier = headers.read(der::tag::ObjectIdentifier);
    if (!identifier) {
        return false;
    }
    if (*identifier >= headers.rest().size()) { // what follows it was not kept; nothing follows when all was kept
        return size_ > head_.size();
    }
    headers.skip(static_cast<std::size_t>(*identifier));
    return headers.rest().front() == der::tag::Set;
}

} // namespace klunortredi::csp
