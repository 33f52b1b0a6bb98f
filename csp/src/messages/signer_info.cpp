#include "messages/signer_info.hpp"

#include "asn1/der.hpp"
#include "asn1/limit_error.hpp"
#include "core/error.hpp"
#include "messages/limits.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

constexpr std::uint8_t signedAttributesTag = der::tag::contextConstructed(0);
constexpr std::uint8_t unsignedAttributesTag = der::tag::contextConstructed(1);

Bytes copy(ByteView view) {
    return {view.begin(), view.end()};
}

void requireAtMost(ByteView octets, std::size_t limit, const char* of) {
    if (octets.size() > limit) {
        failAtLimit(limit, of);
    }
}

SignerId decodeSignerId(der::Reader& members) {
    SignerId id;
    if (const auto keyId = members.readIf(der::tag::context(0))) {
        id.keyId = copy(keyId->content);
        return id;
    }
    der::Reader issuerAndSerial = members.enter(der::tag::Sequence);
    id.issuer = copy(issuerAndSerial.read(der::tag::Sequence).whole);
    id.serial = copy(der::toInteger(issuerAndSerial.read(der::tag::Integer)));
    issuerAndSerial.finish();
    return id;
}

/// Counts before anything is decoded: the members of the set, and what stands in their sets of values.
void requireFewAttributes(ByteView content) {
    std::size_t attributes = 0;
    std::size_t values = 0;
    for (der::Reader rest(content); !rest.empty();) {
        der::Reader attribute = rest.enter(der::tag::Sequence);
        attribute.read(der::tag::ObjectIdentifier);
        for (der::Reader set = attribute.enter(der::tag::Set); !set.empty();) {
            set.read();
            if (++values > limits::attributeValues) {
                failAtLimit(limits::attributeValues, "attribute values in one set of attributes");
            }
        }
        if (++attributes > limits::attributes) {
            failAtLimit(limits::attributes, "attributes in one set");
        }
    }
}

} // namespace

std::vector<Attribute> decodeAttributes(ByteView content) {
    requireFewAttributes(content);
    std::vector<Attribute> attributes;
    for (der::Reader rest(content); !rest.empty();) {
        attributes.push_back(decodeAttribute(rest.read().whole));
    }
    return attributes;
}

namespace {

/// The octets as they are wherever they can be DER already.
Bytes signedSet(ByteView content) {
    Bytes set;
    for (der::Reader rest(content); !rest.empty();) {
        const ByteView whole = rest.read().whole;
        const Attribute attribute = decodeAttribute(whole);
        der::append(set, attribute.values.size() > 1 ? encodeAttribute(attribute) : copy(whole));
    }
    return der::element(der::tag::Set, set);
}

} // namespace

SignerInfo decodeSignerInfo(ByteView der) {
    der::Reader members(der::readOnly(der, der::tag::Sequence).content);
    SignerInfo signer;
    signer.version = der::toInt32(members.read(der::tag::Integer));
    signer.id = decodeSignerId(members);
    signer.digest = decodeAlgorithm(members.read(der::tag::Sequence).whole);
    if (const auto attributes = members.readIf(signedAttributesTag)) {
        requireAtMost(attributes->content, limits::signedAttributes, "octets of signed attributes");
        signer.hasSignedAttributes = true;
        signer.signedAttributes = decodeAttributes(attributes->content);
        signer.signedAttributesSet = signedSet(attributes->content);
    }
    signer.signature = decodeAlgorithm(members.read(der::tag::Sequence).whole);
    const ByteView value = members.read(der::tag::OctetString).content;
    requireAtMost(value, limits::signatureValue, "octets of a signature value");
    signer.value = copy(value);
    if (const auto attributes = members.readIf(unsignedAttributesTag)) {
        signer.unsignedAttributes = decodeAttributes(attributes->content);
    }
    members.finish();
    return signer;
}

Bytes withUnsignedAttribute(ByteView der, ByteView attribute) {
    if (decodeAttribute(attribute).values.empty()) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    Bytes content;
    std::vector<Bytes> attributes;
    for (der::Reader members(der::readOnly(der, der::tag::Sequence).content); !members.empty();) {
        const der::Element member = members.read();
        if (member.tag != unsignedAttributesTag) {
            der::append(content, member.whole);
            continue;
        }
        for (der::Reader rest(member.content); !rest.empty();) {
            attributes.push_back(copy(rest.read().whole));
        }
    }
    // Before the first that sorts behind it: a set in DER order stays in DER order.
    const Bytes added = copy(attribute);
    attributes.insert(std::ranges::find_if(attributes, [&](const Bytes& other) { return other > added; }), added);
    Bytes set;
    for (const Bytes& one : attributes) {
        der::append(set, one);
    }
    der::append(content, der::element(unsignedAttributesTag, set));
    return der::element(der::tag::Sequence, content);
}

} // namespace klunortredi::csp
