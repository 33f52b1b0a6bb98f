#include "messages/param_pieces.hpp"

#include "asn1/der.hpp"

namespace klunortredi::csp::pieces {

namespace {

DWORD count(std::size_t size) {
    return static_cast<DWORD>(size);
}

} // namespace

void algorithm(StructBuilder& builder, std::size_t offset, const AlgorithmId& value) {
    builder.text(offset + offsetof(CRYPT_ALGORITHM_IDENTIFIER, pszObjId), value.oid);
    builder.blob(offset + offsetof(CRYPT_ALGORITHM_IDENTIFIER, Parameters), value.parameters);
}

void attributes(StructBuilder& builder, std::size_t offset, const std::vector<Attribute>& values) {
    if (values.empty()) {
        return;
    }
    builder.at<CRYPT_ATTRIBUTES>(offset).cAttr = count(values.size());
    const std::size_t array = builder.reserve(values.size() * sizeof(CRYPT_ATTRIBUTE));
    builder.point(offset + offsetof(CRYPT_ATTRIBUTES, rgAttr), array);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const Attribute& value = values[i];
        const std::size_t at = array + i * sizeof(CRYPT_ATTRIBUTE);
        builder.text(at + offsetof(CRYPT_ATTRIBUTE, pszObjId), value.oid);
        builder.at<CRYPT_ATTRIBUTE>(at).cValue = count(value.values.size());
        if (value.values.empty()) {
            continue;
        }
        const std::size_t blobs = builder.reserve(value.values.size() * sizeof(CRYPT_ATTR_BLOB));
        builder.point(at + offsetof(CRYPT_ATTRIBUTE, rgValue), blobs);
        for (std::size_t j = 0; j < value.values.size(); ++j) {
            builder.blob(blobs + j * sizeof(CRYPT_ATTR_BLOB), value.values[j]);
        }
    }
}

SignerId asIssuerAndSerial(const SignerId& id) {
    if (!id.issuer.empty()) {
        return id;
    }
    const Bytes rdn = der::sequence({der::objectIdentifier(oid::keyIdRdn), der::octetString(id.keyId)});
    return {der::sequence({der::setOf({rdn})}), {0}, {}};
}

} // namespace klunortredi::csp::pieces
