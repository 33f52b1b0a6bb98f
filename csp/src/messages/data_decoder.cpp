#include "messages/data_decoder.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "core/output.hpp"
#include "messages/cms_types.hpp"
#include "messages/controls.hpp"
#include "messages/limits.hpp"

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
    Content,
    Segment
};

// clang-format off
constexpr auto grammar = std::to_array<Row>({
    {Outside, ContentInfo, {der::tag::Sequence}, Presence::Required, Treatment::Descend, none},
    {ContentInfo, ContentType, {der::tag::ObjectIdentifier}, Presence::Required, Treatment::Keep, limits::smallElement},
    {ContentInfo, ExplicitContent, {0xA0}, Presence::Required, Treatment::Descend, none},
    {ExplicitContent, Content, octetString, Presence::Required, Treatment::Descend, none},
    {Content, Segment, octetString, Presence::Repeated, Treatment::Descend, none},
    {Segment, Segment, octetString, Presence::Repeated, Treatment::Descend, none},
});
// clang-format on

} // namespace

DataDecoder::DataDecoder(std::optional<StreamOutput> stream) : output_(stream), reader_(grammar, *this) {}

void DataDecoder::kept(structure::Node /*node*/, Bytes&& element) { // the content type: nothing else is kept
    if (decodeOid(element) != oid::data) {
        fail(capi::CRYPT_E_INVALID_MSG_TYPE);
    }
}

void DataDecoder::doUpdate(ByteView piece, bool final) {
    if (read_) {
        fail(capi::CRYPT_E_MSG_ERROR);
    }
    reader_.feed(piece);
    if (final) {
        reader_.finish();
        output_.add({}, true);
        read_ = true;
    }
}

void DataDecoder::doParam(DWORD type, DWORD /*index*/, void* data, DWORD* size) {
    if (!read_) {
        fail(capi::CRYPT_E_STREAM_MSG_NOT_READY);
    }
    switch (type) {
    case capi::CMSG_TYPE_PARAM:
        give(capi::CMSG_DATA, data, size);
        return;
    case capi::CMSG_CONTENT_PARAM:
        give(output_.onePiece(), data, size);
        return;
    default:
        fail(capi::CRYPT_E_INVALID_MSG_TYPE);
    }
}

void DataDecoder::doControl(DWORD type, const void* /*parameters*/) {
    refuseControl(type);
}

} // namespace klunortredi::csp
