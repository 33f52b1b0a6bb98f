#include "keys/key_object.hpp"

#include "core/error.hpp"
#include "core/immortal.hpp"
#include "core/output.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/signature.hpp"
#include "keys/certificate_argument.hpp"

namespace klunortredi::csp {

namespace {

HandleTable<KeyObject, HandleKind::Key>& keys() {
    // Never destroyed: what a host leaves open would be freed after OpenSSL has cleaned up at exit.
    static Immortal<HandleTable<KeyObject, HandleKind::Key>> table(capi::NTE_BAD_KEY);
    return *table;
}

} // namespace

KeyObject::KeyObject(std::shared_ptr<ProviderContext> context, DWORD keySpec)
    : context_(std::move(context)), keySpec_(keySpec), publicKey_(publicKeyFromInfo(context_->publicKeyInfo(keySpec))),
      algorithm_(keyAlgorithm(publicKey_.get())) {}

KeyObject::KeyObject(std::shared_ptr<ProviderContext> context, ByteView publicKeyInfo)
    : context_(std::move(context)), keySpec_(imported), publicKey_(publicKeyFromInfo(publicKeyInfo)),
      algorithm_(keyAlgorithm(publicKey_.get())) {}

EVP_PKEY* KeyObject::publicKey() const {
    context_->requireAlive();
    return publicKey_.get();
}

/// A public key on its own verifies, so it has the signature's number; an RSA one serves both, and CryptoAPI calls it a
/// key-exchange key.
ALG_ID KeyObject::algorithmId() const {
    const bool signs = keySpec_ == capi::AT_SIGNATURE || (keySpec_ == imported && algorithm_.gost);
    return signs ? algorithm_.signId : algorithm_.exchangeId;
}

DWORD KeyObject::permissions() const {
    if (keySpec_ == imported) {
        return capi::CRYPT_READ | capi::CRYPT_EXPORT;
    }
    return capi::CRYPT_READ | capi::CRYPT_WRITE | (context_->exportable(keySpec_) ? capi::CRYPT_EXPORT : 0U);
}

void KeyObject::giveCertificate(void* buffer, DWORD* size) const {
    const auto certificate = keySpec_ == imported ? std::nullopt : context_->certificate(keySpec_);
    if (!certificate) {
        fail(capi::NTE_NOT_FOUND);
    }
    give(*certificate, buffer, size);
}

void KeyObject::param(DWORD param, void* buffer, DWORD* size) const {
    context_->requireAlive();
    switch (param) {
    case capi::KP_ALGID:
        return give(algorithmId(), buffer, size);
    case capi::KP_KEYLEN:
        return give(keyBits(publicKey_.get()), buffer, size);
    case capi::KP_BLOCKLEN: // of a key pair: how much it encrypts at once
        return give(algorithm_.gost ? 0U : keyBits(publicKey_.get()), buffer, size);
    case capi::KP_PERMISSIONS:
        return give(permissions(), buffer, size);
    case capi::KP_CERTIFICATE:
        return giveCertificate(buffer, size);
    default:
        fail(capi::NTE_BAD_TYPE);
    }
}

void KeyObject::setParam(DWORD param, const BYTE* data) const {
    context_->requireAlive();
    if (param != capi::KP_CERTIFICATE || keySpec_ == imported) {
        fail(capi::NTE_BAD_TYPE);
    }
    context_->setCertificate(keySpec_, certificateArgument(data));
}

unsigned long addKey(std::shared_ptr<KeyObject> key) {
    return keys().add(std::move(key));
}

std::shared_ptr<KeyObject> keyObject(unsigned long hKey) {
    return keys().get(hKey);
}

void destroyKey(unsigned long hKey) {
    keys().remove(hKey);
}

} // namespace klunortredi::csp
