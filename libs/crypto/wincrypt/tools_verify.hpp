#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/optional.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace orvik::plugin::crypto {
class ICertificate;
}

namespace orvik::plugin::wincrypt::tools {

/// Checks the first signer of a CMS SignedData against its certificate, which the message must carry; `content` is the
/// content of a detached signature. Memory stays flat: content is hashed as it passes and kept nowhere.
///
/// Warning to hosts: true says that the first signer's signature holds. It says nothing of further signers, which may
/// be forged, nor of counter-signatures, nor of the certificate: its validity, its chain and its revocation are not
/// examined. `verifySigners` below judges every signer; `CertificateVerifier` judges a certificate's chain.
///
/// Never throws. A stream that breaks before its end (badbit) gives false. After false, GetLastErrorEx() reports why:
/// the service's code of the step that failed, or CRYPT_E_NOT_FOUND when the message carries no certificate of its
/// signer, and for a failure outside of the service, which only the log record names.
ORVIK_EXPORT bool verify(std::istream& signature, const boost::optional<std::istream&>& content);

/// What a caller may want of a signature besides the verdict. Everything may be left empty.
struct VerifyHooks {
    /// The signer's certificate, for a message that does not carry it.
    boost::shared_ptr<crypto::ICertificate> certificate;
    /// Takes the content of an attached signature as it passes, before anything is known of its validity; false ends
    /// the check with a false verdict.
    std::function<bool(const unsigned char* data, std::size_t size)> content;
    /// Looks at the open message (an HCRYPTMSG, which stays the check's) once its first signer is found valid.
    std::function<void(void* hMsg)> inspect;
};

/// The same check. What a hook throws counts as a failed check, as everything else does.
ORVIK_EXPORT bool verify(std::istream& signature, const boost::optional<std::istream&>& content,
                         const VerifyHooks& hooks);

/// The certificate of the first signer of an open message, from those that the message carries; null when it is not
/// among them. Throws SystemException.
ORVIK_EXPORT boost::shared_ptr<crypto::ICertificate> certificate(void* hMsg);

/// What is known of one signature.
enum class SignatureVerdict {
    valid,   ///< the signature value, the signed attributes and the content fit together under the certificate's key
    invalid, ///< they do not
    unknown, ///< it could not be judged: certificate missing, algorithm unknown or not offered, failure of the service
};

struct SignerVerdict {
    SignatureVerdict verdict;
    /// The service's code, 0 when valid; CRYPT_E_SIGNER_NOT_FOUND when the signer's certificate is missing.
    unsigned code;
    /// The certificate that was used; when valid, the one whose key verified. Null when there is none.
    boost::shared_ptr<crypto::ICertificate> certificate;
};

/// Judges every signer (RFC 5652, 5.3) of an open message whose content was fed, each by its index, by means of
/// CMSG_CTRL_VERIFY_SIGNATURE_EX. One verdict per SignerInfo, in the message's order; a message that carries
/// certificates only has no signer and gives an empty vector.
///
/// `outside` (may be null) decides for each signer that it is the certificate of (by issuer and serial number or key
/// identifier), even where the message brings another certificate of the same issuer and serial number. For the other
/// signers the message's certificates are tried, up to four different ones of the same name.
///
/// Chain, validity and revocation of the certificates are not examined. A service that does not know the control gives
/// `unknown` with CRYPT_E_CONTROL_TYPE. Throws SystemException when the message cannot be asked at all.
ORVIK_EXPORT std::vector<SignerVerdict> judgeSigners(void* hMsg,
                                                     const boost::shared_ptr<crypto::ICertificate>& outside);

/// A counter-signature (RFC 5652, 11.4): a signature over the signature value of a signer.
struct CounterSignature {
    SignatureVerdict verdict;
    unsigned code; ///< as of SignerVerdict
    /// As of SignerVerdict; from the message's certificates only.
    boost::shared_ptr<crypto::ICertificate> certificate;
    /// Its place in the list of what it covers; none: the signer's own signature.
    boost::optional<std::size_t> parent;
    /// Value of its signing-time attribute (RFC 5652, 11.3), DER; empty when absent. Signed when the verdict is valid.
    std::string signingTime;
    std::string digestAlgorithm;     ///< OID; empty when it cannot be read
    std::string signatureAlgorithm;  ///< likewise
    std::string signatureParameters; ///< of the signature algorithm: one DER element; empty when absent
};

/// The counter-signatures of signer `index` of an open message, nested ones after what they cover. An invalid one does
/// not make the signer's signature invalid. Chains are not examined.
///
/// Only the embedded service judges counter-signatures (CMSG_COUNTER_SIGNATURES_PARAM). For another service, and for
/// more of them than the embedded one takes, each value of the unsigned attribute gives one entry, `unknown` with the
/// service's code. Throws SystemException when the signer cannot be read.
ORVIK_EXPORT std::vector<CounterSignature> counterSignatures(void* hMsg, unsigned index);

/// Reads the signature (and the content of a detached one) and judges every signer, as above; `hooks.certificate` is
/// `outside`. `hooks.inspect` sees the open message after all signers were judged, whatever the verdicts.
///
/// Throws SystemException with the service's code when the message or the content cannot be read (CRYPT_E_ASN1_... for
/// what is not a message, CRYPT_E_MSG_ERROR when `hooks.content` returns false), std::ios_base::failure when a stream
/// breaks before its end (badbit), and what the hooks throw. With CRYPT_E_ASN1_LARGE of the embedded service a Message_
/// names the limit that the message exceeds.
ORVIK_EXPORT std::vector<SignerVerdict>
verifySigners(std::istream& signature, const boost::optional<std::istream&>& content, const VerifyHooks& hooks);

} // namespace orvik::plugin::wincrypt::tools
