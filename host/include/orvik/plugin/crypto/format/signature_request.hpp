#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

namespace orvik::plugin::crypto::format {

/// A request to sign, as the front end words it.
struct SignatureRequest {
    /// A signed attribute: name of the ASN.1 type (see crypto::tools::signedAttributes), dotted OID, value text.
    struct Attribute {
        std::string type;
        std::string oid;
        std::string value;

        friend bool operator<(const Attribute& a, const Attribute& b) {
            return std::tie(a.type, a.oid, a.value) < std::tie(b.type, b.oid, b.value);
        }
        friend bool operator==(const Attribute& a, const Attribute& b) {
            return std::tie(a.type, a.oid, a.value) == std::tie(b.type, b.oid, b.value);
        }
    };

    std::string cadesT; ///< "true" asks for a time-stamp on the signature (converter::to_bool)
    std::vector<Attribute> attributes;
};

/// A request to check a signature.
struct VerifySignatureRequest {};

/// A signed attribute on its way into a signature.
struct SignedAttribute {
    std::uint32_t type = 0; ///< ASN.1 universal tag number
    std::string oid;
    std::string value; ///< text by type, or DER
};

} // namespace orvik::plugin::crypto::format
