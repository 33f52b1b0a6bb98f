#include "signature_model.hpp"

#include "limits.hpp"
#include "nodes.hpp"
#include "refusal.hpp"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <libxml/tree.h>

#include <array>
#include <string_view>

namespace orvik::plugin::xml::internal {

namespace {

struct CanonicalName {
    std::string_view uri;
    CanonicalMethod method;
};

// Comments are never in what is signed here: a SignedInfo with comments is refused, and references in the same document
// leave comments out whatever their transforms say (XML-DSig, section 4.4.3.3).
constexpr std::array canonicalNames = {
    CanonicalName{"http://www.w3.org/TR/2001/REC-xml-c14n-20010315", CanonicalMethod::inclusive10},
    CanonicalName{"http://www.w3.org/TR/2001/REC-xml-c14n-20010315#WithComments", CanonicalMethod::inclusive10},
    CanonicalName{"http://www.w3.org/2006/12/xml-c14n11", CanonicalMethod::inclusive11},
    CanonicalName{"http://www.w3.org/2006/12/xml-c14n11#WithComments", CanonicalMethod::inclusive11},
    CanonicalName{"http://www.w3.org/2001/10/xml-exc-c14n#", CanonicalMethod::exclusive},
    CanonicalName{"http://www.w3.org/2001/10/xml-exc-c14n#WithComments", CanonicalMethod::exclusive},
};
constexpr const char* xpathTransform = "http://www.w3.org/TR/1999/REC-xpath-19991116";
constexpr const char* manifestType = "http://www.w3.org/2000/09/xmldsig#Manifest";

/// Gives the children of an element one after the other, each by the name that is due.
class Children {
public:
    explicit Children(const xmlNode* parent) : parent_(parent), elements_(childElements(parent)) {}

    const xmlNode* take(const char* name) {
        const bool here = at_ < elements_.size() && isElement(elements_[at_], name);
        return here ? elements_[at_++] : nullptr;
    }
    const xmlNode* need(const char* name) {
        const xmlNode* found = take(name);
        if (found == nullptr) {
            invalid("the signature's " + shown(fromXml(parent_->name)) + " has no " + name + " in its place");
        }
        return found;
    }
    void end() const {
        if (at_ < elements_.size()) {
            invalid("the signature's " + shown(fromXml(parent_->name)) + " holds an element that is not allowed there");
        }
    }

private:
    const xmlNode* parent_;
    std::vector<const xmlNode*> elements_;
    std::size_t at_ = 0;
};

std::vector<std::string> inclusivePrefixes(const xmlNode* list) {
    std::vector<std::string> prefixes;
    const std::string text = attributeOf(list, "PrefixList");
    if (text.size() > limits::prefixesPerList * (limits::nameOctets + 1)) {
        unknown("the signature's list of namespace prefixes is longer than is read here");
    }
    boost::algorithm::split(prefixes, text, boost::algorithm::is_any_of(" \t\r\n"),
                            boost::algorithm::token_compress_on);
    std::erase(prefixes, "");
    if (prefixes.size() > limits::prefixesPerList) {
        unknown("the signature lists more namespace prefixes than are read here");
    }
    for (std::string& prefix : prefixes) {
        prefix = prefix == "#default" ? "" : prefix;
    }
    return prefixes;
}

/// Whether the expression is exactly "not(ancestor-or-self::P:Signature)", P a prefix of XML-DSig's namespace. Blanks
/// inside can change what an expression means, and are not allowed anywhere.
bool takesSignaturesOut(const xmlNode* xpath) {
    constexpr std::string_view before = "not(ancestor-or-self::";
    constexpr std::string_view after = ":Signature)";
    const std::string expression = textOf(xpath);
    if (!expression.starts_with(before) || !expression.ends_with(after) ||
        expression.size() <= before.size() + after.size()) {
        return false;
    }
    const std::string prefix = expression.substr(before.size(), expression.size() - before.size() - after.size());
    const xmlNs* ns = xmlSearchNs(xpath->doc, const_cast<xmlNode*>(xpath), toXml(prefix.c_str()));
    return xmlValidateNCName(toXml(prefix.c_str()), 0) == 0 && ns != nullptr &&
           xmlStrEqual(ns->href, toXml(dsigNs)) != 0;
}

void readXpath(const xmlNode* transform, Reference& reference) {
    Children children(transform);
    const xmlNode* xpath = children.need("XPath");
    children.end();
    if (!takesSignaturesOut(xpath)) {
        unknown("the signature uses an XPath expression that is not allowed");
    }
    reference.withoutSignatures = true;
}

void readTransforms(const xmlNode* transforms, Reference& reference) {
    Children children(transforms);
    bool canonical = false;
    std::size_t count = 0;
    while (const xmlNode* transform = children.take("Transform")) {
        if (++count > limits::transformsPerReference) {
            unknown("the signature has more transforms in a reference than are computed here");
        }
        const std::string uri = attributeOf(transform, "Algorithm");
        if (canonical) {
            unknown("the signature transforms a canonical form again, which is not supported");
        }
        if (uri == envelopedSignature) {
            Children(transform).end();
            reference.withoutSignature = true;
        } else if (uri == xpathTransform) {
            readXpath(transform, reference);
        } else if (auto form = readCanonicalForm(transform)) {
            reference.form = std::move(*form);
            canonical = true;
        } else {
            unknown("the signature uses a transform that is not supported: " + shown(uri));
        }
    }
    children.end();
}

bool isSameDocument(const std::string& uri) {
    return uri.empty() || (uri.front() == '#' && xmlValidateNCName(toXml(uri.c_str() + 1), 0) == 0);
}

Reference readReference(const xmlNode* node) {
    Reference reference;
    reference.node = node;
    if (xmlHasNsProp(const_cast<xmlNode*>(node), toXml("URI"), nullptr) == nullptr) {
        unknown("the signature has a reference without URI, which is not supported");
    }
    reference.uri = attributeOf(node, "URI");
    if (!isSameDocument(reference.uri)) {
        unknown("the signature refers to what is not supported: " + shown(reference.uri));
    }
    reference.manifest = attributeOf(node, "Type") == manifestType;
    Children children(node);
    if (const xmlNode* transforms = children.take("Transforms")) {
        readTransforms(transforms, reference);
    }
    const xmlNode* method = children.need("DigestMethod");
    Children(method).end();
    reference.digestMethod = attributeOf(method, "Algorithm");
    reference.digest = octetsOf(children.need("DigestValue"));
    children.end();
    return reference;
}

void readSignedInfo(const xmlNode* info, SignatureModel& model) {
    Children children(info);
    const xmlNode* canonicalization = children.need("CanonicalizationMethod");
    auto form = readCanonicalForm(canonicalization);
    if (!form) {
        unknown("the signature uses a canonicalization that is not supported: " +
                shown(attributeOf(canonicalization, "Algorithm")));
    }
    model.form = std::move(*form);
    const xmlNode* method = children.need("SignatureMethod");
    model.method = attributeOf(method, "Algorithm");
    for (const xmlNode* parameter : childElements(method)) {
        unknown("the signature's algorithm " + shown(model.method) +
                " has a parameter that is not supported: " + shown(fromXml(parameter->name)));
    }
    while (const xmlNode* reference = children.take("Reference")) {
        if (model.references.size() == limits::referencesPerSignature) {
            unknown("the signature has more references than are computed here");
        }
        model.references.push_back(readReference(reference));
    }
    children.end();
    if (model.references.empty()) {
        invalid("the signature covers nothing");
    }
}

} // namespace

std::optional<CanonicalForm> readCanonicalForm(const xmlNode* element) {
    const std::string uri = attributeOf(element, "Algorithm");
    for (const CanonicalName& known : canonicalNames) {
        if (known.uri != uri) {
            continue;
        }
        CanonicalForm form{known.method, {}};
        for (const xmlNode* child : childElements(element)) {
            if (known.method != CanonicalMethod::exclusive || !isElement(child, "InclusiveNamespaces", exclusiveC14n) ||
                !form.inclusivePrefixes.empty()) {
                invalid("the signature's canonicalization has a parameter that is not allowed");
            }
            form.inclusivePrefixes = inclusivePrefixes(child);
        }
        return form;
    }
    return {};
}

std::vector<const xmlNode*> signatureNodes(const xmlDoc* document) {
    std::vector<const xmlNode*> found;
    forEachNode(rootOf(document), [&](const xmlNode* node) {
        if (isElement(node, "Signature")) {
            found.push_back(node);
        }
    });
    return found;
}

SignatureModel readSignature(const xmlNode* signature) {
    SignatureModel model;
    model.node = signature;
    Children children(signature);
    model.signedInfo = children.need("SignedInfo");
    const xmlNode* value = children.need("SignatureValue");
    model.keyInfo = children.take("KeyInfo");
    while (const xmlNode* object = children.take("Object")) {
        model.objects.push_back(object);
    }
    children.end();
    readSignedInfo(model.signedInfo, model);
    model.value = octetsOf(value);
    return model;
}

} // namespace orvik::plugin::xml::internal
