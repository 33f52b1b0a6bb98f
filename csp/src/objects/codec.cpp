#include "objects/codec.hpp"

#include "capi/constants.hpp"
#include "core/error.hpp"
#include "objects/codecs.hpp"
#include "x509/cert_info.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace klunortredi::csp {

namespace {

/// Nothing that these structures describe comes near; the decoded form is up to ten times as large.
constexpr std::size_t MaxEncodedSize = 16U << 20U;

struct Codec {
    DWORD number;         ///< 0 when the type is an OID
    std::string_view oid; ///< empty when the type is a number
    std::size_t structSize;
    Bytes (*encode)(const void* info);
    void (*decode)(const der::Element& value, StructBuilder& out);
};

template <class Info, Bytes (*Encode)(const Info&), void (*Decode)(const der::Element&, StructBuilder&)>
constexpr Codec codec(DWORD number, std::string_view oid = {}) {
    return {number, oid, sizeof(Info), [](const void* info) { return Encode(*static_cast<const Info*>(info)); },
            Decode};
}

template <class Info, Bytes (*Encode)(const Info&), void (*Decode)(const der::Element&, StructBuilder&)>
constexpr Codec codec(const char* oid) {
    return codec<Info, Encode, Decode>(0, oid);
}

using namespace capi;
constexpr std::array codecs{
    codec<CERT_SIGNED_CONTENT_INFO, encodeSignedContent, decodeSignedContent>(X509_CERT),
    codec<CERT_INFO, encodeCertificateInfo, decodeCertificateInfo>(X509_CERT_TO_BE_SIGNED),
    codec<CERT_REQUEST_INFO, encodeRequestInfo, decodeRequestInfo>(X509_CERT_REQUEST_TO_BE_SIGNED),
    codec<CERT_EXTENSIONS, encodeExtensions, decodeExtensions>(X509_EXTENSIONS),
    codec<CERT_NAME_VALUE, encodeNameValue, decodeNameValue>(X509_NAME_VALUE),
    codec<CERT_NAME_INFO, encodeName, decodeName>(capi::X509_NAME),
    codec<CERT_PUBLIC_KEY_INFO, encodePublicKeyInfo, decodePublicKeyInfo>(X509_PUBLIC_KEY_INFO),
    codec<CERT_KEY_ATTRIBUTES_INFO, encodeKeyAttributes, decodeKeyAttributes>(X509_KEY_ATTRIBUTES),
    codec<CERT_ALT_NAME_INFO, encodeAlternateName, decodeAlternateName>(X509_ALTERNATE_NAME),
    codec<CERT_ALT_NAME_INFO, encodeAlternateName, decodeAlternateName>(szOID_SUBJECT_ALT_NAME2),
    codec<CERT_ALT_NAME_INFO, encodeAlternateName, decodeAlternateName>(szOID_ISSUER_ALT_NAME2),
    codec<CRYPT_BIT_BLOB, encodeKeyUsage, decodeKeyUsage>(X509_KEY_USAGE),
    codec<CRYPT_BIT_BLOB, encodeKeyUsage, decodeKeyUsage>(szOID_KEY_USAGE),
    codec<CERT_BASIC_CONSTRAINTS2_INFO, encodeBasicConstraints, decodeBasicConstraints>(X509_BASIC_CONSTRAINTS2),
    codec<CERT_BASIC_CONSTRAINTS2_INFO, encodeBasicConstraints, decodeBasicConstraints>(szOID_BASIC_CONSTRAINTS2),
    codec<CERT_POLICIES_INFO, encodePolicies, decodePolicies>(X509_CERT_POLICIES),
    codec<CERT_POLICIES_INFO, encodePolicies, decodePolicies>(szOID_CERT_POLICIES),
    codec<CRYPT_ATTRIBUTE, encodeAttribute, decodeAttribute>(PKCS_ATTRIBUTE),
    codec<CERT_NAME_VALUE, encodeUnicodeNameValue, decodeUnicodeNameValue>(X509_UNICODE_NAME_VALUE),
    codec<CRYPT_DATA_BLOB, encodeOctetString, decodeOctetString>(X509_OCTET_STRING),
    codec<CRYPT_DATA_BLOB, encodeOctetString, decodeOctetString>(szOID_SUBJECT_KEY_IDENTIFIER),
    codec<LONG, encodeInteger, decodeInteger>(X509_INTEGER),
    codec<CRYPT_INTEGER_BLOB, encodeMultiByteInteger, decodeMultiByteInteger>(X509_MULTI_BYTE_INTEGER),
    codec<FILETIME, encodeTime, decodeTime>(X509_CHOICE_OF_TIME),
    codec<FILETIME, encodeTime, decodeTime>(szOID_RSA_signingTime),
    codec<CRYPT_SEQUENCE_OF_ANY, encodeSequenceOfAny, decodeSequenceOfAny>(X509_SEQUENCE_OF_ANY),
    codec<CERT_ENHKEY_USAGE, encodeEnhancedKeyUsage, decodeEnhancedKeyUsage>(X509_ENHANCED_KEY_USAGE),
    codec<CERT_ENHKEY_USAGE, encodeEnhancedKeyUsage, decodeEnhancedKeyUsage>(szOID_ENHANCED_KEY_USAGE),
    codec<CRYPT_TIMESTAMP_REQUEST, encodeTimestampRequest, decodeTimestampRequest>(TIMESTAMP_REQUEST),
    codec<CRYPT_TIMESTAMP_RESPONSE, encodeTimestampResponse, decodeTimestampResponse>(TIMESTAMP_RESPONSE),
    codec<CRYPT_TIMESTAMP_INFO, encodeTimestampInfo, decodeTimestampInfo>(TIMESTAMP_INFO),
    codec<CRYPT_ENROLLMENT_NAME_VALUE_PAIR, encodeNameValuePair, decodeNameValuePair>(szOID_ENROLLMENT_NAME_VALUE_PAIR),
    codec<CRYPT_CSP_PROVIDER, encodeCspProvider, decodeCspProvider>(szOID_ENROLLMENT_CSP_PROVIDER),
};

const Codec& findCodec(DWORD encodingType, const char* structType) {
    const auto address = reinterpret_cast<std::uintptr_t>(structType);
    constexpr std::uintptr_t largestNumber = 0xFFFF; // no string lies that low
    const bool isNumber = address <= largestNumber;
    const auto* const found = std::ranges::find_if(codecs, [&](const Codec& row) {
        return isNumber ? row.number == address && row.number != 0 : row.number == 0 && row.oid == structType;
    });
    if ((encodingType & X509_AND_PKCS_7) == 0 || found == codecs.end()) {
        fail(ERROR_FILE_NOT_FOUND);
    }
    return *found;
}

} // namespace

Bytes encodeObject(DWORD encodingType, const char* structType, const void* info) {
    const Codec& row = findCodec(encodingType, structType);
    if (info == nullptr) {
        fail(ERROR_INVALID_PARAMETER);
    }
    return row.encode(info);
}

void decodeObject(DWORD encodingType, const char* structType, ByteView der, DWORD /*flags*/, void* out, DWORD* size) {
    const Codec& row = findCodec(encodingType, structType);
    if (der.size() > MaxEncodedSize) {
        fail(CRYPT_E_ASN1_LARGE);
    }
    StructBuilder builder(row.structSize);
    row.decode(der::readOnly(der), builder);
    builder.deliver(out, size);
}

} // namespace klunortredi::csp
