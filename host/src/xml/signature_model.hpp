#pragma once

#include "canonical.hpp"

#include <optional>
#include <string>
#include <vector>

namespace orvik::plugin::xml::internal {

/// A Reference of a signature.
struct Reference {
    const xmlNode* node = nullptr;
    std::string uri;                ///< "" or "#" with an NCName
    bool manifest = false;          ///< by its Type
    bool withoutSignature = false;  ///< the enveloped-signature transform
    bool withoutSignatures = false; ///< the XPath that takes every signature out
    CanonicalForm form{CanonicalMethod::inclusive10, {}};
    std::string digestMethod; ///< URI
    std::string digest;
};

/// A Signature element whose form is the one that XML-DSig requires and whose transforms are supported. The nodes stay
/// the document's.
struct SignatureModel {
    const xmlNode* node = nullptr;
    const xmlNode* signedInfo = nullptr;
    const xmlNode* keyInfo = nullptr; ///< null when there is none
    std::vector<const xmlNode*> objects;
    CanonicalForm form;
    std::string method; ///< URI
    std::vector<Reference> references;
    std::string value;
};

/// The canonical form that a method or transform element asks for; nullopt when its algorithm is another. Throws
/// Refusal: invalid for a parameter that is not allowed, unknown for a list of prefixes that is too long.
std::optional<CanonicalForm> readCanonicalForm(const xmlNode* element);

/// Every dsig:Signature element of the document, in document order.
std::vector<const xmlNode*> signatureNodes(const xmlDoc* document);

/// Reads a Signature element. Throws Refusal: invalid when its form is not that of XML-DSig, unknown when it asks for
/// what is not supported or exceeds the bounds of limits.hpp.
SignatureModel readSignature(const xmlNode* signature);

} // namespace orvik::plugin::xml::internal
