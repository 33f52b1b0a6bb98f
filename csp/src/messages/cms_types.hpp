#pragma once

/// Values that CMS structures are made of (RFC 5652), decoded.

#include "core/bytes.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace klunortredi::csp {

namespace oid {
inline constexpr std::string_view data = "1.2.840.113549.1.7.1";
inline constexpr std::string_view signedData = "1.2.840.113549.1.7.2";
inline constexpr std::string_view envelopedData = "1.2.840.113549.1.7.3";
inline constexpr std::string_view digestedData = "1.2.840.113549.1.7.5";
inline constexpr std::string_view authEnvelopedData = "1.2.840.113549.1.9.16.1.23"; // RFC 5083
inline constexpr std::string_view contentType = "1.2.840.113549.1.9.3";
inline constexpr std::string_view messageDigest = "1.2.840.113549.1.9.4";
inline constexpr std::string_view signingTime = "1.2.840.113549.1.9.5";
inline constexpr std::string_view countersignature = "1.2.840.113549.1.9.6";
inline constexpr std::string_view signingCertificate = "1.2.840.113549.1.9.16.2.12";
inline constexpr std::string_view signingCertificateV2 = "1.2.840.113549.1.9.16.2.47";
inline constexpr std::string_view rsaEncryption = "1.2.840.113549.1.1.1";
inline constexpr std::string_view rsaesOaep = "1.2.840.113549.1.1.7";
inline constexpr std::string_view rsassaPss = "1.2.840.113549.1.1.10";
inline constexpr std::string_view gostR341194 = "1.2.643.2.2.9";
/// The name attribute under which the CryptoAPI tells a signer that is known by its key identifier only.
inline constexpr std::string_view keyIdRdn = "1.3.6.1.4.1.311.10.7.1";
inline constexpr std::string_view subjectKeyIdentifier = "2.5.29.14";
} // namespace oid

struct AlgorithmId {
    std::string oid;
    Bytes parameters; ///< one whole element, or empty when absent
};

struct Attribute {
    std::string oid;
    std::vector<Bytes> values; ///< each one whole element
};

/// AlgorithmIdentifier; ApiError(CRYPT_E_ASN1_...) when malformed.
AlgorithmId decodeAlgorithm(ByteView der);
/// Attribute (RFC 5652, 5.3).
Attribute decodeAttribute(ByteView der);
/// Dotted text of a whole OBJECT IDENTIFIER element.
std::string decodeOid(ByteView der);

Bytes encodeAlgorithmId(const AlgorithmId& algorithm);
Bytes encodeAttribute(const Attribute& attribute);

} // namespace klunortredi::csp
