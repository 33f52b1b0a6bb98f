#pragma once

#include "signers.hpp"

#include <string>
#include <vector>

namespace klunortredi::cli {

class Input;

/// What the signatures of an XML document say.
struct XmlVerdict {
    std::vector<Signer> signers;         ///< of each signature, in document order, with its verdict
    std::vector<std::string> covered;    ///< parts of the document that valid signatures cover
    std::vector<std::string> notChecked; ///< what of the document a valid signature does not protect
};

/// Whether a signature over a part of the document is valid.
enum class Coverage { whole, partial };

/// Judges every signature of the document; no signers when it carries none. `signer` is a signer's certificate that the
/// user gave; it may be null. The certificates of time-stamp authorities are looked for in the tokens, in `further`
/// (DER) and in the stores. Throws Failure when the document cannot be read, CryptoException unknownFormat or
/// ApplicationException emptyInput when it is not one that is judged.
XmlVerdict verifyXml(Input& document, Coverage required, const CertificatePtr& signer,
                     const std::vector<std::string>& further);

} // namespace klunortredi::cli
