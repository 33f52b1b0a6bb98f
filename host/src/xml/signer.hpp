#pragma once

/// Whose key made a signature.

#include "signature_algorithms.hpp"
#include "signature_model.hpp"
#include "signed_properties.hpp"

#include "orvik/plugin/xml/xml_document.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace orvik::plugin::xml::internal {

struct FoundSigner {
    std::string certificate; ///< DER; empty for a bare key
    bool certificateProtected = false;
    std::string keyOid;
    unsigned keyBits = 0;
};

/// A signature whose references fit.
struct SignatureToCheck {
    const SignatureModel& signature;
    const std::vector<const xmlNode*>& targets; ///< of the references
    const SignatureAlgorithm& algorithm;
    const std::string& digest; ///< of what its value is over
    const SignedProperties& properties;
    std::size_t& keysLeft; ///< to be tried in the document
};

/// Checks the signature's value with the key of the certificate in the options, then with those that the signature
/// carries. Of several carried certificates with the key that fits, the one that the signature protects is the
/// signer's. Throws Refusal: invalid when no key fits or when a property of XAdES names another certificate, unknown
/// when no certificate with a key of the signature's algorithm is at hand, and when the keys are more than are tried.
FoundSigner findSigner(const SignatureToCheck& check, const XmlVerifyOptions& options);

} // namespace orvik::plugin::xml::internal
