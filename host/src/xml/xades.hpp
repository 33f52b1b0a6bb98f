#pragma once

/// The properties of XAdES (ETSI EN 319 132-1) that say which certificate signed.

#include "signature_model.hpp"

#include <string>
#include <vector>

namespace orvik::plugin::xml::internal {

/// Whether the node is XAdES's QualifyingProperties.
bool isQualifyingProperties(const xmlNode* node);

/// Whether the node is XAdES's UnsignedProperties (time-stamps, certificates and revocation data added after signing).
bool isUnsignedProperties(const xmlNode* node);

/// Whether the element is of a namespace of XAdES: 1.1.1, 1.2.2, 1.3.2 or 1.4.1.
bool isOfXades(const xmlNode* element);

/// The digest of a certificate by which a signature names its signer.
struct NamedCertificate {
    std::string digestMethod; ///< URI
    std::string digest;
};

/// The first certificate of each SigningCertificate and SigningCertificateV2 in the signature's SignedProperties that a
/// reference covers; empty when there is none. Throws Refusal (invalid) when one is not of the required form.
std::vector<NamedCertificate> namedCertificates(const SignatureModel& signature,
                                                const std::vector<const xmlNode*>& targets);

} // namespace orvik::plugin::xml::internal
