#include "coverage.hpp"

#include "namespace_use.hpp"
#include "nodes.hpp"
#include "signature_timestamps.hpp"
#include "unsigned_content.hpp"
#include "xades.hpp"

#include <algorithm>
#include <utility>

namespace orvik::plugin::xml::internal {

namespace {

constexpr std::size_t longestPath = 1024; // octets of a path that is shown
constexpr std::size_t siblingsCounted = 1000;

std::string nameOf(const xmlNode* element) {
    const bool prefixed = element->ns != nullptr && element->ns->prefix != nullptr;
    return (prefixed ? fromXml(element->ns->prefix) + ":" : "") + fromXml(element->name);
}

/// "name[n]": the n-th of that name among its siblings, which are not counted for ever.
std::string stepOf(const xmlNode* element) {
    std::size_t position = 1;
    std::size_t passed = 0;
    for (const xmlNode* node = element->prev; node != nullptr; node = node->prev) {
        if (++passed > siblingsCounted) {
            return nameOf(element) + "[?]";
        }
        const bool same = node->type == XML_ELEMENT_NODE && node->ns == element->ns;
        position += static_cast<std::size_t>(same && xmlStrEqual(node->name, element->name) != 0);
    }
    const bool root = element->parent == nullptr || element->parent->type == XML_DOCUMENT_NODE;
    return root ? nameOf(element) : nameOf(element) + "[" + std::to_string(position) + "]";
}

std::string pathOf(const xmlNode* element) {
    std::string path;
    for (const xmlNode* node = element; node != nullptr && node->type == XML_ELEMENT_NODE; node = node->parent) {
        path.insert(0, "/" + stepOf(node));
        if (path.size() > longestPath) {
            return "..." + path.substr(path.size() - longestPath);
        }
    }
    return path;
}

XmlCoveredPart partOf(const Reference& reference, const xmlNode* target) {
    return target == nullptr ? XmlCoveredPart{"/", {}} : XmlCoveredPart{pathOf(target), reference.uri.substr(1)};
}

bool covers(const Reference& reference, const xmlNode* target, const xmlNode* node, const SignatureModel& signature) {
    if (target != nullptr && !isWithin(node, target)) {
        return false;
    }
    for (; node != nullptr && node->type != XML_DOCUMENT_NODE; node = node->parent) {
        if (leavesOut(reference, signature, node)) {
            return false;
        }
    }
    return true;
}

bool isText(const xmlNode* node) {
    return node != nullptr && (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) &&
           xmlIsBlankNode(node) == 0;
}

/// Readers that take the first text of an element, or its first child, do not see the text that was signed when a
/// comment or the border of a CDATA section parts it; a canonical form shows neither.
bool partsText(const xmlNode* node) {
    return (node->type == XML_COMMENT_NODE || node->type == XML_CDATA_SECTION_NODE) &&
           (isText(node->prev) || isText(node->next));
}

bool hasManifest(const SignatureModel& signature) {
    const bool typed = std::any_of(signature.references.begin(), signature.references.end(),
                                   [](const Reference& reference) { return reference.manifest; });
    bool held = false;
    for (const xmlNode* object : signature.objects) {
        forEachNode(object, [&](const xmlNode* node) { held = held || isElement(node, "Manifest"); });
    }
    return typed || held;
}

/// Whether an Object holds something that neither the references nor XAdES account for.
bool hasLooseObject(const SignatureModel& signature, const std::vector<const xmlNode*>& targets) {
    const auto loose = [&](const xmlNode* object) {
        if (isCovered(object, signature, targets)) {
            return false;
        }
        for (const xmlNode* child = object->children; child != nullptr; child = child->next) {
            const bool blank = child->type == XML_TEXT_NODE && xmlIsBlankNode(child) != 0;
            if (!blank && !isQualifyingProperties(child) && !isCovered(child, signature, targets)) {
                return true;
            }
        }
        return false;
    };
    return std::any_of(signature.objects.begin(), signature.objects.end(), loose);
}

/// Whether there are unsigned properties beside time-stamps, which have verdicts of their own.
bool hasLooseProperties(const SignatureModel& signature, const std::vector<const xmlNode*>& targets) {
    const xmlNode* const properties = qualifyingPropertiesOf(signature);
    if (properties == nullptr || isCovered(properties, signature, targets)) {
        return false;
    }
    for (const xmlNode* part = properties->children; part != nullptr; part = part->next) {
        const bool loose = part->type == XML_ELEMENT_NODE && !isCovered(part, signature, targets) &&
                           (!isXades(part, "UnsignedProperties") || !areTimestampsAlone(part));
        if (loose) {
            return true;
        }
    }
    return false;
}

/// Whether the target is the signature's own SignedProperties, which are not a part of the document's content.
bool isOwnProperties(const xmlNode* target, const SignatureModel& signature) {
    return target != nullptr && isXades(target, "SignedProperties") && isWithin(target, signature.node);
}

/// Whether a reference covers the document element but for the signature; `instructions` says whether what stands
/// outside the document element is covered too.
bool coversRoot(const SignatureModel& signature, const std::vector<const xmlNode*>& targets, bool& instructions) {
    const xmlNode* const root = rootOf(signature.node->doc);
    bool found = false;
    for (std::size_t i = 0; i < targets.size(); ++i) {
        if (signature.node != root && (targets[i] == nullptr || targets[i] == root)) {
            found = true;
            instructions = instructions || targets[i] == nullptr;
        }
    }
    return found;
}

std::string gapOf(const SignatureModel& signature, const std::vector<const xmlNode*>& targets,
                  const DocumentFindings& findings) {
    bool instructions = false;
    if (!coversRoot(signature, targets, instructions)) {
        return "the signature covers only a part of the document";
    }
    if (hasManifest(signature)) {
        return "the signature covers a Manifest, whose digests are not checked";
    }
    if (hasLooseObject(signature, targets)) {
        return "the signature holds an Object that it does not cover";
    }
    if (hasForeignContent(signature, targets)) {
        return "the Signature element holds content of others that is not signed";
    }
    if (findings.instructionsOutside && !instructions) {
        return "the signature does not cover the processing instructions outside the document element";
    }
    return findings.partedText ? "a comment or CDATA section parts a text, which is not signed" : "";
}

} // namespace

DocumentFindings lookAt(const xmlDoc* document) {
    DocumentFindings findings;
    for (const xmlNode* node = document->children; node != nullptr; node = node->next) {
        findings.instructionsOutside = findings.instructionsOutside || node->type == XML_PI_NODE;
        findings.comments = findings.comments || node->type == XML_COMMENT_NODE;
    }
    forEachNode(rootOf(document), [&](const xmlNode* node) {
        findings.comments = findings.comments || node->type == XML_COMMENT_NODE;
        findings.partedText = findings.partedText || partsText(node);
    });
    return findings;
}

bool isCovered(const xmlNode* node, const SignatureModel& signature, const std::vector<const xmlNode*>& targets) {
    for (std::size_t i = 0; i < targets.size(); ++i) {
        if (covers(signature.references[i], targets[i], node, signature)) {
            return true;
        }
    }
    return false;
}

Coverage coverageOf(const SignatureModel& signature, const std::vector<const xmlNode*>& targets,
                    const DocumentFindings& findings) {
    Coverage coverage;
    for (std::size_t i = 0; i < targets.size(); ++i) {
        if (!isOwnProperties(targets[i], signature)) {
            coverage.parts.push_back(partOf(signature.references[i], targets[i]));
        }
    }
    coverage.gap = gapOf(signature, targets, findings);
    const bool others = std::any_of(signature.references.begin(), signature.references.end(),
                                    [](const Reference& reference) { return reference.withoutSignatures; });
    const std::pair<bool, const char*> rows[] = {
        {findings.comments, "comments"},
        {hasLooseNamespaces(signature, targets), "namespace declarations that no signed name uses"},
        {hasLooseProperties(signature, targets), "unsigned properties in the signature"},
        {hasManifest(signature), "what the Manifest lists"},
        {others, "other signatures in the document"},
        {!coverage.gap.empty(), "the rest of the document"},
    };
    for (const auto& [applies, text] : rows) {
        if (applies) {
            coverage.notCovered.emplace_back(text);
        }
    }
    return coverage;
}

} // namespace orvik::plugin::xml::internal
