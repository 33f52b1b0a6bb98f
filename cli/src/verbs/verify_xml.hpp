#pragma once

#include "signers.hpp"

#include <string>
#include <vector>

namespace klunortredi::cli {

class Input;

/// What the signatures of an XML document say.
struct XmlVerdict {
    bool valid = false;
    std::string reason;                  ///< why it is not
    std::vector<Signer> signers;         ///< of each signature, when all are valid
    std::vector<std::string> covered;    ///< parts of the document that the signatures cover, when all are valid
    std::vector<std::string> notChecked; ///< what of the document no signature protects
};

/// Whether a signature over a part of the document is valid.
enum class Coverage { whole, partial };

/// Valid when the document carries at least one signature and every one is valid. Throws Failure: exit 3 when the
/// document is not well-formed or not one that is read, exit 4 when a signature can be called neither valid nor forged.
XmlVerdict verifyXml(Input& document, Coverage required = Coverage::whole);

} // namespace klunortredi::cli
