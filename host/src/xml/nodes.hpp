#pragma once

/// Walking over a document's elements.

#include "algorithms.hpp"
#include "libxml.hpp"

#include <string>
#include <vector>

namespace orvik::plugin::xml::internal {

/// Whether the node is an element of that name in the namespace.
bool isElement(const xmlNode* node, const char* name, const char* ns = dsigNs);

/// The next node in document order after `node`, without leaving the subtree at `top`; null at its end.
const xmlNode* nextNode(const xmlNode* node, const xmlNode* top);

/// As nextNode, but passes over what `node` holds.
const xmlNode* nextAfter(const xmlNode* node, const xmlNode* top);

/// Calls `visit` for every node of the subtree, in document order.
template <class Visit>
void forEachNode(const xmlNode* top, Visit visit) {
    for (const xmlNode* node = top; node != nullptr; node = nextNode(node, top)) {
        visit(node);
    }
}

/// Whether `node` is `ancestor` or lies in it.
bool isWithin(const xmlNode* node, const xmlNode* ancestor);

/// The child elements. Throws Refusal (invalid) when anything else but blanks lies between them: a canonical form
/// leaves comments out, and readers differ in what they make of the rest.
std::vector<const xmlNode*> childElements(const xmlNode* parent);

/// The text of an element that holds text alone. Throws Refusal (invalid) when it holds anything else.
std::string textOf(const xmlNode* element);

/// The value of an attribute without namespace; empty when it is not there.
std::string attributeOf(const xmlNode* element, const char* name);

/// The octets of an element that holds Base64, which must be written the one right way but for blanks. Throws Refusal
/// (invalid).
std::string octetsOf(const xmlNode* element);

/// The document element.
const xmlNode* rootOf(const xmlDoc* document);

} // namespace orvik::plugin::xml::internal
