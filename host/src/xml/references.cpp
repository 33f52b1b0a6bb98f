#include "references.hpp"

#include "limits.hpp"
#include "nodes.hpp"
#include "refusal.hpp"
#include "signature_algorithms.hpp"

#include <openssl/crypto.h>

#include <string_view>

namespace orvik::plugin::xml::internal {

namespace {

bool isIdentifier(const xmlAttr* attribute) {
    const std::string_view name = reinterpret_cast<const char*>(attribute->name);
    return name == "Id" || name == "ID" || name == "id";
}

std::string textOf(const xmlAttr* attribute) {
    const TextPtr value(xmlNodeListGetString(attribute->doc, attribute->children, 1));
    return fromXml(value.get());
}

/// xml:id is trimmed by readers that know it, and so is any other here: a blank must not hide a second carrier.
std::string identifierOf(const xmlAttr* attribute) {
    const std::string text = textOf(attribute);
    const auto first = text.find_first_not_of(" \t\r\n");
    return first == std::string::npos ? std::string()
                                      : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

/// Whether other readers find the element by this attribute too: xml:id, or one without namespace and without blanks.
bool resolves(const xmlAttr* attribute) {
    if (attribute->ns == nullptr) {
        return textOf(attribute) == identifierOf(attribute);
    }
    return xmlStrEqual(attribute->ns->href, XML_XML_NAMESPACE) != 0 && xmlStrEqual(attribute->name, toXml("id")) != 0;
}

bool sameOctets(const std::string& a, const std::string& b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

} // namespace

Targets::Targets(const xmlDoc* document, const std::vector<SignatureModel>& signatures) {
    for (const SignatureModel& signature : signatures) {
        for (const Reference& reference : signature.references) {
            if (!reference.uri.empty()) {
                carriers_[reference.uri.substr(1)];
            }
        }
    }
    if (carriers_.empty()) {
        return;
    }
    forEachNode(rootOf(document), [this](const xmlNode* node) {
        if (node->type == XML_ELEMENT_NODE) {
            for (const xmlAttr* attribute = node->properties; attribute != nullptr; attribute = attribute->next) {
                if (isIdentifier(attribute)) {
                    note(node, attribute);
                }
            }
        }
    });
}

void Targets::note(const xmlNode* element, const xmlAttr* attribute) {
    const auto found = carriers_.find(identifierOf(attribute));
    if (found == carriers_.end()) {
        return;
    }
    Carrier& carrier = found->second;
    carrier.several = carrier.several || (carrier.element != nullptr && carrier.element != element);
    carrier.element = carrier.element == nullptr ? element : carrier.element;
    carrier.resolves = carrier.resolves || internal::resolves(attribute);
}

const xmlNode* Targets::of(const Reference& reference) const {
    if (reference.uri.empty()) {
        return nullptr;
    }
    const Carrier& carrier = carriers_.at(reference.uri.substr(1));
    if (carrier.several) {
        invalid("two elements have the same identifier");
    }
    if (carrier.element == nullptr || !carrier.resolves) {
        invalid("the signature refers to an identifier that no element has: " + shown(reference.uri));
    }
    return carrier.element;
}

bool leavesOut(const Reference& reference, const SignatureModel& signature, const xmlNode* node) {
    return (reference.withoutSignature && node == signature.node) ||
           (reference.withoutSignatures && isElement(node, "Signature"));
}

void checkReference(const Reference& reference, const SignatureModel& signature, const xmlNode* target,
                    CanonicalBudget& budget) {
    const DigestAlgorithm* const algorithm = digestAlgorithm(reference.digestMethod);
    if (algorithm == nullptr) {
        unknown("the signature uses a digest that is not supported: " + shown(reference.digestMethod));
    }
    const auto out = [&](const xmlNode* node) { return leavesOut(reference, signature, node); };
    for (const xmlNode* node = target; node != nullptr && node->type == XML_ELEMENT_NODE; node = node->parent) {
        if (out(node)) {
            invalid("the signature's reference " + shown(reference.uri) + " leaves out all that it leads to");
        }
    }
    Digest digest(*algorithm);
    canonicalize(signature.node->doc, target, reference.form, out, budget,
                 [&digest](std::string_view octets) { digest.update(octets); });
    if (!sameOctets(digest.finish(), reference.digest)) {
        invalid("the document has been changed: the digest of the reference \"" + shown(reference.uri) +
                "\" does not fit");
    }
}

} // namespace orvik::plugin::xml::internal
