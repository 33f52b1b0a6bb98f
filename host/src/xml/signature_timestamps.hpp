#pragma once

/// Time-stamps on a signature's value (SignatureTimeStamp, ETSI EN 319 132-1, section 5.3).

#include "canonical.hpp"
#include "signature_model.hpp"

#include "orvik/plugin/xml/xml_document.hpp"

#include <string>
#include <vector>

namespace orvik::plugin::xml::internal {

/// The canonical octets of the signature's SignatureValue element, which a time-stamp is for. Throws Refusal (unknown)
/// when they are more than limits::signatureValueOctets or the budget is used up.
std::string stampedOctets(const SignatureModel& signature, const CanonicalForm& form, CanonicalBudget& budget);

/// The tokens of the signature's time-stamps, in document order, with the octets that each must be for. What is not of
/// the required form comes with a problem, and so do those after the first limits::timestampsPerSignature, together.
/// Throws Refusal (invalid) when the properties are not of the required form.
std::vector<XmlTimestamp> signatureTimestamps(const SignatureModel& signature, CanonicalBudget& budget);

/// Whether the unsigned properties are SignatureTimeStamps alone, so that signatureTimestamps gives all that they hold.
bool areTimestampsAlone(const xmlNode* unsignedProperties);

} // namespace orvik::plugin::xml::internal
