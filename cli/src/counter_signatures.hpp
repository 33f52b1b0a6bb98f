#pragma once

/// Counter-signatures (RFC 5652, 11.4): signatures over a signer's signature value. They are not signed by the signer:
/// whoever has a message can add one, so none of them changes the signer's verdict.

#include "judged_signature.hpp"

#include <cstddef>
#include <vector>

namespace klunortredi::cli {

/// Its certificate comes from the message; null when the message does not have it.
using CounterSignature = JudgedSignature;

/// Reads the counter-signatures of the signers of one message, and counts them: the work that a message can cause is
/// bounded.
class CounterSignatureReader {
public:
    /// `message` is an HCRYPTMSG, which outlives this.
    explicit CounterSignatureReader(void* message) : message_(message) {}

    /// The judged counter-signatures of the signer at `index`, in the message's order. Past the limit of a message, and
    /// where the service cannot show them, one entry that is not judged stands for all of the signer's. Call it only
    /// for a signer that has the attribute.
    std::vector<CounterSignature> read(unsigned index);

private:
    void* message_;
    std::size_t judged_ = 0; ///< of the signers so far
};

/// Whether one of them, or of those over it, was not judged.
bool anyUnknown(const std::vector<CounterSignature>& counters);
/// Whether one of them, or of those over it, is valid.
bool anyValid(const std::vector<CounterSignature>& counters);

} // namespace klunortredi::cli
