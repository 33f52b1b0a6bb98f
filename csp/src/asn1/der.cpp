#include "asn1/der.hpp"

#include "core/error.hpp"
#include "core/ossl.hpp"

#include <openssl/err.h>
#include <openssl/objects.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>

namespace klunortredi::csp::der {

namespace {

using Asn1Type = std::unique_ptr<ASN1_TYPE, ossl::Deleter<ASN1_TYPE_free>>;

constexpr std::uint8_t MultiOctetTag = 0x1F;
constexpr std::uint8_t Constructed = 0x20;
constexpr std::uint8_t LongLength = 0x80;
constexpr std::uint8_t MoreOctets = 0x80; ///< in an octet of a number of base 128
constexpr std::uint8_t LowBits = 0x7F;
/// 4 GiB - 1: no CryptoAPI size is larger.
constexpr std::size_t MaxLengthOctets = 4;

struct Header {
    std::size_t size = 0;
    std::size_t contentSize = 0;
};

Header readHeader(ByteView der) {
    if (der.empty()) {
        fail(capi::CRYPT_E_ASN1_EOD);
    }
    if ((der[0] & MultiOctetTag) == MultiOctetTag || der[0] == 0) {
        fail(capi::CRYPT_E_ASN1_BADTAG);
    }
    if (der.size() < 2) {
        fail(capi::CRYPT_E_ASN1_EOD);
    }
    if (der[1] < LongLength) {
        return {2, der[1]};
    }
    const std::size_t octets = der[1] & 0x7FU;
    if (octets == 0) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    if (octets > MaxLengthOctets) {
        fail(capi::CRYPT_E_ASN1_LARGE);
    }
    if (der.size() < 2 + octets) {
        fail(capi::CRYPT_E_ASN1_EOD);
    }
    std::size_t length = 0;
    for (const std::uint8_t octet : der.subspan(2, octets)) {
        length = (length << 8U) | octet;
    }
    if (der[2] == 0 || length < LongLength) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    return {2 + octets, length};
}

Bytes header(std::uint8_t identifier, std::size_t length) {
    if (length > std::numeric_limits<std::uint32_t>::max()) {
        fail(capi::CRYPT_E_BAD_LEN);
    }
    Bytes out{identifier};
    if (length < LongLength) {
        out.push_back(static_cast<std::uint8_t>(length));
        return out;
    }
    std::size_t octets = 1;
    while ((length >> (8 * octets)) != 0) {
        ++octets;
    }
    out.push_back(static_cast<std::uint8_t>(LongLength | octets));
    for (std::size_t i = octets; i-- > 0;) {
        out.push_back(static_cast<std::uint8_t>(length >> (8 * i)));
    }
    return out;
}

/// The first octet of a two's complement number only repeats the sign of the second.
bool superfluousSign(ByteView number) {
    return number.size() > 1 &&
           ((number[0] == 0x00 && (number[1] & 0x80U) == 0) || (number[0] == 0xFF && (number[1] & 0x80U) != 0));
}

std::int64_t toInt64(const Element& element) {
    const ByteView octets = toInteger(element);
    if (octets.size() > sizeof(std::int64_t)) {
        fail(capi::CRYPT_E_ASN1_LARGE);
    }
    std::uint64_t value = (octets[0] & 0x80U) != 0 ? ~std::uint64_t{0} : 0;
    for (const std::uint8_t octet : octets) {
        value = (value << 8U) | octet;
    }
    return static_cast<std::int64_t>(value);
}

/// Whether the octets are the content of an OBJECT IDENTIFIER (X.690, 8.19): numbers of base 128, each in its shortest
/// form and with its last octet.
bool areArcs(ByteView content) {
    bool starts = true;
    for (const std::uint8_t octet : content) {
        if (starts && octet == MoreOctets) {
            return false;
        }
        starts = (octet & MoreOctets) == 0;
    }
    return !content.empty() && starts;
}

/// The dotted form of the content of an OBJECT IDENTIFIER; empty when one of its numbers has more than 64 bits.
std::string dotted(ByteView content) {
    constexpr std::uint64_t arcsOfRoot = 40; // X.660: below the roots 0 and 1 there are so many
    constexpr std::uint64_t largestToShift = std::numeric_limits<std::uint64_t>::max() >> 7U;
    std::string text;
    std::uint64_t arc = 0;
    for (const std::uint8_t octet : content) {
        if (arc > largestToShift) {
            return {};
        }
        arc = (arc << 7U) | (octet & LowBits);
        if ((octet & MoreOctets) != 0) {
            continue;
        }
        if (text.empty()) {
            const std::uint64_t root = std::min<std::uint64_t>(arc / arcsOfRoot, 2);
            text = std::to_string(root);
            arc -= root * arcsOfRoot;
        }
        text += '.';
        text += std::to_string(arc);
        arc = 0;
    }
    return text;
}

/// The dotted form whatever the size of the numbers.
std::string dottedLong(ByteView content) {
    const Bytes whole = csp::der::element(tag::ObjectIdentifier, content);
    const unsigned char* at = whole.data();
    ERR_set_mark();
    const ossl::Asn1Object object(d2i_ASN1_OBJECT(nullptr, &at, static_cast<long>(whole.size())));
    const int size = object ? OBJ_obj2txt(nullptr, 0, object.get(), 1) : 0;
    ERR_pop_to_mark();
    if (size <= 0) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    std::string text(static_cast<std::size_t>(size) + 1, '\0');
    OBJ_obj2txt(text.data(), size + 1, object.get(), 1);
    text.pop_back();
    return text;
}

} // namespace

Element Reader::read() {
    const Header header = readHeader(rest_);
    if (rest_.size() - header.size < header.contentSize) {
        fail(capi::CRYPT_E_ASN1_EOD);
    }
    const Element element{rest_[0], rest_.subspan(header.size, header.contentSize),
                          rest_.first(header.size + header.contentSize)};
    rest_ = rest_.subspan(element.whole.size());
    return element;
}

Element Reader::read(std::uint8_t expectedTag) {
    if (!rest_.empty() && rest_.front() != expectedTag) {
        fail(capi::CRYPT_E_ASN1_BADTAG);
    }
    return read();
}

std::optional<Element> Reader::readIf(std::uint8_t expectedTag) {
    return next(expectedTag) ? std::optional(read()) : std::nullopt;
}

void Reader::finish() const {
    if (!rest_.empty()) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
}

Element readOnly(ByteView der) {
    Reader reader(der);
    const Element element = reader.read();
    reader.finish();
    return element;
}

Element readOnly(ByteView der, std::uint8_t expectedTag) {
    Reader reader(der);
    const Element element = reader.read(expectedTag);
    reader.finish();
    return element;
}

bool isOneBerValue(ByteView data) {
    if (data.empty()) {
        return false;
    }
    const unsigned char* at = data.data();
    ERR_set_mark();
    const Asn1Type value(d2i_ASN1_TYPE(nullptr, &at, static_cast<long>(data.size())));
    ERR_pop_to_mark();
    return value != nullptr && at == data.data() + data.size();
}

bool toBool(const Element& element) {
    if (element.content.size() != 1 || (element.content[0] != 0x00 && element.content[0] != 0xFF)) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    return element.content[0] != 0;
}

ByteView toInteger(const Element& element) {
    if (element.content.empty() || superfluousSign(element.content)) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    return element.content;
}

std::int32_t toInt32(const Element& element) {
    const std::int64_t value = toInt64(element);
    if (value < std::numeric_limits<std::int32_t>::min() || value > std::numeric_limits<std::int32_t>::max()) {
        fail(capi::CRYPT_E_ASN1_LARGE);
    }
    return static_cast<std::int32_t>(value);
}

std::uint32_t toUint32(const Element& element) {
    const std::int64_t value = toInt64(element);
    if (value < 0 || value > std::numeric_limits<std::uint32_t>::max()) {
        fail(capi::CRYPT_E_ASN1_LARGE);
    }
    return static_cast<std::uint32_t>(value);
}

std::string toOid(const Element& element) {
    if (!areArcs(element.content)) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    std::string text = dotted(element.content);
    return text.empty() ? dottedLong(element.content) : text;
}

BitString toBitString(const Element& element) {
    if (element.content.empty()) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    const BitString value{element.content.subspan(1), element.content[0]};
    const bool excess = value.unused > 7 || (value.unused != 0 && value.bits.empty());
    if (excess || (value.unused != 0 && (value.bits.back() & ((1U << value.unused) - 1)) != 0)) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    return value;
}

void append(Bytes& bytes, ByteView more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

Bytes concat(std::initializer_list<ByteView> parts) {
    Bytes out;
    for (const ByteView part : parts) {
        append(out, part);
    }
    return out;
}

Bytes element(std::uint8_t identifier, ByteView content) {
    Bytes out = header(identifier, content.size());
    append(out, content);
    return out;
}

Bytes sequence(std::initializer_list<ByteView> elements) {
    return element(tag::Sequence, concat(elements));
}

Bytes sequence(const std::vector<Bytes>& elements) {
    Bytes content;
    for (const Bytes& one : elements) {
        append(content, one);
    }
    return element(tag::Sequence, content);
}

Bytes setOf(std::vector<Bytes> elements, std::uint8_t identifier) {
    // No encoding is a proper prefix of another, so plain lexicographic order is the padded order of X.690.
    std::sort(elements.begin(), elements.end());
    Bytes content;
    for (const Bytes& one : elements) {
        append(content, one);
    }
    return element(identifier, content);
}

Bytes boolean(bool value) {
    return {tag::Boolean, 1, static_cast<std::uint8_t>(value ? 0xFF : 0x00)};
}

Bytes null() {
    return {tag::Null, 0};
}

Bytes integer(std::int64_t value) {
    std::array<std::uint8_t, sizeof value> octets{};
    auto bits = static_cast<std::uint64_t>(value);
    for (auto octet = octets.rbegin(); octet != octets.rend(); ++octet) {
        *octet = static_cast<std::uint8_t>(bits);
        bits >>= 8U;
    }
    return integer(octets);
}

Bytes integer(ByteView twosComplement) {
    if (twosComplement.empty()) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    while (superfluousSign(twosComplement)) {
        twosComplement = twosComplement.subspan(1);
    }
    return element(tag::Integer, twosComplement);
}

Bytes octetString(ByteView value) {
    return element(tag::OctetString, value);
}

Bytes bitString(ByteView bits, unsigned unused) {
    if (unused > 7 || (unused != 0 && bits.empty())) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    Bytes content{static_cast<std::uint8_t>(unused)};
    append(content, bits);
    if (!bits.empty()) {
        content.back() = static_cast<std::uint8_t>(content.back() & (0xFFU << unused));
    }
    return element(tag::BitString, content);
}

Bytes objectIdentifier(std::string_view dotted) {
    // OpenSSL also takes blanks for dots, and nothing between two dots for a zero.
    const bool digits = dotted.find_first_not_of("0123456789.") == std::string_view::npos;
    if (!digits || dotted.empty() || dotted.back() == '.' || dotted.find("..") != std::string_view::npos) {
        fail(capi::CRYPT_E_OID_FORMAT);
    }
    ERR_set_mark();
    const ossl::Asn1Object object(OBJ_txt2obj(std::string(dotted).c_str(), 1));
    ERR_pop_to_mark();
    const int size = object ? i2d_ASN1_OBJECT(object.get(), nullptr) : 0;
    if (size <= 0) {
        fail(capi::CRYPT_E_OID_FORMAT);
    }
    Bytes out(static_cast<std::size_t>(size));
    unsigned char* at = out.data();
    i2d_ASN1_OBJECT(object.get(), &at);
    return out;
}

Bytes utf8String(std::string_view utf8) {
    return element(tag::Utf8String, {reinterpret_cast<const std::uint8_t*>(utf8.data()), utf8.size()});
}

Bytes explicitTag(unsigned number, ByteView whole) {
    return element(tag::contextConstructed(number), whole);
}

Bytes implicitTag(unsigned number, Bytes whole) {
    whole.at(0) = static_cast<std::uint8_t>(tag::context(number) | (whole.at(0) & Constructed));
    return whole;
}

} // namespace klunortredi::csp::der
