#include "messages/cms_types.hpp"

#include "asn1/der.hpp"

namespace klunortredi::csp {

namespace {

Bytes copy(ByteView view) {
    return {view.begin(), view.end()};
}

} // namespace

AlgorithmId decodeAlgorithm(ByteView der) {
    der::Reader members(der::readOnly(der, der::tag::Sequence).content);
    AlgorithmId algorithm{der::toOid(members.read(der::tag::ObjectIdentifier)), {}};
    if (!members.empty()) {
        algorithm.parameters = copy(members.read().whole);
    }
    members.finish();
    return algorithm;
}

Attribute decodeAttribute(ByteView der) {
    der::Reader members(der::readOnly(der, der::tag::Sequence).content);
    Attribute attribute{der::toOid(members.read(der::tag::ObjectIdentifier)), {}};
    for (der::Reader values = members.enter(der::tag::Set); !values.empty();) {
        attribute.values.push_back(copy(values.read().whole));
    }
    members.finish();
    return attribute;
}

std::string decodeOid(ByteView der) {
    return der::toOid(der::readOnly(der, der::tag::ObjectIdentifier));
}

Bytes encodeAlgorithmId(const AlgorithmId& algorithm) {
    return der::sequence({der::objectIdentifier(algorithm.oid), algorithm.parameters});
}

Bytes encodeAttribute(const Attribute& attribute) {
    return der::sequence({der::objectIdentifier(attribute.oid), der::setOf(attribute.values)});
}

} // namespace klunortredi::csp
