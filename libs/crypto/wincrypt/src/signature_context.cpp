#include "signature_context.hpp"

#include "message_stream.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/tools_attributes.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/crypto/tools.hpp"

#include <set>

namespace orvik::plugin::wincrypt::binary {

using crypto::exception::CryptoException;

Context::~Context() = default;

Context::Context(const crypto::ICertificate& certificate,
                 const std::vector<crypto::format::SignatureRequest::Attribute>& attributes)
    : signers_(1), certificates_(1), hashAlgorithm_(certificate.hashAlgorithm()) {
    normalized_ =
        tools::normalizeSignedAttributes(crypto::tools::signedAttributes({attributes.begin(), attributes.end()}));
    const auto* context = tools::toPCCERT_CONTEXT(certificate.context());
    if (context == nullptr) {
        return;
    }
    privateKey_ = certificate.privateKey();
    if (!privateKey_) {
        raise(CryptoException(CryptoException::Code::privateKeyUnavailable), {"signature_creator", "Context"});
    }
    describeAttributes();
    describeSigner(context);
    describeMessage(context);
}

void Context::describeAttributes() {
    const auto count = normalized_.size();
    signedAttributes_.resize(count);
    attributeBlobs_.resize(count);
    attributeValues_.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        auto& value = attributeValues_[i];
        value = normalized_[i].value;
        attributeBlobs_[i] = {static_cast<DWORD>(value.size()), reinterpret_cast<BYTE*>(value.data())};
        signedAttributes_[i] = {normalized_[i].oid.data(), 1, &attributeBlobs_[i]};
    }
}

void Context::describeSigner(PCCERT_CONTEXT certificate) {
    auto& signer = signers_.front();
    signer.cbSize = sizeof(signer);
    signer.pCertInfo = certificate->pCertInfo;
    signer.hCryptProv = tools::toHCRYPTPROV(privateKey_->context());
    signer.dwKeySpec = privateKey_->keySpec();
    signer.HashAlgorithm.pszObjId = hashAlgorithm_.data();
    signer.cAuthAttr = static_cast<DWORD>(signedAttributes_.size());
    signer.rgAuthAttr = signedAttributes_.data();
}

void Context::describeMessage(PCCERT_CONTEXT certificate) {
    certificates_.front() = {certificate->cbCertEncoded, certificate->pbCertEncoded};
    signedMessage_.cbSize = sizeof(signedMessage_);
    signedMessage_.cSigners = static_cast<DWORD>(signers_.size());
    signedMessage_.rgSigners = signers_.data();
    signedMessage_.cCertEncoded = static_cast<DWORD>(certificates_.size());
    signedMessage_.rgCertEncoded = certificates_.data();
    stream_ = streamInto(output_);
}

void Context::addCertificates(const std::vector<CRYPT_DATA_BLOB>& certificates) {
    if (signedMessage_.rgSigners == nullptr) {
        return; // a certificate without context: the message does not open
    }
    certificates_.insert(certificates_.end(), certificates.begin(), certificates.end());
    signedMessage_.cCertEncoded = static_cast<DWORD>(certificates_.size());
    signedMessage_.rgCertEncoded = certificates_.data();
}

void Context::open(DWORD flags) {
    *message_.put() =
        CryptMsgOpenToEncode(capi::X509_AND_PKCS_7, flags, capi::CMSG_SIGNED, &signedMessage_, nullptr, &stream_);
    if (!message_) {
        raise(crypto::exception::SystemException(), {"signature_creator", "initializeImpl"});
    }
}

} // namespace orvik::plugin::wincrypt::binary
