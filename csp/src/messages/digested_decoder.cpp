#include "messages/digested_decoder.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "core/output.hpp"
#include "messages/controls.hpp"
#include "messages/limits.hpp"
#include "messages/param_pieces.hpp"

#include <array>

namespace klunortredi::csp {

namespace {

using structure::none;
using structure::octetString;
using structure::Presence;
using structure::Row;
using structure::Treatment;

/// A place in the structure.
enum Node : structure::Node {
    Outside = structure::outside,
    ContentInfo,
    ContentType,
    ExplicitContent,
    DigestedData,
    Version,
    Algorithm,
    EncapContentInfo,
    EContentType,
    ExplicitEContent,
    EContent,
    Segment,
    DigestValue,
};

// clang-format off
constexpr auto grammar = std::to_array<Row>({
    {Outside, ContentInfo, {der::tag::Sequence}, Presence::Required, Treatment::Descend, none},
    {ContentInfo, ContentType, {der::tag::ObjectIdentifier}, Presence::Required, Treatment::Keep, limits::smallElement},
    {ContentInfo, ExplicitContent, {0xA0}, Presence::Required, Treatment::Descend, none},
    {ExplicitContent, DigestedData, {der::tag::Sequence}, Presence::Required, Treatment::Descend, none},
    {DigestedData, Version, {der::tag::Integer}, Presence::Required, Treatment::Keep, limits::smallElement},
    {DigestedData, Algorithm, {der::tag::Sequence}, Presence::Required, Treatment::Keep, limits::smallElement},
    {DigestedData, EncapContentInfo, {der::tag::Sequence}, Presence::Required, Treatment::Descend, none},
    {DigestedData, DigestValue, octetString, Presence::Required, Treatment::Keep, limits::smallElement},
    {EncapContentInfo, EContentType, {der::tag::ObjectIdentifier}, Presence::Required, Treatment::Keep, limits::smallElement},
    {EncapContentInfo, ExplicitEContent, {0xA0}, Presence::Optional, Treatment::Descend, none},
    {ExplicitEContent, EContent, octetString, Presence::Required, Treatment::Descend, none},
    {EContent, Segment, octetString, Presence::Repeated, Treatment::Descend, none},
    {Segment, Segment, octetString, Presence::Repeated, Treatment::Descend, none},
});
// clang-format on

} // namespace

DigestedDecoder::DigestedDecoder(bool detached, std::optional<StreamOutput> stream)
    : reader_(grammar, *this), content_(detached, stream) {}

void DigestedDecoder::kept(structure::Node node, Bytes&& element) {
    switch (node) {
    case ContentType:
        if (decodeOid(element) != oid::digestedData) {
            fail(capi::CRYPT_E_INVALID_MSG_TYPE);
        }
        return;
    case Version: // 0 or 2, by the content's type, on which nothing depends
        der::toInt32(der::readOnly(element, der::tag::Integer));
        return;
    case Algorithm:
        algorithm_ = decodeAlgorithm(element);
        content_.hashWith(algorithm_.oid);
        return;
    case EContentType:
        contentType_ = decodeOid(element);
        return;
    case DigestValue: {
        const ByteView value = der::readOnly(element, der::tag::OctetString).content;
        digest_.assign(value.begin(), value.end());
        return;
    }
    default:
        fail(capi::CRYPT_E_MSG_ERROR); // no other node is kept
    }
}

void DigestedDecoder::began(structure::Node node, std::uint64_t /*position*/) {
    hasContent_ = hasContent_ || node == EContent;
}

void DigestedDecoder::doUpdate(ByteView piece, bool final) {
    if (read_) {
        content_.beside(piece, final);
        return;
    }
    reader_.feed(piece);
    if (final) {
        reader_.finish();
        content_.messageEnds(hasContent_);
        read_ = true;
    }
}

void DigestedDecoder::requireRead() const {
    if (!read_) {
        fail(capi::CRYPT_E_STREAM_MSG_NOT_READY);
    }
}

void DigestedDecoder::doParam(DWORD type, DWORD /*index*/, void* data, DWORD* size) {
    requireRead();
    switch (type) {
    case capi::CMSG_TYPE_PARAM:
        give(capi::CMSG_HASHED, data, size);
        return;
    case capi::CMSG_CONTENT_PARAM:
        give(content_.onePiece(), data, size);
        return;
    case capi::CMSG_INNER_CONTENT_TYPE_PARAM:
        giveText(contentType_, data, size);
        return;
    case capi::CMSG_HASH_ALGORITHM_PARAM:
        giveAlgorithm(data, size);
        return;
    case capi::CMSG_HASH_DATA_PARAM:
        give(digest_, data, size);
        return;
    case capi::CMSG_COMPUTED_HASH_PARAM:
        give(content_.hashes().value(algorithm_.oid), data, size);
        return;
    default:
        fail(capi::CRYPT_E_INVALID_MSG_TYPE);
    }
}

void DigestedDecoder::giveAlgorithm(void* data, DWORD* size) const {
    StructBuilder builder(sizeof(CRYPT_ALGORITHM_IDENTIFIER));
    pieces::algorithm(builder, 0, algorithm_);
    builder.deliver(data, size);
}

void DigestedDecoder::doControl(DWORD type, const void* /*parameters*/) {
    requireRead();
    if (type != capi::CMSG_CTRL_VERIFY_HASH) {
        refuseControl(type);
    }
    verifyHash();
}

void DigestedDecoder::verifyHash() {
    content_.endUnfed();
    if (content_.hashes().value(algorithm_.oid) != digest_) {
        fail(capi::CRYPT_E_HASH_VALUE);
    }
}

} // namespace klunortredi::csp
