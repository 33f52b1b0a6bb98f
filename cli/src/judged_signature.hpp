#pragma once

/// What is known of one signature, of a signer or of a counter-signer.

#include "certificates.hpp"
#include "crypto/wincrypt/tools_verify.hpp"
#include "trust.hpp"
#include "weak.hpp"

#include <boost/date_time/posix_time/ptime.hpp>

#include <optional>
#include <string>
#include <vector>

namespace klunortredi::cli {

using orvik::plugin::wincrypt::tools::SignatureVerdict;

struct JudgedSignature {
    CertificatePtr certificate; ///< the one that was used; null when neither the message nor the caller has it
    SignatureVerdict verdict = SignatureVerdict::unknown;
    std::string reason;                   ///< why the signature is not valid; empty when it is
    boost::posix_time::ptime signingTime; ///< the signer's own statement; not set without one
    std::string digestAlgorithm;          ///< OID
    std::string signatureDigest;          ///< OID of the digest that the signature algorithm names, or of the algorithm
    std::vector<Weakness> weak;           ///< of both digests and of the key
    std::optional<Trust> trust;           ///< when the chain was judged
    boost::posix_time::ptime chainTime;   ///< at which it was judged, UTC; not set: now
    std::vector<JudgedSignature> counters; ///< over its signature value; they change nothing of its verdict
};

/// Looks for what is weak about the digests and the key of a signature; one that depends on something broken becomes
/// invalid.
void judgeWeaknesses(JudgedSignature& signature);

} // namespace klunortredi::cli
