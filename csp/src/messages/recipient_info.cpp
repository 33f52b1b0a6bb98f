#include "messages/recipient_info.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "messages/limits.hpp"

namespace klunortredi::csp {

namespace {

constexpr std::uint8_t keyAgreement = der::tag::contextConstructed(1);

/// Content of an element, within what a key may have.
Bytes keyField(const der::Element& element) {
    if (element.content.size() > limits::encryptedKey) {
        fail(capi::CRYPT_E_ASN1_LARGE);
    }
    return {element.content.begin(), element.content.end()};
}

SignerId issuerAndSerial(der::Reader members) {
    SignerId id;
    const ByteView issuer = members.read(der::tag::Sequence).whole;
    const ByteView serial = der::toInteger(members.read(der::tag::Integer));
    members.finish();
    id.issuer.assign(issuer.begin(), issuer.end());
    id.serial.assign(serial.begin(), serial.end());
    return id;
}

/// RecipientIdentifier (RFC 5652, 6.2.1).
SignerId transportId(der::Reader& members) {
    if (const auto keyId = members.readIf(der::tag::context(0))) {
        return {{}, {}, keyField(*keyId)};
    }
    return issuerAndSerial(members.enter(der::tag::Sequence));
}

/// KeyAgreeRecipientIdentifier (RFC 5652, 6.2.2): a RecipientKeyIdentifier may carry a date and another attribute.
SignerId agreementId(der::Reader& members) {
    if (members.next(der::tag::contextConstructed(0))) {
        der::Reader keyIdentifier = members.enter(der::tag::contextConstructed(0));
        return {{}, {}, keyField(keyIdentifier.read(der::tag::OctetString))};
    }
    return issuerAndSerial(members.enter(der::tag::Sequence));
}

Recipient decodeTransport(der::Reader members) {
    Recipient recipient{RecipientKind::KeyTransport, 0, {}, {}};
    recipient.version = der::toInt32(members.read(der::tag::Integer));
    recipient.id = transportId(members);
    AlgorithmId algorithm = decodeAlgorithm(members.read(der::tag::Sequence).whole);
    recipient.wrapped = TransportedKey{std::move(algorithm.oid), std::move(algorithm.parameters),
                                       keyField(members.read(der::tag::OctetString))};
    members.finish();
    return recipient;
}

/// OriginatorIdentifierOrKey: the public key as a SubjectPublicKeyInfo; nothing when a certificate is named.
std::optional<Bytes> originatorKey(der::Reader choice) {
    constexpr std::uint8_t originatorKeyTag = der::tag::contextConstructed(1);
    const der::Element originator = choice.read();
    choice.finish();
    if (originator.tag != originatorKeyTag) {
        return std::nullopt;
    }
    return der::element(der::tag::Sequence, keyField(originator));
}

std::vector<Recipient> decodeAgreement(der::Reader members, std::size_t mostRecipients) {
    const std::int32_t version = der::toInt32(members.read(der::tag::Integer));
    const std::optional<Bytes> originator = originatorKey(members.enter(der::tag::contextConstructed(0)));
    Bytes ukm;
    if (const auto field = members.readIf(der::tag::contextConstructed(1))) {
        ukm = keyField(der::readOnly(field->content, der::tag::OctetString));
    }
    const AlgorithmId algorithm = decodeAlgorithm(members.read(der::tag::Sequence).whole);
    der::Reader keys = members.enter(der::tag::Sequence);
    members.finish();
    std::vector<Recipient> recipients;
    while (!keys.empty()) {
        if (recipients.size() == mostRecipients) {
            fail(capi::CRYPT_E_ASN1_LARGE);
        }
        der::Reader fields = keys.enter(der::tag::Sequence);
        Recipient recipient{RecipientKind::KeyAgreement, version, agreementId(fields), {}};
        Bytes encryptedKey = keyField(fields.read(der::tag::OctetString));
        fields.finish();
        if (originator) {
            recipient.wrapped =
                AgreedKey{algorithm.oid, algorithm.parameters, *originator, ukm, std::move(encryptedKey)};
        }
        recipients.push_back(std::move(recipient));
    }
    return recipients;
}

} // namespace

std::vector<Recipient> decodeRecipientInfo(ByteView der, std::size_t mostRecipients) {
    const der::Element info = der::readOnly(der);
    if (info.tag == keyAgreement) {
        return decodeAgreement(der::Reader(info.content), mostRecipients);
    }
    if (mostRecipients == 0) {
        fail(capi::CRYPT_E_ASN1_LARGE);
    }
    std::vector<Recipient> one;
    one.push_back(info.tag == der::tag::Sequence ? decodeTransport(der::Reader(info.content)) : Recipient{});
    return one;
}

} // namespace klunortredi::csp
