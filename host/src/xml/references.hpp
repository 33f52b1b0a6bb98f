#pragma once

/// What the references of a signature lead to.

#include "signature_model.hpp"

#include <string>
#include <unordered_map>
#include <vector>

namespace orvik::plugin::xml::internal {

/// The elements that carry an identifier which some reference names.
class Targets {
public:
    /// Looks the identifiers of all these references up in one walk over the document.
    Targets(const xmlDoc* document, const std::vector<SignatureModel>& signatures);

    /// The element of a "#id" reference, null for the whole document. Throws Refusal (invalid) unless exactly one
    /// element carries the identifier, counting attributes Id, ID and id in any namespace and xml:id.
    [[nodiscard]] const xmlNode* of(const Reference& reference) const;

private:
    struct Carrier {
        const xmlNode* element = nullptr; ///< the first with the identifier
        bool several = false;
        bool resolves = false; ///< by an attribute that references lead to: without namespace, or xml:id
    };
    std::unordered_map<std::string, Carrier> carriers_;

    void note(const xmlNode* element, const xmlAttr* attribute);
};

/// Whether the reference leaves the node, with all it holds, out of what it covers.
bool leavesOut(const Reference& reference, const SignatureModel& signature, const xmlNode* node);

/// Computes the digest of a reference. Throws Refusal: invalid when it is not the one in the signature or when the
/// reference covers nothing, unknown when the digest is not one that is computed here or the budget is used up.
void checkReference(const Reference& reference, const SignatureModel& signature, const xmlNode* target,
                    CanonicalBudget& budget);

} // namespace orvik::plugin::xml::internal
