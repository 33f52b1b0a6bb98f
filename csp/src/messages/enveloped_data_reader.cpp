#include "messages/enveloped_data_reader.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "messages/limits.hpp"

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
    EnvelopedData,
    Version,
    OriginatorInfo,
    RecipientInfos,
    RecipientInfoElement,
    EncryptedContentInfo,
    EncryptedContentType,
    Algorithm,
    EncryptedContent,
    Segment,
    Attributes,
    Mac,
    UnauthenticatedAttributes,
};

// Both kinds in one table. Which of the members after the content belong to which kind is looked at in `kept`.
// clang-format off
constexpr auto grammar = std::to_array<Row>({
    {Outside, ContentInfo, {der::tag::Sequence}, Presence::Required, Treatment::Descend, none},
    {ContentInfo, ContentType, {der::tag::ObjectIdentifier}, Presence::Required, Treatment::Keep, limits::smallElement},
    {ContentInfo, ExplicitContent, {0xA0}, Presence::Required, Treatment::Descend, none},
    {ExplicitContent, EnvelopedData, {der::tag::Sequence}, Presence::Required, Treatment::Descend, none},
    {EnvelopedData, Version, {der::tag::Integer}, Presence::Required, Treatment::Keep, limits::smallElement},
    {EnvelopedData, OriginatorInfo, {0xA0}, Presence::Optional, Treatment::Skip, limits::retainedOctets},
    {EnvelopedData, RecipientInfos, {der::tag::Set}, Presence::Required, Treatment::Descend, none},
    {EnvelopedData, EncryptedContentInfo, {der::tag::Sequence}, Presence::Required, Treatment::Descend, none},
    {EnvelopedData, Attributes, {0xA1}, Presence::Optional, Treatment::Keep, limits::signedAttributes},
    {EnvelopedData, Mac, octetString, Presence::Optional, Treatment::Keep, limits::smallElement},
    {EnvelopedData, UnauthenticatedAttributes, {0xA2}, Presence::Optional, Treatment::Skip, limits::signedAttributes},
    {RecipientInfos, RecipientInfoElement, {der::tag::Sequence, 0xA1, 0xA2, 0xA3, 0xA4}, Presence::Repeated, Treatment::Keep, limits::recipientInfo},
    {EncryptedContentInfo, EncryptedContentType, {der::tag::ObjectIdentifier}, Presence::Required, Treatment::Keep, limits::smallElement},
    {EncryptedContentInfo, Algorithm, {der::tag::Sequence}, Presence::Required, Treatment::Keep, limits::smallElement},
    {EncryptedContentInfo, EncryptedContent, {0x80, 0xA0}, Presence::Required, Treatment::Descend, none},
    {EncryptedContent, Segment, octetString, Presence::Repeated, Treatment::Descend, none},
    {Segment, Segment, octetString, Presence::Repeated, Treatment::Descend, none},
});
// clang-format on

} // namespace

EnvelopedDataReader::EnvelopedDataReader(CiphertextListener& listener) : listener_(listener), reader_(grammar, *this) {}

void EnvelopedDataReader::kept(structure::Node node, Bytes&& element) {
    switch (node) {
    case ContentType: {
        const std::string type = decodeOid(element);
        parts_.authEnveloped = type == oid::authEnvelopedData;
        if (!parts_.authEnveloped && type != oid::envelopedData) {
            fail(capi::CRYPT_E_INVALID_MSG_TYPE);
        }
        return;
    }
    case Version: // 0 to 4; producers disagree about it, and nothing depends on it
        der::toInt32(der::readOnly(element, der::tag::Integer));
        return;
    case RecipientInfoElement:
        addRecipients(element);
        return;
    case EncryptedContentType:
        parts_.contentType = decodeOid(element);
        return;
    case Algorithm:
        parts_.algorithm = decodeAlgorithm(element);
        headRead_ = true;
        return;
    case Attributes:
        attributes(std::move(element));
        return;
    case Mac: {
        const ByteView mac = der::readOnly(element, der::tag::OctetString).content;
        parts_.mac.assign(mac.begin(), mac.end());
        hasMac_ = true;
        return;
    }
    default:
        fail(capi::CRYPT_E_MSG_ERROR); // no other node is kept
    }
}

void EnvelopedDataReader::addRecipients(ByteView element) {
    auto more = decodeRecipientInfo(element, limits::recipients - parts_.recipients.size());
    std::ranges::move(more, std::back_inserter(parts_.recipients));
}

/// [1] is what is authenticated beside the content in one kind, and what nobody protects in the other.
void EnvelopedDataReader::attributes(Bytes&& element) {
    const ByteView members = der::readOnly(element).content;
    if (parts_.authEnveloped) {
        decodeAttributes(members); // refuses what is not a set of attributes
        element.front() = der::tag::Set;
        parts_.authenticatedAttributes = std::move(element);
    } else {
        parts_.unprotectedAttributes = decodeAttributes(members);
    }
}

void EnvelopedDataReader::content(ByteView piece) {
    listener_.ciphertext(piece);
}

void EnvelopedDataReader::ended(structure::Node node, std::uint64_t /*position*/) {
    if (node == EnvelopedData && parts_.authEnveloped != hasMac_) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
}

} // namespace klunortredi::csp
