// The interfaces' destructors and default answers: each class has its virtual table here.
#include "orvik/plugin/crypto/cadest_transformer.hpp"
#include "orvik/plugin/crypto/i_auth_handle.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/i_certificate_store.hpp"
#include "orvik/plugin/crypto/i_certificate_verifier.hpp"
#include "orvik/plugin/crypto/i_csr_creator.hpp"
#include "orvik/plugin/crypto/i_hash.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/crypto/public_key.hpp"
#include "orvik/plugin/crypto/signature_factory.hpp"
#include "orvik/plugin/data_handler.hpp"

namespace orvik::plugin {

IDataHandler::Params::~Params() = default;
IDataHandler::~IDataHandler() = default;

namespace crypto {

IAuthHandle::~IAuthHandle() = default;
ICertificate::~ICertificate() = default;
ICertificateStore::~ICertificateStore() = default;
ICertificateVerifier::~ICertificateVerifier() = default;
ICsrCreator::~ICsrCreator() = default;
IHash::~IHash() = default;
IPrivateKey::~IPrivateKey() = default;
IProvider::~IProvider() = default;
IPublicKey::~IPublicKey() = default;
PublicKey::PublicKey() = default;
PublicKey::~PublicKey() = default;

bool IAuthHandle::isLocked() const {
    return false;
}

bool IAuthHandle::isToken() const {
    return false;
}

const wincrypt::Certificate* ICertificate::asWincrypt() const {
    return nullptr;
}

const cryptoki::Certificate* ICertificate::asCryptoki() const {
    return nullptr;
}

const ssl::Certificate* ICertificate::asSsl() const {
    return nullptr;
}

SignatureFactory::~SignatureFactory() = default;
SignatureFactory::Creator::~Creator() = default;
SignatureFactory::Creator::Params::~Params() = default;
SignatureFactory::Validator::~Validator() = default;
SignatureFactory::Validator::Params::~Params() = default;
SignatureFactory::Transformer::~Transformer() = default;

std::unique_ptr<IDataHandler::Params> SignatureFactory::Creator::paramsImpl() const {
    return std::make_unique<Params>();
}

std::unique_ptr<IDataHandler::Params> SignatureFactory::Validator::paramsImpl() const {
    return std::make_unique<Params>();
}

namespace cadest {

Transformer::~Transformer() = default;
Transformer::Params::~Params() = default;

std::unique_ptr<IDataHandler::Params> Transformer::paramsImpl() const {
    return std::make_unique<Params>();
}

bool Transformer::initializeImpl(const IDataHandler::Params& params) {
    if (const auto& authority = dynamic_cast<const Params&>(params).authority) {
        authority_ = *authority;
    }
    return true;
}

} // namespace cadest

} // namespace crypto

} // namespace orvik::plugin
