#include "nodes.hpp"

#include "orvik/plugin/base64.hpp"
#include "refusal.hpp"

#include <boost/algorithm/string/classification.hpp>

namespace orvik::plugin::xml::internal {

bool isElement(const xmlNode* node, const char* name, const char* ns) {
    return node->type == XML_ELEMENT_NODE && node->ns != nullptr && xmlStrEqual(node->name, toXml(name)) != 0 &&
           xmlStrEqual(node->ns->href, toXml(ns)) != 0;
}

const xmlNode* nextNode(const xmlNode* node, const xmlNode* top) {
    if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
        return node->children;
    }
    return nextAfter(node, top);
}

const xmlNode* nextAfter(const xmlNode* node, const xmlNode* top) {
    while (node != nullptr && node != top && node->next == nullptr) {
        node = node->parent;
    }
    return node == nullptr || node == top ? nullptr : node->next;
}

bool isWithin(const xmlNode* node, const xmlNode* ancestor) {
    for (; node != nullptr; node = node->parent) {
        if (node == ancestor) {
            return true;
        }
    }
    return false;
}

std::vector<const xmlNode*> childElements(const xmlNode* parent) {
    std::vector<const xmlNode*> found;
    for (const xmlNode* child = parent->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE) {
            found.push_back(child);
        } else if (child->type != XML_TEXT_NODE || xmlIsBlankNode(child) == 0) {
            invalid("the signature's " + shown(fromXml(parent->name)) + " holds something else than elements");
        }
    }
    return found;
}

std::string textOf(const xmlNode* element) {
    std::string text;
    for (const xmlNode* child = element->children; child != nullptr; child = child->next) {
        if (child->type != XML_TEXT_NODE && child->type != XML_CDATA_SECTION_NODE) {
            invalid("the signature's " + shown(fromXml(element->name)) + " holds something else than text");
        }
        text += fromXml(child->content);
    }
    return text;
}

std::string attributeOf(const xmlNode* element, const char* name) {
    const TextPtr value(xmlGetNoNsProp(element, toXml(name)));
    return fromXml(value.get());
}

std::string octetsOf(const xmlNode* element) {
    std::string text = textOf(element);
    std::erase_if(text, boost::algorithm::is_any_of(" \t\r\n"));
    auto octets = base64::decode(text);
    if (octets.empty() || base64::encode(octets) != text) {
        invalid("the signature's " + shown(fromXml(element->name)) + " is not Base64");
    }
    return octets;
}

const xmlNode* rootOf(const xmlDoc* document) {
    return xmlDocGetRootElement(const_cast<xmlDoc*>(document));
}

} // namespace orvik::plugin::xml::internal
