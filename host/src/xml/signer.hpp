#pragma once

/// Whose key made a signature.

#include "signature_algorithms.hpp"
#include "signature_model.hpp"

#include "orvik/plugin/xml/xml_document.hpp"

#include <string>
#include <vector>

namespace orvik::plugin::xml::internal {

struct FoundSigner {
    std::string certificate; ///< DER; empty for a bare key
    bool certificateProtected = false;
    std::string keyOid;
    unsigned keyBits = 0;
};

/// Checks the signature's value, over what has that digest, with the key of the certificate in the options, then with
/// those that the signature carries. Of several carried certificates with the key that fits, the one that the signature
/// protects is the signer's. `targets` are those of the
/// references, whose digests fit. Throws Refusal: invalid when no key fits or when a property of XAdES names another
/// certificate, unknown when no certificate with a key of the
/// signature's algorithm is at hand.
FoundSigner findSigner(const SignatureModel& signature, const std::vector<const xmlNode*>& targets,
                       const SignatureAlgorithm& algorithm, const std::string& digest, const XmlVerifyOptions& options);

} // namespace orvik::plugin::xml::internal
