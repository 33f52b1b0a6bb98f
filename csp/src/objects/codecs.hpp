#pragma once

/// The codecs behind the table of codec.cpp. An `encode...` gives the DER of a structure, a `decode...` fills the
/// structure at the start of the builder from one element and whatever its pointers lead to behind it.

#include "asn1/der.hpp"
#include "capi/types.h"
#include "core/output.hpp"

namespace klunortredi::csp {

// Single values (values.cpp)
Bytes encodeNameValue(const CERT_NAME_VALUE& info);
void decodeNameValue(const der::Element& value, StructBuilder& out);
Bytes encodeUnicodeNameValue(const CERT_NAME_VALUE& info);
void decodeUnicodeNameValue(const der::Element& value, StructBuilder& out);
Bytes encodeOctetString(const CRYPT_DATA_BLOB& info);
void decodeOctetString(const der::Element& value, StructBuilder& out);
/// A signed 32-bit number.
Bytes encodeInteger(const LONG& info);
void decodeInteger(const der::Element& value, StructBuilder& out);
Bytes encodeMultiByteInteger(const CRYPT_INTEGER_BLOB& info);
void decodeMultiByteInteger(const der::Element& value, StructBuilder& out);
Bytes encodeTime(const FILETIME& info);
void decodeTime(const der::Element& value, StructBuilder& out);
/// Each value is one encoded value, identifier and length included.
Bytes encodeSequenceOfAny(const CRYPT_SEQUENCE_OF_ANY& info);
void decodeSequenceOfAny(const der::Element& value, StructBuilder& out);

// Names (names.cpp, RFC 5280, 4.1.2.4 and 4.2.1.6)
Bytes encodeName(const CERT_NAME_INFO& info);
void decodeName(const der::Element& value, StructBuilder& out);
/// An X.400 address or EDI party name, for which the CryptoAPI has no structure, is its whole DER in `DirectoryName`.
Bytes encodeAlternateName(const CERT_ALT_NAME_INFO& info);
void decodeAlternateName(const der::Element& value, StructBuilder& out);

// Extensions and their values (extensions.cpp, RFC 5280, 4.2.1)
Bytes encodeExtensions(const CERT_EXTENSIONS& info);
void decodeExtensions(const der::Element& value, StructBuilder& out);
Bytes encodeKeyUsage(const CRYPT_BIT_BLOB& info);
void decodeKeyUsage(const der::Element& value, StructBuilder& out);
Bytes encodeBasicConstraints(const CERT_BASIC_CONSTRAINTS2_INFO& info);
void decodeBasicConstraints(const der::Element& value, StructBuilder& out);
Bytes encodePolicies(const CERT_POLICIES_INFO& info);
void decodePolicies(const der::Element& value, StructBuilder& out);
Bytes encodeEnhancedKeyUsage(const CERT_ENHKEY_USAGE& info);
void decodeEnhancedKeyUsage(const der::Element& value, StructBuilder& out);
/// keyAttributes of X.509 (1993): key identifier, usage and private-key period, each of which may be missing (empty, or
/// a FILETIME of zero).
Bytes encodeKeyAttributes(const CERT_KEY_ATTRIBUTES_INFO& info);
void decodeKeyAttributes(const der::Element& value, StructBuilder& out);

// Certificates and requests (certificates.cpp, RFC 5280, 4.1; RFC 2986)
Bytes encodeSignedContent(const CERT_SIGNED_CONTENT_INFO& info);
void decodeSignedContent(const der::Element& value, StructBuilder& out);
Bytes encodeCertificateInfo(const CERT_INFO& info);
void decodeCertificateInfo(const der::Element& value, StructBuilder& out);
Bytes encodeRequestInfo(const CERT_REQUEST_INFO& info);
void decodeRequestInfo(const der::Element& value, StructBuilder& out);
void decodePublicKeyInfo(const der::Element& value, StructBuilder& out);

// Attributes (attributes.cpp)
Bytes encodeAttribute(const CRYPT_ATTRIBUTE& info);
void decodeAttribute(const der::Element& value, StructBuilder& out);
Bytes encodeNameValuePair(const CRYPT_ENROLLMENT_NAME_VALUE_PAIR& info);
void decodeNameValuePair(const der::Element& value, StructBuilder& out);
Bytes encodeCspProvider(const CRYPT_CSP_PROVIDER& info);
void decodeCspProvider(const der::Element& value, StructBuilder& out);

// Time-stamps (timestamps.cpp, RFC 3161, 2.4). A nonce is a number that is not negative, least significant octet first.
Bytes encodeTimestampRequest(const CRYPT_TIMESTAMP_REQUEST& info);
void decodeTimestampRequest(const der::Element& value, StructBuilder& out);
Bytes encodeTimestampResponse(const CRYPT_TIMESTAMP_RESPONSE& info);
/// The token may be BER: it is handed out as it is.
void decodeTimestampResponse(const der::Element& value, StructBuilder& out);
Bytes encodeTimestampInfo(const CRYPT_TIMESTAMP_INFO& info);
void decodeTimestampInfo(const der::Element& value, StructBuilder& out);

} // namespace klunortredi::csp
