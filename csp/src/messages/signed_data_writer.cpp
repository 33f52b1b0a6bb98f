#include "messages/signed_data_writer.hpp"

#include "asn1/der.hpp"
#include "messages/cms_types.hpp"
#include "messages/nesting.hpp"

namespace klunortredi::csp {

namespace {

constexpr std::uint8_t explicitContent = der::tag::contextConstructed(0);

Bytes optionalSet(const std::vector<Bytes>& members, unsigned number) {
    return members.empty() ? Bytes{} : der::setOf(members, der::tag::contextConstructed(number));
}

} // namespace

SignedDataWriter::SignedDataWriter(std::string_view contentType, bool signersByKeyIdentifier,
                                   std::vector<Bytes> digestAlgorithms, std::vector<Bytes> certificates,
                                   std::vector<Bytes> crls)
    : contentType_(der::objectIdentifier(contentType)), certificates_(std::move(certificates)), crls_(std::move(crls)),
      revocation_(der::concat({optionalSet(certificates_, 0), optionalSet(crls_, 1)})) {
    // RFC 5652, 5.1; the certificates are X.509 and nothing else.
    constexpr std::int64_t plain = 1;
    constexpr std::int64_t typedOrByKeyIdentifier = 3;
    const bool isPlain = contentType == oid::data && !signersByKeyIdentifier;
    versionAndDigests_ =
        der::concat({der::integer(isPlain ? plain : typedOrByKeyIdentifier), der::setOf(std::move(digestAlgorithms))});
}

Bytes SignedDataWriter::definiteHead(std::optional<std::uint64_t> contentSize, std::uint64_t signersSize) const {
    Nesting nesting(contentSize.value_or(0));
    if (contentSize) {
        nesting.wrap(der::tag::OctetString);
        nesting.wrap(explicitContent);
    }
    nesting.wrap(der::tag::Sequence, contentType_);
    nesting.follow(revocation_.size() + definiteHeader(der::tag::Set, signersSize).size() + signersSize);
    nesting.wrap(der::tag::Sequence, versionAndDigests_);
    nesting.wrap(explicitContent);
    nesting.wrap(der::tag::Sequence, der::objectIdentifier(oid::signedData));
    return nesting.octets();
}

Bytes SignedDataWriter::definiteTail(const std::vector<Bytes>& signerInfos) const {
    return der::concat({revocation_, der::setOf(signerInfos)});
}

Bytes SignedDataWriter::streamHead() const {
    constexpr std::uint8_t indefinite = 0x80;
    constexpr std::uint8_t constructedOctetString = 0x24;
    const Bytes sequence{der::tag::Sequence, indefinite};
    const Bytes content{explicitContent, indefinite};
    return der::concat({sequence, der::objectIdentifier(oid::signedData), content, sequence, versionAndDigests_,
                        sequence, contentType_, content, Bytes{constructedOctetString, indefinite}});
}

Bytes SignedDataWriter::streamTail(const std::vector<Bytes>& signerInfos) const {
    // The OCTET STRING, its explicit tag and the EncapsulatedContentInfo end before; SignedData, its explicit tag and
    // the ContentInfo behind.
    const Bytes threeEnds(6);
    return der::concat({threeEnds, definiteTail(signerInfos), threeEnds});
}

} // namespace klunortredi::csp
