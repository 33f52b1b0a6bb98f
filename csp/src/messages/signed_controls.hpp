#pragma once

/// Checks of signers (CryptMsgControl) of a SignedData message that was read.

#include "capi/types.h"

namespace klunortredi::csp {

class SignedDecoder;

/// CMSG_CTRL_VERIFY_SIGNATURE: checks the first SignerInfo that `certificate` names, with its key. Says nothing of a
/// second SignerInfo that names the same certificate: who judges all signers uses `verifySigner`.
///
/// A CERT_INFO has no hash. Where signed attributes name the signer's certificate by its hash, the message's
/// certificates of the same issuer, serial number and key stand for it, and one of them must be the one named; where
/// the message brings none, only the attributes' form is judged.
///
/// Throws ApiError: CRYPT_E_SIGNER_NOT_FOUND when no signer names the certificate, else as of `checkSignature` and
/// `checkSigningCertificate`.
void verifyNamedSigner(const SignedDecoder& message, const CERT_INFO& certificate);

/// CMSG_CTRL_VERIFY_SIGNATURE_EX: checks the SignerInfo of that index alone, by a certificate context
/// (CMSG_VERIFY_SIGNER_CERT), which the SignerInfo must name, or by a CERT_PUBLIC_KEY_INFO (CMSG_VERIFY_SIGNER_PUBKEY):
/// a key alone names no certificate, so signed attributes that do are judged by their form only. hCryptProv is not
/// used.
///
/// Throws ApiError: ERROR_INVALID_PARAMETER for a wrong cbSize or signer, CRYPT_E_INVALID_INDEX, NTE_BAD_TYPE for other
/// kinds of signer, CRYPT_E_SIGNER_NOT_FOUND when the SignerInfo names another certificate, else as above.
void verifySigner(const SignedDecoder& message, const CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA& parameters);

} // namespace klunortredi::csp
