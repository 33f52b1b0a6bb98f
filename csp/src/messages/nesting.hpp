#pragma once

/// Headers of nested elements, found from the inside out.

#include "asn1/definite.hpp"
#include "core/bytes.hpp"

#include <cstdint>

namespace klunortredi::csp {

/// Headers of elements, each the only or the last member of the one before it.
class Nesting {
public:
    explicit Nesting(std::uint64_t innermostSize) : size_(innermostSize) {}

    /// Puts a header (and octets that stand before the content so far) around.
    void wrap(std::uint8_t identifier, ByteView before = {}) {
        octets_.insert(octets_.begin(), before.begin(), before.end());
        size_ += before.size();
        const Bytes header = definiteHeader(identifier, size_);
        octets_.insert(octets_.begin(), header.begin(), header.end());
        size_ += header.size();
    }
    /// Octets that follow inside the element put around next.
    void follow(std::uint64_t size) { size_ += size; }

    [[nodiscard]] const Bytes& octets() const noexcept { return octets_; }

private:
    Bytes octets_;
    std::uint64_t size_;
};

} // namespace klunortredi::csp
