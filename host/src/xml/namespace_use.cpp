#include "namespace_use.hpp"

#include "nodes.hpp"

#include <algorithm>
#include <cstddef>
#include <unordered_set>

namespace orvik::plugin::xml::internal {

namespace {

using Declarations = std::unordered_set<const xmlNs*>;

void addDeclared(const xmlNode* element, Declarations& declared) {
    for (const xmlNs* ns = element->nsDef; ns != nullptr; ns = ns->next) {
        declared.insert(ns);
    }
}

void addUsed(const xmlNode* element, Declarations& used) {
    used.insert(element->ns);
    for (const xmlAttr* attribute = element->properties; attribute != nullptr; attribute = attribute->next) {
        used.insert(attribute->ns);
    }
}

/// Calls `visit` for each element that the reference covers.
template <class Visit>
void forEachCovered(const Reference& reference, const SignatureModel& signature, const xmlNode* target, Visit visit) {
    const xmlNode* const top = target == nullptr ? rootOf(signature.node->doc) : target;
    for (const xmlNode* node = top; node != nullptr;) {
        const bool element = node->type == XML_ELEMENT_NODE;
        if (element && leavesOut(reference, signature, node)) {
            node = nextAfter(node, top);
            continue;
        }
        if (element) {
            visit(node);
        }
        node = nextNode(node, top);
    }
}

} // namespace

bool hasLooseNamespaces(const SignatureModel& signature, const std::vector<const xmlNode*>& targets) {
    Declarations declared;
    Declarations used;
    for (std::size_t i = 0; i < targets.size(); ++i) {
        const Reference& reference = signature.references[i];
        const bool exclusive = reference.form.method == CanonicalMethod::exclusive;
        forEachCovered(reference, signature, targets[i], [&](const xmlNode* element) {
            addDeclared(element, exclusive ? declared : used); // inclusive forms keep every declaration
            addUsed(element, used);
        });
        for (const xmlNode* node = targets[i]; exclusive && node != nullptr && node->type == XML_ELEMENT_NODE;
             node = node->parent) {
            addDeclared(node, declared);
        }
    }
    forEachNode(signature.signedInfo, [&](const xmlNode* node) {
        if (node->type == XML_ELEMENT_NODE) {
            addUsed(node, used);
        }
    });
    return std::any_of(declared.begin(), declared.end(), [&](const xmlNs* ns) { return used.count(ns) == 0; });
}

} // namespace orvik::plugin::xml::internal
