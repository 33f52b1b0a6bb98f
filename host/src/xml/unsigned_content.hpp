#pragma once

/// What a Signature element holds that its references do not cover.

#include "signature_model.hpp"

#include <vector>

namespace orvik::plugin::xml::internal {

/// Whether the signature holds content that neither the references cover nor XML-DSig or XAdES define: an element of
/// another namespace, an attribute beyond those of the schemas, text between elements, a processing instruction. The
/// enveloped-signature transform leaves the whole Signature element out of what is signed, so such content would pass
/// as part of a signed document. `targets` are those of the signature's references, in their order.
bool hasForeignContent(const SignatureModel& signature, const std::vector<const xmlNode*>& targets);

} // namespace orvik::plugin::xml::internal
