#pragma once

/// Which namespace declarations a signature protects.

#include "references.hpp"

#include <vector>

namespace orvik::plugin::xml::internal {

/// Whether a part that is signed in exclusive form lies in the scope of a namespace declaration that stands in no
/// canonical form: exclusive forms keep only those that a name in them uses, so another namespace could be declared
/// for a prefix that stands in a value. Names that the signature does not cover do not count: anybody can add one.
/// `targets` are those of the signature's references, in their order. Each reference costs one pass over the nodes
/// that its canonical form passed over.
bool hasLooseNamespaces(const SignatureModel& signature, const std::vector<const xmlNode*>& targets);

} // namespace orvik::plugin::xml::internal
