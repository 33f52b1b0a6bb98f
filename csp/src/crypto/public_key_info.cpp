#include "crypto/public_key_info.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"

namespace klunortredi::csp::spki {

namespace {

Bytes copy(ByteView view) {
    return {view.begin(), view.end()};
}

Parts read(ByteView info) {
    der::Reader sequence(der::readOnly(info, der::tag::Sequence).content);
    der::Reader algorithm = sequence.enter(der::tag::Sequence);
    Parts parts;
    parts.oid = der::toOid(algorithm.read(der::tag::ObjectIdentifier));
    if (!algorithm.empty()) {
        parts.parameters = copy(algorithm.read().whole);
    }
    algorithm.finish();
    const der::BitString key = der::toBitString(sequence.read(der::tag::BitString));
    sequence.finish();
    if (key.unused != 0) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    parts.key = copy(key.bits);
    return parts;
}

} // namespace

Parts split(ByteView info) {
    try {
        return read(info);
    } catch (const ApiError&) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
}

Bytes join(std::string_view oid, ByteView parameters, ByteView key) {
    const Bytes algorithm = der::sequence({der::objectIdentifier(oid), parameters});
    return der::sequence({algorithm, der::bitString(key)});
}

} // namespace klunortredi::csp::spki
