#pragma once

/// A push parser of BER and DER (X.690): octets come in pieces of any size, elements go out as they are recognised.
///
/// It keeps no content and does not recurse: one small frame per open element, so that neither a deep nor a long
/// message costs more than the named limit.

#include "core/bytes.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace klunortredi::csp {

/// The head of an element: its identifier and length octets.
struct TlvElement {
    std::uint8_t identifier; ///< first identifier octet: class, constructed bit, number (31: in the octets that follow)
    bool constructed;
    bool indefinite;
    std::uint64_t length;   ///< octets of content; 0 when indefinite
    std::uint64_t position; ///< of the first identifier octet, counted from the message's start
    ByteView header;        ///< identifier and length octets as they came; valid during the call only
};

/// Told of each element in the order of the message. May throw ApiError; the parser is unusable afterwards.
class TlvHandler {
public:
    /// How the content of a constructed element is handed out. Primitive elements always come as octets, and elements
    /// of indefinite length always by their members.
    enum class Content { Members, Octets };

    TlvHandler() = default;
    TlvHandler(const TlvHandler&) = delete;
    TlvHandler& operator=(const TlvHandler&) = delete;
    virtual ~TlvHandler() = default;

    virtual Content begin(const TlvElement& element) = 0;
    /// Content octets of the element begun last; a view into the caller's piece, never empty.
    virtual void octets(ByteView piece) = 0;
    /// The innermost open element ends before `position`; `endOfContents` holds the two octets that close one of
    /// indefinite length, else nothing.
    virtual void end(ByteView endOfContents, std::uint64_t position) = 0;
};

class TlvParser {
public:
    /// `handler` outlives the parser. `maxDepth`: open elements at most.
    TlvParser(TlvHandler& handler, std::size_t maxDepth) : handler_(handler), maxDepth_(maxDepth) {}

    /// Takes the next octets. ApiError(CRYPT_E_ASN1_CORRUPT) for what is not BER or a length that overruns its parent;
    /// CRYPT_E_ASN1_NOEOD for anything but zeros after the one element, a line end included; CRYPT_E_ASN1_LARGE beyond
    /// the depth limit or a length of over 64 bits.
    void feed(ByteView piece);
    /// Tells that no more octets come. ApiError(CRYPT_E_ASN1_EOD) when the element is not complete.
    void finish() const;
    [[nodiscard]] bool complete() const noexcept { return complete_; }

private:
    /// An element whose content is being read. `end` of an indefinite one is the bound its parents set.
    struct Frame {
        std::uint64_t end;
        bool indefinite;
        bool octets;
    };

    ByteView feedOctets(ByteView piece);
    void feedHeader(std::uint8_t octet);
    void beginElement();
    void endOfContents();
    void closeEnded();
    [[nodiscard]] std::uint64_t bound() const noexcept;

    TlvHandler& handler_;
    const std::size_t maxDepth_;
    std::vector<Frame> frames_;
    std::uint64_t position_ = 0;
    bool complete_ = false;

    enum class Expect { Identifier, TagNumber, Length, LengthOctets };
    Expect expect_ = Expect::Identifier;
    std::size_t lengthOctetsLeft_ = 0;
    std::uint64_t length_ = 0;
    bool indefinite_ = false;
    std::size_t headerSize_ = 0;
    /// Identifier (1 + 5 octets of a tag number of 32 bits) and length (1 + 126 octets, leading zeros included).
    static constexpr std::size_t maxTagNumberOctets = 5;
    std::array<std::uint8_t, 1 + maxTagNumberOctets + 1 + 126> header_{};
};

} // namespace klunortredi::csp
