#include "signature_nodes.hpp"

#include "algorithms.hpp"
#include "libxml.hpp"
#include "orvik/plugin/base64.hpp"

#include <boost/algorithm/string/classification.hpp>
#include <libxml/valid.h>

#include <array>
#include <string_view>

namespace orvik::plugin::xml::internal {

namespace {

constexpr std::size_t maxCertificates = 16;
constexpr std::array<std::string_view, 3> idNames = {"Id", "ID", "id"};

bool isDsig(const xmlNode* node, const char* name) {
    return node->type == XML_ELEMENT_NODE && node->ns != nullptr && xmlStrEqual(node->name, toXml(name)) != 0 &&
           xmlStrEqual(node->ns->href, toXml(dsigNs)) != 0;
}

/// The next node in document order; the depth that the parser lets in does not bound it.
xmlNodePtr nextNode(xmlNodePtr node) {
    if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
        return node->children;
    }
    while (node != nullptr && node->next == nullptr) {
        node = node->parent;
    }
    return node == nullptr ? nullptr : node->next;
}

/// Calls `visit` for each element until it says false; whether it never did.
template <class Visit>
bool forEachElement(xmlDocPtr document, Visit visit) {
    for (xmlNodePtr node = xmlDocGetRootElement(document); node != nullptr; node = nextNode(node)) {
        if (node->type == XML_ELEMENT_NODE && !visit(node)) {
            return false;
        }
    }
    return true;
}

bool registerId(xmlDocPtr document, xmlAttrPtr attribute) {
    const TextPtr value(xmlNodeListGetString(document, attribute->children, 1));
    if (!value) {
        return true;
    }
    const xmlAttrPtr known = xmlGetID(document, value.get());
    return known == attribute || (known == nullptr && xmlAddID(nullptr, document, value.get(), attribute) != nullptr);
}

/// Calls `visit` for each child element of that name.
template <class Visit>
void forEachChild(const xmlNode* parent, const char* name, Visit visit) {
    for (const xmlNode* child = parent->children; child != nullptr; child = child->next) {
        if (isDsig(child, name)) {
            visit(child);
        }
    }
}

/// Whether the expression is "not(ancestor-or-self::P:Signature)" with P a prefix of XML-DSig's namespace.
bool takesSignaturesOut(const xmlNode* xpath) {
    constexpr std::string_view before = "not(ancestor-or-self::";
    constexpr std::string_view after = ":Signature)";
    const TextPtr text(xmlNodeGetContent(xpath));
    std::string expression = fromXml(text.get());
    std::erase_if(expression, boost::algorithm::is_any_of(" \t\r\n"));
    if (!expression.starts_with(before) || !expression.ends_with(after) ||
        expression.size() <= before.size() + after.size()) {
        return false;
    }
    const std::string prefix = expression.substr(before.size(), expression.size() - before.size() - after.size());
    const xmlNs* ns = xmlSearchNs(xpath->doc, const_cast<xmlNode*>(xpath), toXml(prefix.c_str()));
    return ns != nullptr && xmlStrEqual(ns->href, toXml(dsigNs)) != 0;
}

} // namespace

std::vector<xmlNodePtr> signatureNodes(xmlDocPtr document) {
    std::vector<xmlNodePtr> found;
    forEachElement(document, [&](xmlNodePtr node) {
        if (isDsig(node, "Signature")) {
            found.push_back(node);
        }
        return true;
    });
    return found;
}

std::vector<std::string> keyInfoCertificates(const xmlNode* signature) {
    std::vector<std::string> found;
    const auto add = [&](const xmlNode* certificate) {
        const TextPtr text(xmlNodeGetContent(certificate));
        auto der = base64::decode(fromXml(text.get()));
        if (!der.empty() && found.size() < maxCertificates) {
            found.push_back(std::move(der));
        }
    };
    forEachChild(signature, "KeyInfo", [&](const xmlNode* info) {
        forEachChild(info, "X509Data", [&](const xmlNode* data) { forEachChild(data, "X509Certificate", add); });
    });
    return found;
}

std::vector<std::string> algorithmUris(const xmlNode* signature) {
    std::vector<std::string> found;
    const auto add = [&](const xmlNode* method) {
        const TextPtr uri(xmlGetNoNsProp(method, toXml("Algorithm")));
        found.push_back(fromXml(uri.get()));
    };
    forEachChild(signature, "SignedInfo", [&](const xmlNode* info) {
        forEachChild(info, "SignatureMethod", add);
        forEachChild(info, "Reference",
                     [&](const xmlNode* reference) { forEachChild(reference, "DigestMethod", add); });
    });
    return found;
}

bool hasOnlyPlainXpath(const xmlNode* signature) {
    bool plain = true;
    forEachChild(signature, "SignedInfo", [&](const xmlNode* info) {
        forEachChild(info, "Reference", [&](const xmlNode* reference) {
            forEachChild(reference, "Transforms", [&](const xmlNode* transforms) {
                forEachChild(transforms, "Transform", [&](const xmlNode* transform) {
                    forEachChild(transform, "XPath",
                                 [&](const xmlNode* xpath) { plain = plain && takesSignaturesOut(xpath); });
                });
            });
        });
    });
    return plain;
}

bool registerIds(xmlDocPtr document) {
    return forEachElement(document, [&](xmlNodePtr node) {
        for (xmlAttrPtr attribute = node->properties; attribute != nullptr; attribute = attribute->next) {
            for (const auto name : idNames) {
                if (attribute->ns == nullptr && name == fromXml(attribute->name) && !registerId(document, attribute)) {
                    return false;
                }
            }
        }
        return true;
    });
}

} // namespace orvik::plugin::xml::internal
