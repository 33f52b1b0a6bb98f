#pragma once

/// Counter-signatures (RFC 5652, 11.4): signatures over the signature value of a signer, in its unsigned attributes.

#include "capi/types.h"
#include "messages/carried_certificates.hpp"
#include "messages/signer_info.hpp"

#include <vector>

namespace klunortredi::csp {

struct CounterSignature {
    SignerInfo signer; ///< empty when malformed
    DWORD parent = 0;  ///< its place in the list, or capi::CMSG_NO_PARENT when the signer itself is countersigned
    DWORD error = 0;   ///< 0 when it holds
    Bytes certificate; ///< DER of the one that was used; empty when the message does not bring it
};

/// Judges every counter-signature of `signer`, and those of counter-signatures, a parent before its children. The
/// certificates are those that the message carries; the first that the counter-signer names and whose key verifies is
/// taken. Nothing is said of their chains.
///
/// Errors in the list are as of `checkCounterSignature` and `checkSigningCertificate`, CRYPT_E_SIGNER_NOT_FOUND without
/// certificate, CRYPT_E_ASN1_... for a malformed one. Beyond limits::counterSignatures, one empty entry for each parent
/// with CRYPT_E_ASN1_LARGE stands for those that are not judged.
std::vector<CounterSignature> judgeCounterSignatures(const SignerInfo& signer, const CarriedCertificates& certificates);

} // namespace klunortredi::csp
