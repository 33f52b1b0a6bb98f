#include "strict.hpp"

#include <optional>
#include <string>

namespace klunortredi::cli {

namespace {

/// The first thing that is weak about a signature, or about a certificate of its chain; empty without any.
std::string firstWeakness(const JudgedSignature& signature) {
    if (!signature.weak.empty()) {
        return describe(signature.weak.front());
    }
    for (std::size_t i = 0; signature.trust && i < signature.trust->elements.size(); ++i) {
        const TrustElement& element = signature.trust->elements[i];
        if (!element.weak.empty()) {
            return subjectOf(*element.certificate) + ": " + element.weak.front();
        }
    }
    return {};
}

std::optional<StrictRefusal> refusalOf(const std::vector<JudgedSignature>& counters);

std::optional<StrictRefusal> refusalOf(const JudgedSignature& counter) {
    const std::string who =
        "counter-signature" + (counter.certificate ? " of " + subjectOf(*counter.certificate) : std::string{}) + ": ";
    if (counter.verdict != SignatureVerdict::valid) {
        return StrictRefusal{counter.verdict, who + counter.reason};
    }
    if (const std::string weakness = firstWeakness(counter); !weakness.empty()) {
        return StrictRefusal{SignatureVerdict::invalid, who + weakness};
    }
    return refusalOf(counter.counters);
}

/// Of the first that is refused, or that has one over it that is.
std::optional<StrictRefusal> refusalOf(const std::vector<JudgedSignature>& counters) {
    for (const JudgedSignature& counter : counters) {
        if (const auto refusal = refusalOf(counter)) {
            return refusal;
        }
    }
    return std::nullopt;
}

std::optional<StrictRefusal> refusalOf(const Signer& signer) {
    if (const std::string weakness = firstWeakness(signer); !weakness.empty()) {
        return StrictRefusal{SignatureVerdict::invalid, weakness};
    }
    const auto ofTimestamps = strictRefusal(signer.timestamps);
    return ofTimestamps ? ofTimestamps : refusalOf(signer.counters);
}

} // namespace

void applyStrict(std::vector<Signer>& signers) {
    for (Signer& signer : signers) {
        const auto refusal = signer.verdict == SignatureVerdict::valid ? refusalOf(signer) : std::nullopt;
        if (refusal) {
            signer.verdict = refusal->verdict;
            signer.reason = "refused by --strict: " + refusal->reason;
        }
    }
}

} // namespace klunortredi::cli
