#include "objects/parts.hpp"

#include "x509/blob.hpp"

#include <algorithm>
#include <bit>

namespace klunortredi::csp {

Bytes oidArgument(const char* dotted) {
    if (dotted == nullptr) {
        fail(capi::CRYPT_E_OID_FORMAT);
    }
    return der::objectIdentifier(dotted);
}

Bytes anyArgument(const CRYPTOAPI_BLOB& encoded) {
    const ByteView value = blobView(encoded);
    if (!der::isOneBerValue(value)) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    return {value.begin(), value.end()};
}

Bytes nameArgument(const CERT_NAME_BLOB& encoded) {
    if (encoded.cbData == 0) {
        return der::sequence(std::vector<Bytes>{});
    }
    Bytes name = anyArgument(encoded);
    if (name.front() != der::tag::Sequence) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    return name;
}

Bytes integerArgument(const CRYPT_INTEGER_BLOB& number) {
    const ByteView octets = blobView(number);
    return der::integer(Bytes(octets.rbegin(), octets.rend()));
}

Bytes bitStringArgument(const CRYPT_BIT_BLOB& bits) {
    return der::bitString(blobView(bits), bits.cUnusedBits);
}

Bytes namedBitsArgument(const CRYPT_BIT_BLOB& bits) {
    const ByteView octets = blobView(bits);
    if (bits.cUnusedBits > 7) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    Bytes kept(octets.begin(), octets.end());
    if (!kept.empty()) {
        kept.back() = static_cast<std::uint8_t>(kept.back() & (0xFFU << bits.cUnusedBits));
    }
    while (!kept.empty() && kept.back() == 0) {
        kept.pop_back();
    }
    return der::bitString(kept, kept.empty() ? 0 : static_cast<unsigned>(std::countr_zero(kept.back())));
}

Bytes optionalNamedBitsArgument(const CRYPT_BIT_BLOB& bits) {
    Bytes encoded = namedBitsArgument(bits);
    return encoded == der::bitString({}) ? Bytes{} : encoded;
}

Bytes extensionsArgument(DWORD count, const CERT_EXTENSION* extensions) {
    std::vector<Bytes> encoded;
    for (const CERT_EXTENSION& extension : arrayArgument(count, extensions)) {
        encoded.push_back(
            der::sequence({oidArgument(extension.pszObjId), extension.fCritical != 0 ? der::boolean(true) : Bytes{},
                           der::octetString(blobView(extension.Value))}));
    }
    return der::sequence(encoded);
}

Bytes attributeArgument(const CRYPT_ATTRIBUTE& attribute) {
    std::vector<Bytes> values;
    for (const CRYPT_ATTR_BLOB& value : arrayArgument(attribute.cValue, attribute.rgValue)) {
        values.push_back(anyArgument(value));
    }
    return der::sequence({oidArgument(attribute.pszObjId), der::setOf(std::move(values))});
}

const der::Element& expectTag(const der::Element& value, std::uint8_t tag) {
    if (value.tag != tag) {
        fail(capi::CRYPT_E_ASN1_BADTAG);
    }
    return value;
}

ByteView contentOf(const der::Element& value, std::uint8_t tag) {
    return expectTag(value, tag).content;
}

std::vector<der::Element> elementsOf(ByteView content) {
    der::Reader reader(content);
    std::vector<der::Element> elements;
    while (!reader.empty()) {
        elements.push_back(reader.read());
    }
    return elements;
}

void putOid(StructBuilder& builder, std::size_t pointerOffset, const der::Element& oid) {
    builder.text(pointerOffset, der::toOid(oid));
}

void putInteger(StructBuilder& builder, std::size_t blobOffset, const der::Element& number) {
    const ByteView octets = der::toInteger(number);
    builder.blob(blobOffset, Bytes(octets.rbegin(), octets.rend()));
}

void putBits(StructBuilder& builder, std::size_t bitBlobOffset, const der::Element& bits) {
    const der::BitString value = der::toBitString(bits);
    builder.blob(bitBlobOffset, value.bits);
    builder.at<CRYPT_BIT_BLOB>(bitBlobOffset).cUnusedBits = value.unused;
}

void putAlgorithm(StructBuilder& builder, std::size_t offset, const der::Element& algorithm) {
    der::Reader reader(contentOf(algorithm, der::tag::Sequence));
    putOid(builder, offset + offsetof(CRYPT_ALGORITHM_IDENTIFIER, pszObjId), reader.read(der::tag::ObjectIdentifier));
    if (!reader.empty()) {
        builder.blob(offset + offsetof(CRYPT_ALGORITHM_IDENTIFIER, Parameters), reader.read().whole);
    }
    reader.finish();
}

void putPublicKeyInfo(StructBuilder& builder, std::size_t offset, const der::Element& info) {
    der::Reader reader(contentOf(info, der::tag::Sequence));
    putAlgorithm(builder, offset + offsetof(CERT_PUBLIC_KEY_INFO, Algorithm), reader.read(der::tag::Sequence));
    putBits(builder, offset + offsetof(CERT_PUBLIC_KEY_INFO, PublicKey), reader.read(der::tag::BitString));
    reader.finish();
}

void putExtensions(StructBuilder& builder, std::size_t countOffset, std::size_t pointerOffset, ByteView extensions) {
    const auto elements = elementsOf(extensions);
    std::size_t at = putArray<CERT_EXTENSION>(builder, countOffset, pointerOffset, elements.size());
    for (const der::Element& element : elements) {
        der::Reader reader(contentOf(element, der::tag::Sequence));
        putOid(builder, at + offsetof(CERT_EXTENSION, pszObjId), reader.read(der::tag::ObjectIdentifier));
        if (const auto critical = reader.readIf(der::tag::Boolean)) {
            builder.at<CERT_EXTENSION>(at).fCritical = der::toBool(*critical) ? 1 : 0;
        }
        builder.blob(at + offsetof(CERT_EXTENSION, Value), reader.read(der::tag::OctetString).content);
        reader.finish();
        at += sizeof(CERT_EXTENSION);
    }
}

void putAttribute(StructBuilder& builder, std::size_t offset, const der::Element& attribute) {
    der::Reader reader(contentOf(attribute, der::tag::Sequence));
    putOid(builder, offset + offsetof(CRYPT_ATTRIBUTE, pszObjId), reader.read(der::tag::ObjectIdentifier));
    const auto values = elementsOf(reader.read(der::tag::Set).content);
    reader.finish();
    std::size_t at = putArray<CRYPT_ATTR_BLOB>(builder, offset + offsetof(CRYPT_ATTRIBUTE, cValue),
                                               offset + offsetof(CRYPT_ATTRIBUTE, rgValue), values.size());
    for (const der::Element& value : values) {
        builder.blob(at, value.whole);
        at += sizeof(CRYPT_ATTR_BLOB);
    }
}

} // namespace klunortredi::csp
