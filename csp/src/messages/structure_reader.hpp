#pragma once

/// A message's structure read as it streams, by a grammar that is a table.

#include "asn1/tlv_parser.hpp"
#include "core/bytes.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace klunortredi::csp {

namespace structure {

/// A place in the structure; each grammar numbers its own. 0 is what surrounds the message.
using Node = std::uint8_t;
inline constexpr Node outside = 0;

enum class Presence : std::uint8_t { Required, Optional, Repeated };
enum class Treatment : std::uint8_t {
    Descend, ///< its members are matched in turn; the octets of a primitive one are content
    Keep,    ///< handed out whole, with definite lengths and octet strings in one piece
    KeepRaw, ///< handed out whole, as it came: what is signed or hashed as it stands
    Skip     ///< counted, and not kept
};

/// First identifier octets that an element may have, zero-filled.
using Identifiers = std::array<std::uint8_t, 5>;
/// An OCTET STRING in one piece or in segments.
inline constexpr Identifiers octetString{0x04, 0x24};
/// The limit of an element that is descended into.
inline constexpr std::size_t none = 0;

/// A member that may stand in `parent`; the members of one parent are listed in their order.
struct Row {
    Node parent;
    Node node;
    Identifiers identifiers;
    Presence presence;
    Treatment treatment;
    std::size_t limit; ///< octets of a kept or skipped element
};

} // namespace structure

/// Told what was read. May throw ApiError.
class StructureListener {
public:
    StructureListener() = default;
    StructureListener(const StructureListener&) = delete;
    StructureListener& operator=(const StructureListener&) = delete;
    virtual ~StructureListener() = default;

    /// A kept element, whole.
    virtual void kept(structure::Node node, Bytes&& element) = 0;
    /// Octets of a primitive element that is not kept.
    virtual void content(ByteView piece) = 0;
    /// An element that is descended into begins at `position`, counted from the message's start.
    virtual void began(structure::Node /*node*/, std::uint64_t /*position*/) {}
    /// An element that is descended into has ended before `position`.
    virtual void ended(structure::Node /*node*/, std::uint64_t /*position*/) {}
};

class StructureReader final : private TlvHandler {
public:
    /// Both arguments outlive the reader.
    StructureReader(std::span<const structure::Row> grammar, StructureListener& listener);

    /// Takes the next octets. Throws ApiError: CRYPT_E_ASN1_BADTAG or CRYPT_E_ASN1_CORRUPT for what is not of the
    /// grammar, CRYPT_E_ASN1_LARGE beyond a limit.
    void feed(ByteView piece) { parser_.feed(piece); }
    /// Tells that the message ends here. ApiError(CRYPT_E_ASN1_EOD) when it is not complete.
    void finish() const { parser_.finish(); }

private:
    struct Open {
        structure::Node node;
        std::size_t nextRow; ///< first row of the grammar that its next member may match
    };

    Content begin(const TlvElement& element) override;
    void octets(ByteView piece) override;
    void end(ByteView endOfContents, std::uint64_t position) override;

    [[nodiscard]] std::size_t firstRow(structure::Node parent) const;
    [[nodiscard]] std::size_t matchRow(const Open& parent, std::uint8_t identifier) const;
    void requireNoMore(const Open& parent) const;
    void take(ByteView octets);
    void taken();

    std::span<const structure::Row> grammar_;
    StructureListener& listener_;
    std::vector<Open> open_;
    const structure::Row* taking_ = nullptr; ///< the row of the element that is kept or skipped
    std::size_t takingDepth_ = 0;            ///< open elements inside it, itself included
    std::uint64_t takenOctets_ = 0;          ///< of that element
    std::size_t retained_ = 0;               ///< octets kept and skipped so far
    Bytes capture_;
    TlvParser parser_;
};

} // namespace klunortredi::csp
