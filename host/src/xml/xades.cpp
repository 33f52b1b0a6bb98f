#include "xades.hpp"

#include "coverage.hpp"
#include "nodes.hpp"
#include "refusal.hpp"

#include <algorithm>
#include <array>

namespace orvik::plugin::xml::internal {

namespace {

constexpr std::array namespaces = {"http://uri.etsi.org/01903/v1.3.2#", "http://uri.etsi.org/01903/v1.2.2#",
                                   "http://uri.etsi.org/01903/v1.1.1#"};
constexpr const char* timeStampNamespace = "http://uri.etsi.org/01903/v1.4.1#"; // of properties alone
constexpr std::size_t mostNamed = 4; // honest signatures have one such property, or one of either version

bool isXades(const xmlNode* node, const char* name) {
    return std::any_of(namespaces.begin(), namespaces.end(), [&](const char* ns) { return isElement(node, name, ns); });
}

/// The first element of that name in the subtree of XAdES; null when there is none.
const xmlNode* find(const xmlNode* top, bool (*matches)(const xmlNode*)) {
    const xmlNode* found = nullptr;
    forEachNode(top, [&](const xmlNode* node) { found = found == nullptr && matches(node) ? node : found; });
    return found;
}

NamedCertificate named(const xmlNode* property) {
    const xmlNode* const digest = find(property, [](const xmlNode* node) { return isXades(node, "CertDigest"); });
    const auto parts = digest == nullptr ? std::vector<const xmlNode*>() : childElements(digest);
    if (parts.size() != 2 || !isElement(parts[0], "DigestMethod") || !isElement(parts[1], "DigestValue")) {
        invalid("the signature's signing-certificate property names no certificate");
    }
    return {attributeOf(parts[0], "Algorithm"), octetsOf(parts[1])};
}

bool isSigningCertificate(const xmlNode* node) {
    return isXades(node, "SigningCertificate") || isXades(node, "SigningCertificateV2");
}

} // namespace

bool isQualifyingProperties(const xmlNode* node) {
    return isXades(node, "QualifyingProperties");
}

bool isUnsignedProperties(const xmlNode* node) {
    return isXades(node, "UnsignedProperties");
}

bool isOfXades(const xmlNode* element) {
    const xmlChar* const ns = element->ns == nullptr ? nullptr : element->ns->href;
    return xmlStrEqual(ns, toXml(timeStampNamespace)) != 0 ||
           std::any_of(namespaces.begin(), namespaces.end(),
                       [&](const char* known) { return xmlStrEqual(ns, toXml(known)) != 0; });
}

std::vector<NamedCertificate> namedCertificates(const SignatureModel& signature,
                                                const std::vector<const xmlNode*>& targets) {
    std::vector<NamedCertificate> found;
    for (const xmlNode* object : signature.objects) {
        forEachNode(object, [&](const xmlNode* node) {
            if (isSigningCertificate(node) && found.size() < mostNamed && isCovered(node, signature, targets)) {
                found.push_back(named(node));
            }
        });
    }
    return found;
}

} // namespace orvik::plugin::xml::internal
