#pragma once

/// The pieces that several structures are made of. `...Argument` functions check and encode what a caller handed in;
/// `put...` functions lay out what was decoded, at offsets of the structure being built.

#include "asn1/der.hpp"
#include "capi/types.h"
#include "core/error.hpp"
#include "core/output.hpp"

#include <span>
#include <type_traits>
#include <vector>

namespace klunortredi::csp {

/// A caller's array. ERROR_INVALID_PARAMETER for a count without one.
template <class T>
std::span<T> arrayArgument(DWORD count, T* first) {
    if (count != 0 && first == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    return {first, count};
}

/// CRYPT_E_OID_FORMAT for a null pointer or what is no object identifier.
Bytes oidArgument(const char* dotted);
/// One encoded value of any type, as it is. CRYPT_E_BAD_ENCODE for anything else.
Bytes anyArgument(const CRYPTOAPI_BLOB& encoded);
/// An encoded Name; the empty blob is the empty name.
Bytes nameArgument(const CERT_NAME_BLOB& encoded);
/// INTEGER of a two's complement number, least significant octet first; CRYPT_E_BAD_ENCODE for none at all.
Bytes integerArgument(const CRYPT_INTEGER_BLOB& number);
Bytes bitStringArgument(const CRYPT_BIT_BLOB& bits);
/// BIT STRING of named bits: zeros at the end are not written (X.690, 11.2.2).
Bytes namedBitsArgument(const CRYPT_BIT_BLOB& bits);
/// The same where the value is optional: nothing when no bit is set.
Bytes optionalNamedBitsArgument(const CRYPT_BIT_BLOB& bits);
/// SEQUENCE OF Extension (RFC 5280, 4.1).
Bytes extensionsArgument(DWORD count, const CERT_EXTENSION* extensions);
/// Attribute (RFC 2986, 4.1), its values sorted.
Bytes attributeArgument(const CRYPT_ATTRIBUTE& attribute);

/// `value` itself; CRYPT_E_ASN1_BADTAG when it is another type.
const der::Element& expectTag(const der::Element& value, std::uint8_t tag);
/// The content of a value of that type.
ByteView contentOf(const der::Element& value, std::uint8_t tag);
/// The elements of a content, in order.
std::vector<der::Element> elementsOf(ByteView content);

/// Reserves `count` zeroed members behind the structure and records them in its count and pointer; returns the offset
/// of the first. An empty array has a null pointer.
template <class T>
std::size_t putArray(StructBuilder& builder, std::size_t countOffset, std::size_t pointerOffset, std::size_t count) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (count == 0) {
        return 0;
    }
    const std::size_t first = builder.reserve(count * sizeof(T), alignof(T));
    builder.at<DWORD>(countOffset) = static_cast<DWORD>(count);
    builder.point(pointerOffset, first);
    return first;
}

void putOid(StructBuilder& builder, std::size_t pointerOffset, const der::Element& oid);
/// CRYPT_INTEGER_BLOB: least significant octet first.
void putInteger(StructBuilder& builder, std::size_t blobOffset, const der::Element& number);
void putBits(StructBuilder& builder, std::size_t bitBlobOffset, const der::Element& bits);
/// CRYPT_ALGORITHM_IDENTIFIER.
void putAlgorithm(StructBuilder& builder, std::size_t offset, const der::Element& algorithm);
/// CERT_PUBLIC_KEY_INFO.
void putPublicKeyInfo(StructBuilder& builder, std::size_t offset, const der::Element& info);
/// An array of CERT_EXTENSION from the content of Extensions. An explicitly written `critical FALSE`, which DER leaves
/// out, is accepted: it is common.
void putExtensions(StructBuilder& builder, std::size_t countOffset, std::size_t pointerOffset, ByteView extensions);
/// CRYPT_ATTRIBUTE.
void putAttribute(StructBuilder& builder, std::size_t offset, const der::Element& attribute);

} // namespace klunortredi::csp
