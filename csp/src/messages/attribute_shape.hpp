#pragma once

/// Content that could be signed attributes.
///
/// A signature with signed attributes covers their DER SET OF (RFC 5652, 5.4). Whoever has such a message can make
/// another one of it: without signed attributes, and with that SET OF as its content. The signature value holds there
/// as well, over content that nobody meant to sign. Content of that shape therefore needs signed attributes.

#include "core/bytes.hpp"

#include <cstddef>
#include <cstdint>

namespace klunortredi::csp {

/// Watches content as it passes. Keeps its first octets and its length.
class AttributeShape {
public:
    void update(ByteView piece);
    /// Whether all of the content is one SET whose first member begins as an Attribute does: a SEQUENCE of an OBJECT
    /// IDENTIFIER and a SET. An object identifier too long for what is kept counts as followed by a SET.
    [[nodiscard]] bool matches() const;

private:
    /// Three headers of at most ten octets, and an object identifier; those in use have under 40.
    static constexpr std::size_t keptOctets = 160;
    Bytes head_;
    std::uint64_t size_ = 0;
};

} // namespace klunortredi::csp
