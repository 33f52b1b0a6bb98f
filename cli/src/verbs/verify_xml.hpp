#pragma once

#include "signers.hpp"

#include <string>
#include <vector>

namespace klunortredi::cli {

class Input;

/// What the signatures of an XML document say.
struct XmlVerdict {
    bool valid = false;
    std::string reason;          ///< why it is not
    std::vector<Signer> signers; ///< of each signature, when all are valid
};

/// Valid when the document carries at least one signature and every one is valid. Throws Failure (exit 3) when the
/// document is too large to hold, or is not well-formed.
XmlVerdict verifyXml(Input& document);

} // namespace klunortredi::cli
