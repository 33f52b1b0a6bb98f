#pragma once

#include <libxml/tree.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace orvik::plugin::xml::internal {

enum class CanonicalMethod {
    inclusive10, ///< Canonical XML 1.0
    inclusive11, ///< Canonical XML 1.1
    exclusive,   ///< Exclusive XML Canonicalization (RFC 3741)
};

/// How a part of a document is put into octets. Comments are never part of it.
struct CanonicalForm {
    CanonicalMethod method = CanonicalMethod::exclusive;
    /// Of an InclusiveNamespaces element, "" for "#default"; exclusive method only.
    std::vector<std::string> inclusivePrefixes;
};

/// Bounds the work of all canonical forms of a document.
struct CanonicalBudget {
    std::size_t octets;
    std::size_t steps;
};

using CanonicalSink = std::function<void(std::string_view)>;
using NodeFilter = std::function<bool(const xmlNode*)>;

/// Gives `sink` the canonical octets of the subtree at `apex` (of the whole document when it is null) without the
/// elements, with all they hold, for which `leftOut` is true. Throws Refusal when the budget, which it spends, is used
/// up, and for what these forms are not defined for here (entity references; the xml:base fixup of Canonical XML 1.1).
void canonicalize(const xmlDoc* document, const xmlNode* apex, const CanonicalForm& form, const NodeFilter& leftOut,
                  CanonicalBudget& budget, const CanonicalSink& sink);

/// The document as text in its own encoding. Throws std::runtime_error.
std::string serialized(xmlDocPtr document);

} // namespace orvik::plugin::xml::internal
