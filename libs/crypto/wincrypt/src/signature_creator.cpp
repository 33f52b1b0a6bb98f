#include "crypto/wincrypt/signature_creator.hpp"

#include "container_link.hpp"
#include "message_stream.hpp"
#include "signature_context.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <utility>

namespace orvik::plugin::wincrypt::binary {

namespace internal {
namespace {

using crypto::exception::CryptoException;
using crypto::exception::SystemException;
using Code = CryptoException::Code;

constexpr const char* file = "signature_creator";

void require(bool condition, Code otherwise) {
    if (!condition) {
        raise(CryptoException(otherwise), {file, "validateCertificate"});
    }
}

void validateCertificate(const boost::shared_ptr<crypto::ICertificate>& certificate) {
    require(certificate != nullptr, Code::noCertificate);
    const auto usage = certificate->keyUsage();
    require(usage && (*usage & capi::CERT_DIGITAL_SIGNATURE_KEY_USAGE) != 0, Code::keyUsageForbids);
    requireContainerLink(*certificate, file);
}

boost::shared_ptr<Context> makeContext(const crypto::SignatureFactory::Creator::Params& params) {
    if (const auto* const extended = dynamic_cast<const ExtendedParams*>(&params)) {
        return boost::make_shared<ExtendedContext>(*params.certificate, *extended);
    }
    if (const auto* const chain = dynamic_cast<const ChainParams*>(&params)) {
        return boost::make_shared<ExtendedContext>(*params.certificate, params.attributes, chain->issuers);
    }
    return boost::make_shared<Context>(*params.certificate, params.attributes);
}

} // namespace
} // namespace internal

ChainParams::~ChainParams() = default;

ExtendedParams::~ExtendedParams() = default;

Creator::Creator(std::uint32_t openFlags) : openFlags_(openFlags) {}

Creator::~Creator() = default;

bool Creator::initializeImpl(const IDataHandler::Params& params) {
    const auto& own = dynamic_cast<const Params&>(params);
    internal::validateCertificate(own.certificate);
    auto context = internal::makeContext(own);
    context_.reset();
    pending_ = false;
    context->open(openFlags_);
    context_ = std::move(context);
    return true;
}

bool Creator::updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) {
    if (!context_) {
        return false;
    }
    if (data != nullptr) {
        context_->count(size);
    }
    try {
        feedMessage(context_->message(), {pending_, pendingByte_}, data, size, consumed, internal::file);
    } catch (...) {
        context_->rethrowSinkFailure();
        throw;
    }
    return true;
}

bool Creator::finalizeImpl(std::vector<unsigned char>& out) {
    if (!context_) {
        return false;
    }
    auto context = std::exchange(context_, nullptr); // whatever throws leaves the creator unconfigured
    context->checkComplete();
    const auto& key = context->privateKey();
    if (key && key->supportsAuthentication() && !crypto::AuthProvider::authorize(key, "")) {
        context_ = std::move(context);
        return false;
    }
    if (!std::exchange(pending_, false) || CryptMsgUpdate(context->message(), &pendingByte_, 1, 1) == 0) {
        const internal::SystemException failure;
        context->rethrowSinkFailure();
        raise(failure, {internal::file, "finalizeImpl"});
    }
    out = std::move(context->output());
    return true;
}

namespace attached {

Creator::Creator() : binary::Creator(0) {}

Creator::~Creator() = default;

} // namespace attached

namespace detached {

Creator::Creator() : binary::Creator(capi::CMSG_DETACHED_FLAG) {}

Creator::~Creator() = default;

} // namespace detached

} // namespace orvik::plugin::wincrypt::binary
