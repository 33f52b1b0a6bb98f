#include "judged_signature.hpp"

namespace klunortredi::cli {

void judgeWeaknesses(JudgedSignature& signature) {
    signature.weak = weaknessesOf({signature.digestAlgorithm, signature.signatureDigest}, signature.certificate.get());
    if (const auto broken = brokenReason(signature.weak)) {
        signature.verdict = SignatureVerdict::invalid;
        signature.reason = *broken;
    }
}

} // namespace klunortredi::cli
