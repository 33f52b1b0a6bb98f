#pragma once

/// Counter-signatures (RFC 5652, 11.4): signatures over a signer's signature value. They are not signed by the signer:
/// whoever has a message can add one, so none of them changes the signer's verdict.

#include "certificates.hpp"
#include "crypto/wincrypt/tools_verify.hpp"

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace klunortredi::cli {

struct CounterSignature {
    orvik::plugin::wincrypt::tools::SignatureVerdict verdict;
    std::string reason;                     ///< why it is not valid; empty when it is
    CertificatePtr certificate;             ///< from the message; null when it does not have it
    boost::posix_time::ptime signingTime;   ///< the counter-signer's own statement; not set without one
    std::vector<CounterSignature> counters; ///< those over this one
};

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

} // namespace klunortredi::cli
