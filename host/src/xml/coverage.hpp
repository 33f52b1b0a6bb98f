#pragma once

/// What a signature whose digests fit says about the document as its readers see it.

#include "references.hpp"

#include "orvik/plugin/xml/xml_document.hpp"

#include <string>
#include <vector>

namespace orvik::plugin::xml::internal {

/// What a walk over a document finds that canonical forms do not show.
struct DocumentFindings {
    bool comments = false;
    bool partedText = false;          ///< by a comment or a CDATA section
    bool instructionsOutside = false; ///< processing instructions before or after the document element
};

DocumentFindings lookAt(const xmlDoc* document);

struct Coverage {
    /// Why the document is not covered as a whole; empty when it is.
    std::string gap;
    std::vector<XmlCoveredPart> parts;   ///< without the signature's own SignedProperties
    std::vector<std::string> notCovered; ///< without the certificate
};

/// `targets` are those of the signature's references, in their order (null: the whole document).
Coverage coverageOf(const SignatureModel& signature, const std::vector<const xmlNode*>& targets,
                    const DocumentFindings& findings);

/// Whether one of the references covers the node.
bool isCovered(const xmlNode* node, const SignatureModel& signature, const std::vector<const xmlNode*>& targets);

} // namespace orvik::plugin::xml::internal
