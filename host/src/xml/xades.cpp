#include "xades.hpp"

#include "nodes.hpp"
#include "refusal.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace orvik::plugin::xml::internal {

namespace {

constexpr std::array namespaces = {xadesNs, "http://uri.etsi.org/01903/v1.2.2#", "http://uri.etsi.org/01903/v1.1.1#"};
constexpr const char* timeStampNamespace = "http://uri.etsi.org/01903/v1.4.1#"; // of properties alone

template <class Matches>
std::size_t countChildren(const xmlNode* parent, Matches matches) {
    std::size_t count = 0;
    for (const xmlNode* child = parent->children; child != nullptr; child = child->next) {
        count += static_cast<std::size_t>(matches(child));
    }
    return count;
}

void requireOneOfEachKind(const xmlNode* properties) {
    constexpr std::array kinds = {"SignedProperties", "UnsignedProperties"};
    for (const char* kind : kinds) {
        if (countChildren(properties, [&](const xmlNode* child) { return isXades(child, kind); }) > 1) {
            invalid(std::string("the signature has more than one ") + kind);
        }
    }
}

} // namespace

bool isXades(const xmlNode* node, const char* name) {
    return std::any_of(namespaces.begin(), namespaces.end(), [&](const char* ns) { return isElement(node, name, ns); });
}

bool isQualifyingProperties(const xmlNode* node) {
    return isXades(node, "QualifyingProperties");
}

bool isOfXades(const xmlNode* element) {
    const xmlChar* const ns = element->ns == nullptr ? nullptr : element->ns->href;
    return xmlStrEqual(ns, toXml(timeStampNamespace)) != 0 ||
           std::any_of(namespaces.begin(), namespaces.end(),
                       [&](const char* known) { return xmlStrEqual(ns, toXml(known)) != 0; });
}

const xmlNode* xadesChild(const xmlNode* parent, const char* name) {
    const xmlNode* child = parent == nullptr ? nullptr : parent->children;
    while (child != nullptr && !isXades(child, name)) {
        child = child->next;
    }
    return child;
}

const xmlNode* qualifyingPropertiesOf(const SignatureModel& signature) {
    const xmlNode* found = nullptr;
    std::size_t count = 0;
    for (const xmlNode* object : signature.objects) {
        count += countChildren(object, isQualifyingProperties);
        found = found == nullptr ? xadesChild(object, "QualifyingProperties") : found;
    }
    if (count > 1) {
        invalid("the signature has more than one QualifyingProperties");
    }
    if (found != nullptr) {
        requireOneOfEachKind(found);
    }
    return found;
}

} // namespace orvik::plugin::xml::internal
