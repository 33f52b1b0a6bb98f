#pragma once

/// The elements of XAdES (ETSI EN 319 132-1) in a signature.

#include "signature_model.hpp"

namespace orvik::plugin::xml::internal {

/// The namespace of version 1.3.2, in which properties are written.
inline constexpr const char* xadesNs = "http://uri.etsi.org/01903/v1.3.2#";

/// The Type of a reference to SignedProperties (section 4.4.2).
inline constexpr const char* signedPropertiesType = "http://uri.etsi.org/01903#SignedProperties";

/// Whether the node is an element of that name in XAdES 1.1.1, 1.2.2 or 1.3.2.
bool isXades(const xmlNode* node, const char* name);

/// Whether the node is XAdES's QualifyingProperties.
bool isQualifyingProperties(const xmlNode* node);

/// Whether the element is of a namespace of XAdES: 1.1.1, 1.2.2, 1.3.2 or 1.4.1.
bool isOfXades(const xmlNode* element);

/// The first child element of that name in XAdES; null when there is none, and for a null parent.
const xmlNode* xadesChild(const xmlNode* parent, const char* name);

/// The signature's QualifyingProperties; null when it has none. Throws Refusal (invalid) when it has several or they
/// hold two elements of one kind: readers would differ in which of them count (EN 319 132-1 allows one of each).
const xmlNode* qualifyingPropertiesOf(const SignatureModel& signature);

} // namespace orvik::plugin::xml::internal
