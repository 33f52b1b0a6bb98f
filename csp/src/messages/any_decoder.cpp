#include "messages/any_decoder.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "messages/cms_types.hpp"
#include "messages/data_decoder.hpp"
#include "messages/digested_decoder.hpp"
#include "messages/enveloped_decoder.hpp"
#include "messages/signed_decoder.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

constexpr DWORD typeFromData = 0;

/// The type of message of each content type that is read.
struct Row {
    std::string_view oid;
    DWORD type;
};
constexpr std::array rows{
    Row{oid::data, capi::CMSG_DATA},
    Row{oid::digestedData, capi::CMSG_HASHED},
    Row{oid::signedData, capi::CMSG_SIGNED},
    Row{oid::envelopedData, capi::CMSG_ENVELOPED},
    Row{oid::authEnvelopedData, capi::CMSG_ENVELOPED},
};

DWORD typeOf(ByteView objectIdentifier) {
    try {
        const auto* const row = std::ranges::find(rows, decodeOid(objectIdentifier), &Row::oid);
        return row == rows.end() ? capi::CMSG_SIGNED : row->type;
    } catch (const ApiError&) {
        return capi::CMSG_SIGNED;
    }
}

/// The type that the first octets of a message name; nothing when more of them are needed.
std::optional<DWORD> typeFrom(ByteView head) {
    constexpr std::uint8_t longLength = 0x80;
    constexpr std::size_t mostLengthOctets = 8;
    if (head.size() < 2) {
        return head.empty() || head[0] == der::tag::Sequence ? std::nullopt : std::optional(capi::CMSG_SIGNED);
    }
    const std::size_t lengthOctets = head[1] >= longLength ? head[1] - longLength : 0U;
    if (head[0] != der::tag::Sequence || lengthOctets > mostLengthOctets) {
        return capi::CMSG_SIGNED;
    }
    const std::size_t oidBegin = 2 + lengthOctets;
    if (head.size() < oidBegin + 2) {
        return std::nullopt;
    }
    if (head[oidBegin] != der::tag::ObjectIdentifier || head[oidBegin + 1] >= longLength) {
        return capi::CMSG_SIGNED;
    }
    const std::size_t oidSize = 2U + head[oidBegin + 1];
    if (head.size() < oidBegin + oidSize) {
        return std::nullopt;
    }
    return typeOf(head.subspan(oidBegin, oidSize));
}

} // namespace

Message& AnyDecoder::known() const {
    if (!decoder_) {
        fail(capi::CRYPT_E_STREAM_MSG_NOT_READY);
    }
    return *decoder_;
}

void AnyDecoder::doUpdate(ByteView piece, bool final) {
    if (decoder_) {
        decoder_->update(piece, final);
        return;
    }
    /// SEQUENCE and OBJECT IDENTIFIER with the longest lengths that `typeFrom` looks at.
    constexpr std::size_t longestHead = 256;
    const std::size_t kept = std::min(piece.size(), longestHead - std::min(head_.size(), longestHead));
    der::append(head_, piece.first(kept));
    const std::optional<DWORD> type = typeFrom(head_);
    if (!type && !final) {
        return;
    }
    decoder_ = makeDecoder(type.value_or(capi::CMSG_SIGNED), detached_, stream_);
    decoder_->update(head_, final && kept == piece.size());
    if (kept < piece.size()) {
        decoder_->update(piece.subspan(kept), final);
    }
    head_ = Bytes{};
}

std::shared_ptr<Message> makeDecoder(DWORD type, bool detached, const std::optional<StreamOutput>& stream) {
    const bool neverDetached = type == capi::CMSG_DATA || type == capi::CMSG_ENVELOPED;
    if (detached && neverDetached) {
        fail(capi::NTE_BAD_FLAGS);
    }
    switch (type) {
    case typeFromData:
        return std::make_shared<AnyDecoder>(detached, stream);
    case capi::CMSG_DATA:
        return std::make_shared<DataDecoder>(stream);
    case capi::CMSG_SIGNED:
        return std::make_shared<SignedDecoder>(detached, stream);
    case capi::CMSG_ENVELOPED:
        return std::make_shared<EnvelopedDecoder>(stream);
    case capi::CMSG_HASHED:
        return std::make_shared<DigestedDecoder>(detached, stream);
    default:
        fail(capi::CRYPT_E_INVALID_MSG_TYPE);
    }
}

} // namespace klunortredi::csp
