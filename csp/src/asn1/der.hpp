#pragma once

/// DER (X.690): a strict reader of tag-length-value elements over a view, and a writer made of functions.
///
/// The reader copies nothing and never recurses: the caller enters a constructed element by making a Reader of its
/// content, so depth is the caller's and every length is bounded by the view it was given.

#include "core/bytes.hpp"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace klunortredi::csp::der {

/// Identifier octets as they stand in an encoding.
namespace tag {
inline constexpr std::uint8_t Boolean = 0x01;
inline constexpr std::uint8_t Integer = 0x02;
inline constexpr std::uint8_t BitString = 0x03;
inline constexpr std::uint8_t OctetString = 0x04;
inline constexpr std::uint8_t Null = 0x05;
inline constexpr std::uint8_t ObjectIdentifier = 0x06;
inline constexpr std::uint8_t Enumerated = 0x0A;
inline constexpr std::uint8_t Utf8String = 0x0C;
inline constexpr std::uint8_t NumericString = 0x12;
inline constexpr std::uint8_t PrintableString = 0x13;
inline constexpr std::uint8_t TeletexString = 0x14;
inline constexpr std::uint8_t VideotexString = 0x15;
inline constexpr std::uint8_t Ia5String = 0x16;
inline constexpr std::uint8_t UtcTime = 0x17;
inline constexpr std::uint8_t GeneralizedTime = 0x18;
inline constexpr std::uint8_t GraphicString = 0x19;
inline constexpr std::uint8_t VisibleString = 0x1A;
inline constexpr std::uint8_t GeneralString = 0x1B;
inline constexpr std::uint8_t UniversalString = 0x1C;
inline constexpr std::uint8_t BmpString = 0x1E;
inline constexpr std::uint8_t Sequence = 0x30;
inline constexpr std::uint8_t Set = 0x31;

/// [number] primitive: an implicitly tagged simple type. `number` is at most 30.
constexpr std::uint8_t context(unsigned number) noexcept {
    return static_cast<std::uint8_t>(0x80U | number);
}
/// [number] constructed: an explicit tag, or an implicitly tagged SEQUENCE or SET.
constexpr std::uint8_t contextConstructed(unsigned number) noexcept {
    return static_cast<std::uint8_t>(0xA0U | number);
}
} // namespace tag

/// One element. The views lead into what the Reader was given.
struct Element {
    std::uint8_t tag = 0;
    ByteView content;
    ByteView whole; ///< identifier, length and content
};

/// Walks the elements of a view from left to right.
///
/// Errors are ApiError: CRYPT_E_ASN1_EOD when the view ends inside an element, CRYPT_E_ASN1_BADTAG for an unexpected or
/// multi-octet identifier, CRYPT_E_ASN1_LARGE for a length of more than four octets, CRYPT_E_ASN1_CORRUPT for anything
/// else that is not DER: an indefinite or a longer than necessary length, data behind the end.
class Reader {
public:
    explicit Reader(ByteView der) noexcept : rest_(der) {}

    [[nodiscard]] bool empty() const noexcept { return rest_.empty(); }
    /// What has not been read yet.
    [[nodiscard]] ByteView rest() const noexcept { return rest_; }
    /// Whether an element with this identifier octet comes next.
    [[nodiscard]] bool next(std::uint8_t expectedTag) const noexcept {
        return !rest_.empty() && rest_.front() == expectedTag;
    }

    Element read();
    Element read(std::uint8_t expectedTag);
    /// Nothing, and nothing consumed, when another element or the end comes next.
    std::optional<Element> readIf(std::uint8_t expectedTag);
    /// A Reader of the content of the next element.
    Reader enter(std::uint8_t expectedTag) { return Reader(read(expectedTag).content); }
    /// Refuses data that is left over.
    void finish() const;

private:
    ByteView rest_;
};

/// The one element that `der` is, nothing behind it.
Element readOnly(ByteView der);
Element readOnly(ByteView der, std::uint8_t expectedTag);

/// Whether `data` is exactly one BER value. For what is carried as it is: a token in an attribute may be BER.
bool isOneBerValue(ByteView data);

/// BOOLEAN, 00 or FF.
bool toBool(const Element& element);
/// Content of an INTEGER or ENUMERATED in two's complement, most significant octet first, checked to be minimal.
ByteView toInteger(const Element& element);
/// INTEGER or ENUMERATED in the range of a 32-bit number; CRYPT_E_ASN1_LARGE outside.
std::int32_t toInt32(const Element& element);
std::uint32_t toUint32(const Element& element); ///< not negative
/// Dotted text of an OBJECT IDENTIFIER. Looks at the content only, so that an implicit tag does not matter.
std::string toOid(const Element& element);

struct BitString {
    ByteView bits;
    unsigned unused = 0; ///< of the last octet; those bits are zero
};
BitString toBitString(const Element& element);

/// An element of ready content.
Bytes element(std::uint8_t identifier, ByteView content);
/// Adds `more` to the end of `bytes`.
void append(Bytes& bytes, ByteView more);
Bytes concat(std::initializer_list<ByteView> parts);
Bytes sequence(std::initializer_list<ByteView> elements);
Bytes sequence(const std::vector<Bytes>& elements);
/// SET OF: sorted as X.690, 11.6 wants it. `identifier` allows for an implicit tag.
Bytes setOf(std::vector<Bytes> elements, std::uint8_t identifier = tag::Set);
Bytes boolean(bool value);
Bytes null();
Bytes integer(std::int64_t value);
/// INTEGER of two's complement octets, most significant first; superfluous ones are dropped. Not of none:
/// CRYPT_E_BAD_ENCODE.
Bytes integer(ByteView twosComplement);
Bytes octetString(ByteView value);
/// CRYPT_E_BAD_ENCODE for more than 7 unused bits; the unused bits are written as zeros.
Bytes bitString(ByteView bits, unsigned unused = 0);
/// CRYPT_E_OID_FORMAT when `dotted` is no object identifier.
Bytes objectIdentifier(std::string_view dotted);
Bytes utf8String(std::string_view utf8);
/// [number] EXPLICIT around a whole element.
Bytes explicitTag(unsigned number, ByteView whole);
/// [number] IMPLICIT: `whole` under another identifier, which keeps the constructed bit.
Bytes implicitTag(unsigned number, Bytes whole);

} // namespace klunortredi::csp::der
