#include "messages/signed_controls.hpp"

#include "core/error.hpp"
#include "messages/carried_certificates.hpp"
#include "messages/signature_check.hpp"
#include "messages/signed_decoder.hpp"
#include "messages/signer_match.hpp"
#include "messages/signing_certificate.hpp"
#include "stores/context.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

void checkKey(const SignedDecoder& message, const SignerInfo& signer, ByteView subjectPublicKeyInfo) {
    checkSignature(signer, message.contentType(), message.signedContent(), subjectPublicKeyInfo);
}

/// The message's certificates that `signer` names and that carry that key.
std::vector<const CertInfo*> carried(const SignedDecoder& message, const SignerInfo& signer, ByteView key) {
    auto found = message.carriedCertificates().named(signer.id);
    std::erase_if(found, [&](const CertInfo* one) { return !std::ranges::equal(one->subjectPublicKeyInfo(), key); });
    return found;
}

void checkSigningCertificateByKey(const SignedDecoder& message, const SignerInfo& signer, ByteView key) {
    checkSigningCertificateForm(signer.signedAttributes);
    const auto candidates = carried(message, signer, key);
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        try {
            checkSigningCertificate(signer.signedAttributes, candidates[i]->encoded());
            return;
        } catch (const ApiError&) {
            if (i + 1 == candidates.size()) {
                throw;
            }
        }
    }
}

} // namespace

void verifyNamedSigner(const SignedDecoder& message, const CERT_INFO& certificate) {
    const auto names = [&](const SignerInfo& signer) { return namesCertificate(signer.id, certificate); };
    const auto signer = std::ranges::find_if(message.signers(), names);
    if (signer == message.signers().end()) {
        fail(capi::CRYPT_E_SIGNER_NOT_FOUND);
    }
    const Bytes key = encodePublicKeyInfo(certificate.SubjectPublicKeyInfo);
    checkKey(message, *signer, key);
    if (namesSigningCertificate(signer->signedAttributes)) {
        checkSigningCertificateByKey(message, *signer, key);
    }
}

void verifySigner(const SignedDecoder& message, const CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA& parameters) {
    if (parameters.cbSize != sizeof parameters || parameters.pvSigner == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    if (parameters.dwSignerIndex >= message.signers().size()) {
        fail(capi::CRYPT_E_INVALID_INDEX);
    }
    const SignerInfo& signer = message.signers()[parameters.dwSignerIndex];
    switch (parameters.dwSignerType) {
    case capi::CMSG_VERIFY_SIGNER_PUBKEY:
        checkKey(message, signer, encodePublicKeyInfo(*static_cast<const CERT_PUBLIC_KEY_INFO*>(parameters.pvSigner)));
        checkSigningCertificateForm(signer.signedAttributes);
        return;
    case capi::CMSG_VERIFY_SIGNER_CERT: {
        const auto certificate = contextTarget(static_cast<PCCERT_CONTEXT>(parameters.pvSigner)).certificate;
        if (!namesCertificate(signer.id, certificate->info())) {
            fail(capi::CRYPT_E_SIGNER_NOT_FOUND);
        }
        checkKey(message, signer, certificate->decoded().subjectPublicKeyInfo());
        checkSigningCertificate(signer.signedAttributes, certificate->encoded());
        return;
    }
    default:
        fail(capi::NTE_BAD_TYPE);
    }
}

} // namespace klunortredi::csp
