#include "objects/codecs.hpp"
#include "objects/parts.hpp"
#include "objects/string_value.hpp"
#include "objects/time.hpp"
#include "x509/blob.hpp"

namespace klunortredi::csp {

Bytes encodeNameValue(const CERT_NAME_VALUE& info) {
    return encodeStringValue(info.dwValueType, info.Value);
}

void decodeNameValue(const der::Element& value, StructBuilder& out) {
    buildStringValue(out, offsetof(CERT_NAME_VALUE, dwValueType), offsetof(CERT_NAME_VALUE, Value), value);
}

Bytes encodeUnicodeNameValue(const CERT_NAME_VALUE& info) {
    return encodeWideStringValue(info.dwValueType, info.Value);
}

void decodeUnicodeNameValue(const der::Element& value, StructBuilder& out) {
    buildWideStringValue(out, offsetof(CERT_NAME_VALUE, dwValueType), offsetof(CERT_NAME_VALUE, Value), value);
}

Bytes encodeOctetString(const CRYPT_DATA_BLOB& info) {
    return der::octetString(blobView(info));
}

void decodeOctetString(const der::Element& value, StructBuilder& out) {
    out.blob(0, contentOf(value, der::tag::OctetString));
}

Bytes encodeInteger(const LONG& info) {
    return der::integer(std::int64_t{info});
}

void decodeInteger(const der::Element& value, StructBuilder& out) {
    out.at<LONG>(0) = der::toInt32(expectTag(value, der::tag::Integer));
}

Bytes encodeMultiByteInteger(const CRYPT_INTEGER_BLOB& info) {
    return integerArgument(info);
}

void decodeMultiByteInteger(const der::Element& value, StructBuilder& out) {
    putInteger(out, 0, expectTag(value, der::tag::Integer));
}

Bytes encodeTime(const FILETIME& info) {
    return encodeChoiceOfTime(info);
}

void decodeTime(const der::Element& value, StructBuilder& out) {
    out.at<FILETIME>(0) = decodeChoiceOfTime(value);
}

Bytes encodeSequenceOfAny(const CRYPT_SEQUENCE_OF_ANY& info) {
    std::vector<Bytes> values;
    for (const CRYPT_DER_BLOB& value : arrayArgument(info.cValue, info.rgValue)) {
        values.push_back(anyArgument(value));
    }
    return der::sequence(values);
}

void decodeSequenceOfAny(const der::Element& value, StructBuilder& out) {
    const auto values = elementsOf(contentOf(value, der::tag::Sequence));
    std::size_t at = putArray<CRYPT_DER_BLOB>(out, offsetof(CRYPT_SEQUENCE_OF_ANY, cValue),
                                              offsetof(CRYPT_SEQUENCE_OF_ANY, rgValue), values.size());
    for (const der::Element& one : values) {
        out.blob(at, one.whole);
        at += sizeof(CRYPT_DER_BLOB);
    }
}

} // namespace klunortredi::csp
