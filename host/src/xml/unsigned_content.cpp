#include "unsigned_content.hpp"

#include "coverage.hpp"
#include "nodes.hpp"
#include "xades.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace orvik::plugin::xml::internal {

namespace {

constexpr const char* dsig11Ns = "http://www.w3.org/2009/xmldsig11#";

/// Elements of XML-DSig that do not belong into a KeyInfo, where they would pass for something signed.
constexpr std::array notOfKeyInfo = {"Signature", "SignedInfo", "Object", "Manifest", "SignatureProperties"};

/// An attribute without namespace that an element of the schemas may have.
struct AllowedAttribute {
    std::string_view element; ///< "" for any
    std::string_view attribute;
};
constexpr std::array allowedAttributes = {
    AllowedAttribute{"", "Id"},
    AllowedAttribute{"Object", "MimeType"},
    AllowedAttribute{"Object", "Encoding"},
    AllowedAttribute{"NamedCurve", "URI"},
    AllowedAttribute{"RetrievalMethod", "URI"},
    AllowedAttribute{"RetrievalMethod", "Type"},
    AllowedAttribute{"KeyInfoReference", "URI"},
    AllowedAttribute{"X509Digest", "Algorithm"},
    AllowedAttribute{"DigestMethod", "Algorithm"},
    AllowedAttribute{"Transform", "Algorithm"},
    AllowedAttribute{"QualifyingProperties", "Target"},
    // Of XAdES and of signatures in its unsigned properties.
    AllowedAttribute{"CanonicalizationMethod", "Algorithm"},
    AllowedAttribute{"EncapsulatedTimeStamp", "Encoding"},
    AllowedAttribute{"EncapsulatedX509Certificate", "Encoding"},
    AllowedAttribute{"EncapsulatedCRLValue", "Encoding"},
    AllowedAttribute{"EncapsulatedOCSPValue", "Encoding"},
    AllowedAttribute{"OtherCertificate", "Encoding"},
    AllowedAttribute{"Include", "URI"},
    AllowedAttribute{"Include", "referencedData"},
    AllowedAttribute{"Reference", "URI"},
    AllowedAttribute{"Reference", "Type"},
    AllowedAttribute{"SignatureMethod", "Algorithm"},
    AllowedAttribute{"SignatureProperty", "Target"},
    AllowedAttribute{"CRLIdentifier", "URI"},
    AllowedAttribute{"OCSPIdentifier", "URI"},
    AllowedAttribute{"CertRefs", "URI"},
    AllowedAttribute{"Cert", "URI"},
    AllowedAttribute{"Identifier", "Qualifier"},
    AllowedAttribute{"ReferenceInfo", "URI"},
    AllowedAttribute{"TimeStampValidationData", "URI"},
    AllowedAttribute{"SignaturePolicyStore", "Target"},
};

bool hasForeignAttribute(const xmlNode* element) {
    const std::string name = fromXml(element->name);
    for (const xmlAttr* attribute = element->properties; attribute != nullptr; attribute = attribute->next) {
        const std::string own = fromXml(attribute->name);
        const auto fits = [&](const AllowedAttribute& row) {
            return row.attribute == own && (row.element.empty() || row.element == name);
        };
        if (attribute->ns != nullptr || std::none_of(allowedAttributes.begin(), allowedAttributes.end(), fits)) {
            return true;
        }
    }
    return false;
}

bool isBlankText(const xmlNode* node) {
    return node->type == XML_TEXT_NODE && xmlIsBlankNode(node) != 0;
}

/// Whether the children are of one kind: elements with blanks between them, or text alone. Comments belong to neither
/// and are named as not signed.
bool mixesTextAndElements(const xmlNode* element) {
    bool elements = false;
    bool text = false;
    for (const xmlNode* child = element->children; child != nullptr; child = child->next) {
        elements = elements || child->type == XML_ELEMENT_NODE;
        text = text || (child->type != XML_ELEMENT_NODE && child->type != XML_COMMENT_NODE && !isBlankText(child));
    }
    return elements && text;
}

bool isOfKeyInfo(const xmlNode* element) {
    const std::string ns = element->ns == nullptr ? std::string() : fromXml(element->ns->href);
    const std::string name = fromXml(element->name);
    return ns == dsig11Ns ||
           (ns == dsigNs && std::find(notOfKeyInfo.begin(), notOfKeyInfo.end(), name) == notOfKeyInfo.end());
}

/// Elements of KeyInfo that hold elements alone; others hold text alone.
bool holdsElementsAlone(const xmlNode* element) {
    constexpr std::array containers = {"KeyInfo",     "KeyValue",   "X509Data", "X509IssuerSerial", "RSAKeyValue",
                                       "DSAKeyValue", "ECKeyValue", "PGPData",  "SPKIData"};
    return std::any_of(containers.begin(), containers.end(),
                       [&](const char* name) { return xmlStrEqual(element->name, toXml(name)) != 0; });
}

bool hasText(const xmlNode* element) {
    for (const xmlNode* child = element->children; child != nullptr; child = child->next) {
        if ((child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) && !isBlankText(child)) {
            return true;
        }
    }
    return false;
}

bool isForeignToKeyInfo(const xmlNode* node) {
    if (node->type == XML_PI_NODE) {
        return true;
    }
    return node->type == XML_ELEMENT_NODE &&
           (!isOfKeyInfo(node) || hasForeignAttribute(node) || mixesTextAndElements(node) ||
            (holdsElementsAlone(node) && hasText(node)));
}

bool hasForeignKeyInfo(const SignatureModel& signature, const std::vector<const xmlNode*>& targets) {
    if (signature.keyInfo == nullptr || isCovered(signature.keyInfo, signature, targets)) {
        return false;
    }
    bool foreign = false;
    forEachNode(signature.keyInfo, [&](const xmlNode* node) { foreign = foreign || isForeignToKeyInfo(node); });
    return foreign;
}

bool isOfDsig(const xmlNode* element) {
    const std::string ns = element->ns == nullptr ? std::string() : fromXml(element->ns->href);
    return ns == dsigNs || ns == dsig11Ns;
}

/// Whether unsigned properties hold, on any level, an element or attribute that neither XAdES nor XML-DSig defines, a
/// processing instruction, or text beside elements. The properties and their kinds hold elements alone.
bool isForeignToProperties(const xmlNode* properties) {
    bool foreign = hasText(properties);
    for (const xmlNode* kind = properties->children; kind != nullptr; kind = kind->next) {
        foreign = foreign || hasText(kind);
    }
    forEachNode(properties, [&](const xmlNode* node) {
        const bool element = node->type == XML_ELEMENT_NODE;
        foreign = foreign || node->type == XML_PI_NODE ||
                  (element &&
                   ((!isOfXades(node) && !isOfDsig(node)) || hasForeignAttribute(node) || mixesTextAndElements(node)));
    });
    return foreign;
}

/// Whether the properties say that they are those of another signature.
bool targetsAnother(const xmlNode* properties, const SignatureModel& signature) {
    return xmlHasProp(const_cast<xmlNode*>(properties), toXml("Target")) != nullptr &&
           attributeOf(properties, "Target") != "#" + attributeOf(signature.node, "Id");
}

/// Whether properties that no reference covers hold more than XAdES's unsigned properties: SignedProperties, which
/// readers take for signed, or content of others; or are those of another signature.
bool hasForeignProperties(const xmlNode* properties, const SignatureModel& signature,
                          const std::vector<const xmlNode*>& targets) {
    if (hasForeignAttribute(properties) || targetsAnother(properties, signature) || mixesTextAndElements(properties) ||
        hasText(properties)) {
        return true;
    }
    for (const xmlNode* part = properties->children; part != nullptr; part = part->next) {
        if (part->type != XML_ELEMENT_NODE) {
            if (part->type == XML_PI_NODE) {
                return true;
            }
            continue;
        }
        if (isCovered(part, signature, targets)) {
            continue;
        }
        if (!isXades(part, "UnsignedProperties") || isForeignToProperties(part)) {
            return true;
        }
    }
    return false;
}

bool hasForeignObject(const xmlNode* object, const SignatureModel& signature,
                      const std::vector<const xmlNode*>& targets) {
    if (isCovered(object, signature, targets)) {
        return false;
    }
    if (hasForeignAttribute(object)) {
        return true;
    }
    for (const xmlNode* child = object->children; child != nullptr; child = child->next) {
        if (isQualifyingProperties(child) && !isCovered(child, signature, targets) &&
            hasForeignProperties(child, signature, targets)) {
            return true;
        }
    }
    return false;
}

} // namespace

bool hasForeignContent(const SignatureModel& signature, const std::vector<const xmlNode*>& targets) {
    for (const xmlNode* child = signature.node->children; child != nullptr; child = child->next) {
        if (isElement(child, "SignatureValue") && hasForeignAttribute(child)) {
            return true;
        }
    }
    return hasForeignAttribute(signature.node) || hasForeignKeyInfo(signature, targets) ||
           std::any_of(signature.objects.begin(), signature.objects.end(),
                       [&](const xmlNode* object) { return hasForeignObject(object, signature, targets); });
}

} // namespace orvik::plugin::xml::internal
