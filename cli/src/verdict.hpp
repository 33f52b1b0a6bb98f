#pragma once

/// The verdict on a whole signature or document.

#include "message_crls.hpp"
#include "signers.hpp"

#include <optional>
#include <string>
#include <vector>

namespace klunortredi::cli {

struct Verdict {
    SignatureVerdict verdict = SignatureVerdict::unknown;
    std::string format;                    ///< attached, detached or xmldsig
    std::string reason;                    ///< why it is not valid; empty when it is
    std::vector<Signer> signers;           ///< valid and others, in the order of the message
    std::vector<std::string> covered;      ///< parts of an XML document that are signed
    std::vector<std::string> notChecked;   ///< what the verdict does not cover
    std::vector<std::string> certificates; ///< DER of those that the message carries; read when chains are judged
    MessageCrls crls;                      ///< likewise
    std::optional<Trust> trust;            ///< of the signers that were required, when chains were judged
};

} // namespace klunortredi::cli
