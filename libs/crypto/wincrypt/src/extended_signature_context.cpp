#include "signature_context.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/signature_creator.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"

#include <utility>

namespace orvik::plugin::wincrypt::binary {

namespace {

using crypto::exception::CryptoException;

/// A message of definite lengths needs its content's size in 32 bits, of which one value means "not known".
bool fitsDefiniteLength(std::uint64_t size) {
    return size < capi::CMSG_INDEFINITE_LENGTH;
}

[[noreturn]] void refuseLength(const char* function) {
    raise(crypto::exception::SystemException(capi::CRYPT_E_BAD_LEN), {"signature_creator", function});
}

/// Value of the extension subjectKeyIdentifier (RFC 5280, 4.2.1.2), an OCTET STRING of less than 128 octets.
std::string keyIdentifierOf(const CERT_CONTEXT& certificate) {
    constexpr BYTE octetString = 0x04;
    constexpr DWORD headSize = 2;
    constexpr DWORD longLength = 0x80;
    const CERT_INFO& info = *certificate.pCertInfo;
    const auto* const found = CertFindExtension(capi::szOID_SUBJECT_KEY_IDENTIFIER, info.cExtension, info.rgExtension);
    if (found == nullptr || found->Value.cbData <= headSize || found->Value.pbData[0] != octetString ||
        found->Value.pbData[1] >= longLength || found->Value.pbData[1] + headSize != found->Value.cbData) {
        raise(CryptoException(CryptoException::Code::badCertificateData), {"signature_creator", "keyIdentifierOf"});
    }
    return {reinterpret_cast<const char*>(found->Value.pbData) + headSize, found->Value.cbData - headSize};
}

} // namespace

ExtendedContext::ExtendedContext(const crypto::ICertificate& certificate,
                                 const std::vector<crypto::format::SignatureRequest::Attribute>& attributes,
                                 std::vector<std::string> issuers)
    : Context(certificate, attributes), issuers_(std::move(issuers)), sink_({}) {
    addIssuers();
}

ExtendedContext::ExtendedContext(const crypto::ICertificate& certificate, const ExtendedParams& params)
    : Context(certificate, params.attributes), issuers_(params.issuers), sink_(params.sink),
      contentSize_(params.contentSize) {
    addIssuers();
    if (params.byKeyIdentifier || !params.signatureAlgorithm.empty()) {
        nameSigner(certificate, params);
    }
    if (contentSize_ && fitsDefiniteLength(*contentSize_)) {
        stream().cbContent = static_cast<DWORD>(*contentSize_);
    }
    if (sink_) {
        sink_.connect(stream());
    }
}

/// Puts the longer form of the signer's description in place of the shorter one.
void ExtendedContext::nameSigner(const crypto::ICertificate& certificate, const ExtendedParams& params) {
    if (signedMessage().rgSigners == nullptr) {
        return; // a certificate without context: the message does not open
    }
    signer_.Signer = *signedMessage().rgSigners;
    signer_.Signer.cbSize = sizeof(signer_);
    if (params.byKeyIdentifier) {
        keyIdentifier_ = keyIdentifierOf(*tools::toPCCERT_CONTEXT(certificate.context()));
        signer_.SignerId.dwIdChoice = capi::CERT_ID_KEY_IDENTIFIER;
        signer_.SignerId.u.KeyId = {static_cast<DWORD>(keyIdentifier_.size()),
                                    reinterpret_cast<BYTE*>(keyIdentifier_.data())};
    }
    if (!params.signatureAlgorithm.empty()) {
        signatureAlgorithm_ = params.signatureAlgorithm;
        signer_.HashEncryptionAlgorithm.pszObjId = signatureAlgorithm_.data();
    }
    signedMessage().rgSigners = &signer_.Signer;
}

void ExtendedContext::addIssuers() {
    std::vector<CRYPT_DATA_BLOB> blobs;
    for (std::string& issuer : issuers_) {
        blobs.push_back({static_cast<DWORD>(issuer.size()), reinterpret_cast<BYTE*>(issuer.data())});
    }
    addCertificates(blobs);
}

void ExtendedContext::count(std::size_t size) {
    taken_ += size;
    if (contentSize_ && taken_ > *contentSize_) {
        refuseLength("updateImpl");
    }
}

void ExtendedContext::checkComplete() const {
    if (contentSize_ && taken_ != *contentSize_) {
        refuseLength("finalizeImpl");
    }
}

void ExtendedContext::rethrowSinkFailure() {
    sink_.rethrowFailure();
}

} // namespace orvik::plugin::wincrypt::binary
