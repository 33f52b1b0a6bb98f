#pragma once

#include <libxml/tree.h>

#include <string>
#include <vector>

namespace orvik::plugin::xml::internal {

/// Every dsig:Signature element of the document, in document order.
std::vector<xmlNodePtr> signatureNodes(xmlDocPtr document);

/// DER of the certificates in the signature's own KeyInfo, in order, up to a bound that no honest signer reaches; what
/// is not Base64 is left out.
std::vector<std::string> keyInfoCertificates(const xmlNode* signature);

/// URIs of the signature's own algorithm and of its references' digests.
std::vector<std::string> algorithmUris(const xmlNode* signature);

/// Whether every XPath transform of the signature is the usual one, "not(ancestor-or-self::dsig:Signature)", which
/// takes all signatures out of the document. Any other expression may leave out more than a reader sees, and cost
/// without bound.
bool hasOnlyPlainXpath(const xmlNode* signature);

/// Makes the attributes Id, ID and id identifiers, to which "#..." references lead. False when two elements have the
/// same one: a reference would be ambiguous then.
bool registerIds(xmlDocPtr document);

} // namespace orvik::plugin::xml::internal
