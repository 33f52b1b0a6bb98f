#include "crypto/wincrypt/encrypt_data_handler.hpp"

#include "container_link.hpp"
#include "decrypt_context.hpp"
#include "message_stream.hpp"

#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/log.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <string>
#include <utility>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

using crypto::exception::CryptoException;
using crypto::exception::SystemException;
using Code = CryptoException::Code;

constexpr const char* file = "encrypt_data_handler";

void validateCertificate(const boost::shared_ptr<crypto::ICertificate>& certificate) {
    if (!certificate) {
        exception::raise(CryptoException(Code::noCertificate), {file, "validateCertificate"});
    }
    requireContainerLink(*certificate, file);
}

boost::shared_ptr<DecryptContext> makeContext(const DecryptDataHandler::Params& params) {
    const auto* const own = dynamic_cast<const DecryptDataHandler::SinkParams*>(&params);
    if (own != nullptr && own->sink) {
        return boost::make_shared<SinkDecryptContext>(params.certificate, own->sink);
    }
    return boost::make_shared<DecryptContext>(params.certificate);
}

/// Whoever sent the message must not learn from the result in which way it is damaged: that goes to the log only.
void decrypt(DecryptContext& context) {
    const auto key = context.authorizedKey();
    try {
        if (const auto index = context.recipientIndex()) {
            context.decrypt(*key, *index);
        }
    } catch (const exception::Exception& e) {
        context.rethrowSinkFailure();
        log::warning(std::string("wincrypt::Decrypt: finalize failed: ") + e.what());
        exception::raise(CryptoException(Code::decryptionFailed), {file, "finalizeImpl"});
    }
}

} // namespace
} // namespace internal

DecryptDataHandler::Params::~Params() = default;

DecryptDataHandler::SinkParams::~SinkParams() = default;

DecryptDataHandler::DecryptDataHandler() = default;

DecryptDataHandler::~DecryptDataHandler() = default;

std::unique_ptr<IDataHandler::Params> DecryptDataHandler::paramsImpl() const {
    return std::make_unique<Params>();
}

bool DecryptDataHandler::initializeImpl(const IDataHandler::Params& params) {
    const auto& own = dynamic_cast<const Params&>(params);
    internal::validateCertificate(own.certificate);
    auto context = internal::makeContext(own);
    context_.reset();
    pending_ = false;
    context->open();
    context_ = std::move(context);
    return true;
}

bool DecryptDataHandler::updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) {
    if (!context_) {
        return false;
    }
    try {
        feedMessage(context_->message(), {pending_, pendingByte_}, data, size, consumed, internal::file);
    } catch (...) {
        context_->rethrowSinkFailure();
        throw;
    }
    if (context_->awaitsKey() && context_->knowsRecipientsEarly()) {
        const auto context = std::exchange(context_, nullptr); // whatever throws leaves the handler unconfigured
        internal::decrypt(*context);
        context_ = context;
    }
    return true;
}

bool DecryptDataHandler::finalizeImpl(std::vector<unsigned char>& out) {
    if (!context_) {
        return false;
    }
    if (!pending_) {
        context_.reset();
        return false;
    }
    if (CryptMsgUpdate(context_->message(), &pendingByte_, 1, 1) == 0) {
        const internal::SystemException failure;
        context_->rethrowSinkFailure();
        exception::raise(failure, {internal::file, "finalizeImpl"});
    }
    pending_ = false;
    const auto context = std::exchange(context_, nullptr);
    if (context->awaitsKey()) {
        internal::decrypt(*context);
    }
    out = std::move(context->output());
    return true;
}

} // namespace orvik::plugin::wincrypt
