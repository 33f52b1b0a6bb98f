#include "xades_writer.hpp"

#include "coverage.hpp"
#include "nodes.hpp"
#include "orvik/plugin/base64.hpp"
#include "refusal.hpp"
#include "xades.hpp"
#include "xml_writer.hpp"

namespace orvik::plugin::xml::internal {

namespace {

/// An Object with empty QualifyingProperties for the signature, which gets an identifier if it has none.
xmlNodePtr addProperties(xmlNodePtr signature) {
    if (xmlHasNsProp(signature, toXml("Id"), nullptr) == nullptr) {
        addAttribute(signature, "Id", newIdentifier("xmldsig-"));
    }
    const xmlNodePtr object = addChild(signature, "Object");
    const xmlNodePtr properties = addChild(object, "QualifyingProperties");
    xmlSetNs(properties, addNamespace(properties, xadesNs, "xades"));
    addAttribute(properties, "Target", "#" + attributeOf(signature, "Id"));
    return properties;
}

/// The properties' UnsignedSignatureProperties; made, with the UnsignedProperties around them, where they are missing.
xmlNodePtr unsignedSignatureProperties(xmlNodePtr properties) {
    const xmlNode* const known = xadesChild(properties, "UnsignedProperties");
    const xmlNodePtr all =
        known == nullptr ? addChild(properties, "UnsignedProperties") : const_cast<xmlNodePtr>(known);
    if (const xmlNode* const found = xadesChild(all, "UnsignedSignatureProperties")) {
        return const_cast<xmlNodePtr>(found);
    }
    const xmlNodePtr made = addChild(all, "UnsignedSignatureProperties");
    if (all->children != made) {
        xmlAddPrevSibling(all->children, made); // they come first
    }
    return made;
}

/// XML-DSig's namespace as the element can use it, declared there where no declaration above it holds.
xmlNsPtr dsigAt(xmlNodePtr element) {
    const xmlNsPtr found = xmlSearchNsByHref(element->doc, element, toXml(dsigNs));
    return found == nullptr ? addNamespace(element, dsigNs, "dsig") : found;
}

void requireUnsigned(const xmlNode* node, const SignatureModel& signature, const std::vector<const xmlNode*>& targets) {
    if (isCovered(node, signature, targets)) {
        refuseDocument("the signature covers the place of a time-stamp, which would make it invalid");
    }
}

/// The signature's own QualifyingProperties. Those of another version of XAdES have no place for ours.
xmlNodePtr propertiesOf(const SignatureModel& signature, const std::vector<const xmlNode*>& targets) {
    if (const xmlNode* const found = qualifyingPropertiesOf(signature)) {
        if (!isElement(found, "QualifyingProperties", xadesNs)) {
            refuseDocument(
                "the signature has properties of an older version of XAdES, which time-stamps are not added to");
        }
        requireUnsigned(found, signature, targets);
        return const_cast<xmlNodePtr>(found);
    }
    requireUnsigned(signature.node, signature, targets);
    return addProperties(const_cast<xmlNodePtr>(signature.node));
}

} // namespace

xmlNodePtr addSignedProperties(xmlNodePtr signature, const SignerStatement& statement) {
    const xmlNsPtr dsig = signature->ns;
    const xmlNodePtr signedProperties = addChild(addProperties(signature), "SignedProperties");
    addAttribute(signedProperties, "Id", newIdentifier("xades-"));
    const xmlNodePtr own = addChild(signedProperties, "SignedSignatureProperties");
    addChild(own, "SigningTime", statement.signingTime);
    const xmlNodePtr certificate = addChild(addChild(own, "SigningCertificateV2"), "Cert");
    const xmlNodePtr digest = addChild(certificate, "CertDigest");
    addMethod(digest, "DigestMethod", dsig, statement.digestUri);
    addChild(digest, "DigestValue", dsig, base64::encode(statement.certificateDigest));
    addChild(certificate, "IssuerSerialV2", base64::encode(statement.issuerSerial));
    return signedProperties;
}

xmlNodePtr timestampPlace(const SignatureModel& signature, const std::vector<const xmlNode*>& targets) {
    const xmlNodePtr place = unsignedSignatureProperties(propertiesOf(signature, targets));
    requireUnsigned(place, signature, targets);
    return place;
}

void addTimestamp(xmlNodePtr place, const std::string& token) {
    const xmlNodePtr timestamp = addChild(place, "SignatureTimeStamp");
    addAttribute(timestamp, "Id", newIdentifier("timestamp-"));
    addMethod(timestamp, "CanonicalizationMethod", dsigAt(timestamp), exclusiveC14n);
    addChild(timestamp, "EncapsulatedTimeStamp", base64::encode(token));
}

} // namespace orvik::plugin::xml::internal
