#pragma once

/// Who signed a message, and what is known of each signature.

#include "certificates.hpp"
#include "counter_signatures.hpp"
#include "crypto/wincrypt/tools_verify.hpp"
#include "timestamp_verdict.hpp"
#include "trust.hpp"
#include "weak.hpp"

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace klunortredi::cli {

using orvik::plugin::wincrypt::tools::SignatureVerdict;
using orvik::plugin::wincrypt::tools::SignerVerdict;

struct Signer {
    CertificatePtr certificate; ///< the one that was used; null when neither the message nor the caller has it
    SignatureVerdict verdict = SignatureVerdict::unknown;
    std::string reason;                   ///< why the signature is not valid; empty when it is
    std::uint32_t code = 0;               ///< the service's, when it refused the signature
    boost::posix_time::ptime signingTime; ///< the signer's own statement; not set without one
    std::string digestAlgorithm;          ///< OID
    std::string signatureDigest;          ///< OID of the digest that the signature algorithm names, or of the algorithm
    std::vector<Timestamp> timestamps;    ///< on its signature value; they change nothing of its verdict
    std::vector<Weakness> weak;           ///< of digest and key
    std::optional<Trust> trust;           ///< when the chain was judged
    boost::posix_time::ptime chainTime;   ///< at which it was judged, UTC; not set: now
    std::vector<CounterSignature> counters; ///< over its signature value; they change nothing of its verdict
};

/// Why a verdict is unknown when the certificate of --signer-cert is not that of a signer.
inline constexpr const char* notOfASigner = "the certificate given with --signer-cert is not that of a signer";

/// Whether the certificate is that of one of the signers, whatever their verdicts.
bool isSigner(const orvik::plugin::crypto::ICertificate& certificate, const std::vector<Signer>& signers);

/// What every signer of an open message states, in the message's order, without any verdict. A SignerInfo that the
/// service cannot show gives an empty record. Throws SystemException when the message cannot be asked at all.
std::vector<Signer> readSigners(void* message);

/// DER of the certificates that an open message carries. Throws SystemException.
std::vector<std::string> readCertificates(void* message);

/// Takes a verdict of the service over, with its reason in words, and judges what is weak. `outside` is the certificate
/// that the user gave (may be null).
void judge(Signer& signer, const SignerVerdict& verdict, const CertificatePtr& outside);

/// Looks for what is weak about the digests and the key of a signer; one that depends on something broken becomes
/// invalid.
void judgeWeaknesses(Signer& signer);

} // namespace klunortredi::cli
