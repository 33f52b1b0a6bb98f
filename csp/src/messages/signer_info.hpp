#pragma once

/// SignerInfo (RFC 5652, 5.3).

#include "core/bytes.hpp"
#include "messages/cms_types.hpp"

#include <cstdint>
#include <vector>

namespace klunortredi::csp {

/// How a SignerInfo names its certificate: by issuer and serial number, or by key identifier (then `issuer` is empty).
struct SignerId {
    Bytes issuer; ///< DER Name
    Bytes serial; ///< content octets of the INTEGER, most significant first
    Bytes keyId;
};

struct SignerInfo {
    std::int32_t version = 0;
    SignerId id;
    AlgorithmId digest;
    bool hasSignedAttributes = false;
    std::vector<Attribute> signedAttributes;
    /// What is signed when there are signed attributes: their SET OF with its universal tag (RFC 5652, 5.4). The
    /// attributes stand in the order in which they came, since some signers sort only by habit; the values within an
    /// attribute are sorted.
    Bytes signedAttributesSet;
    AlgorithmId signature;
    Bytes value;
    std::vector<Attribute> unsignedAttributes;

    [[nodiscard]] bool namedByKeyId() const noexcept { return id.issuer.empty(); }
};

/// The attributes in the content of a SET OF, however it is tagged. Errors as below.
std::vector<Attribute> decodeAttributes(ByteView content);

/// Decodes a SignerInfo with definite lengths. ApiError(CRYPT_E_ASN1_...) when malformed, CRYPT_E_ASN1_LARGE when it
/// has more attributes or values than limits.hpp allows.
SignerInfo decodeSignerInfo(ByteView der);

/// The SignerInfo `der` with one more unsigned attribute; every other octet but the lengths around it stays.
/// Attributes that are there keep their order, because archive time-stamps depend on it.
/// ApiError(CRYPT_E_ASN1_...) when `attribute` is not one Attribute with a value.
Bytes withUnsignedAttribute(ByteView der, ByteView attribute);

} // namespace klunortredi::csp
