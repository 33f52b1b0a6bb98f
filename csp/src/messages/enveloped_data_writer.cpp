#include "messages/enveloped_data_writer.hpp"

#include "asn1/der.hpp"
#include "messages/cms_types.hpp"
#include "messages/nesting.hpp"

#include <utility>

namespace klunortredi::csp {

namespace {

constexpr std::uint8_t explicitContent = der::tag::contextConstructed(0);

/// RFC 5652, 6.1; RFC 5083, 2.1. There is never an OriginatorInfo.
std::int64_t version(const ContentAlgorithm& content, const RecipientInfos& recipients, bool attributes) {
    constexpr std::int64_t plain = 0;
    constexpr std::int64_t extended = 2;
    if (content.authentication == Authentication::AuthEnveloped) {
        return plain;
    }
    return recipients.allVersion0 && !attributes ? plain : extended;
}

} // namespace

EnvelopedDataWriter::EnvelopedDataWriter(std::string_view contentType, const ContentAlgorithm& content,
                                         ByteView parameters, const RecipientInfos& recipients,
                                         std::vector<Bytes> unprotectedAttributes)
    : content_(content), unprotectedAttributes_(std::move(unprotectedAttributes)),
      type_(der::objectIdentifier(content.authentication == Authentication::AuthEnveloped ? oid::authEnvelopedData
                                                                                          : oid::envelopedData)),
      contentDescription_(
          der::concat({der::objectIdentifier(contentType),
                       encodeAlgorithmId({std::string(content.oid), Bytes(parameters.begin(), parameters.end())})})) {
    const bool attributes = !unprotectedAttributes_.empty() || content.authentication == Authentication::MacAttribute;
    versionAndRecipients_ =
        der::concat({der::integer(version(content, recipients, attributes)), der::setOf(recipients.elements)});
}

Bytes EnvelopedDataWriter::definiteTail(ByteView tag) const {
    auto attributes = unprotectedAttributes_;
    if (content_.authentication == Authentication::MacAttribute) {
        attributes.push_back(encodeAttribute({std::string(macAttributeOid), {der::octetString(tag)}}));
    }
    const bool mac = content_.authentication == Authentication::AuthEnveloped;
    const unsigned attributesTag = mac ? 2 : 1;
    const Bytes set =
        attributes.empty() ? Bytes{} : der::setOf(attributes, der::tag::contextConstructed(attributesTag));
    return mac ? der::concat({der::octetString(tag), set}) : set;
}

Bytes EnvelopedDataWriter::definiteHead(std::uint64_t ciphertextSize) const {
    Nesting nesting(ciphertextSize);
    nesting.wrap(der::tag::context(0));
    nesting.wrap(der::tag::Sequence, contentDescription_);
    nesting.follow(definiteTail(Bytes(content_.tagSize)).size());
    nesting.wrap(der::tag::Sequence, versionAndRecipients_);
    nesting.wrap(explicitContent);
    nesting.wrap(der::tag::Sequence, type_);
    return nesting.octets();
}

Bytes EnvelopedDataWriter::streamHead() const {
    constexpr std::uint8_t indefinite = 0x80;
    const Bytes sequence{der::tag::Sequence, indefinite};
    const Bytes content{explicitContent, indefinite}; // also [0] IMPLICIT of a constructed OCTET STRING
    return der::concat(
        {sequence, type_, content, sequence, versionAndRecipients_, sequence, contentDescription_, content});
}

Bytes EnvelopedDataWriter::streamTail(ByteView tag) const {
    // The ciphertext and the EncryptedContentInfo end before the tail; EnvelopedData, its explicit tag and the
    // ContentInfo after it.
    const Bytes twoEnds(4);
    const Bytes threeEnds(6);
    return der::concat({twoEnds, definiteTail(tag), threeEnds});
}

} // namespace klunortredi::csp
