#pragma once

/// Who signed a message, and what is known of each signature.

#include "certificates.hpp"
#include "crypto/wincrypt/tools_verify.hpp"
#include "judged_signature.hpp"
#include "timestamp_verdict.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace klunortredi::cli {

using orvik::plugin::wincrypt::tools::SignerVerdict;

struct Signer : JudgedSignature {
    std::uint32_t code = 0;            ///< the service's, when it refused the signature
    std::vector<Timestamp> timestamps; ///< on its signature value; they change nothing of its verdict
};

/// Why a verdict is unknown when the certificate of --signer-cert is not that of a signer.
inline constexpr const char* notOfASigner = "the certificate given with --signer-cert is not that of a signer";

/// Whether the certificate is that of one of the signers, whatever their verdicts.
bool isSigner(const orvik::plugin::crypto::ICertificate& certificate, const std::vector<Signer>& signers);

/// What every signer of an open message states, in the message's order, without any verdict. A SignerInfo that the
/// service cannot show gives an empty record. The certificates of time-stamp authorities are looked for in the tokens,
/// in the message, in `further` (DER) and in the stores. Throws SystemException when the message cannot be asked at
/// all.
std::vector<Signer> readSigners(void* message, const std::vector<std::string>& further = {});

/// DER of the certificates that an open message carries. Throws SystemException.
std::vector<std::string> readCertificates(void* message);

/// Takes a verdict of the service over, with its reason in words, and judges what is weak. `outside` is the certificate
/// that the user gave (may be null).
void judge(Signer& signer, const SignerVerdict& verdict, const CertificatePtr& outside);

} // namespace klunortredi::cli
