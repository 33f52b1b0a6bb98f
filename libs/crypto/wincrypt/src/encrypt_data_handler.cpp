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

/// Whoever sent the message must not learn from the result in which way it is damaged: that goes to the log only.
void decrypt(DecryptContext& context, const crypto::IPrivateKey& key) {
    try {
        if (const auto index = context.recipientIndex()) {
            context.decrypt(key, *index);
        }
    } catch (const exception::Exception& e) {
        log::warning(std::string("wincrypt::Decrypt: finalize failed: ") + e.what());
        exception::raise(CryptoException(Code::decryptionFailed), {file, "finalizeImpl"});
    }
}

} // namespace
} // namespace internal

DecryptDataHandler::Params::~Params() = default;

DecryptDataHandler::DecryptDataHandler() = default;

DecryptDataHandler::~DecryptDataHandler() = default;

std::unique_ptr<IDataHandler::Params> DecryptDataHandler::paramsImpl() const {
    return std::make_unique<Params>();
}

bool DecryptDataHandler::initializeImpl(const IDataHandler::Params& params) {
    const auto& own = dynamic_cast<const Params&>(params);
    internal::validateCertificate(own.certificate);
    context_.reset();
    pending_ = false;
    auto context = boost::make_shared<DecryptContext>(own.certificate);
    context->open();
    context_ = std::move(context);
    return true;
}

bool DecryptDataHandler::updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) {
    if (!context_) {
        return false;
    }
    feedMessage(context_->message(), {pending_, pendingByte_}, data, size, consumed, internal::file);
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
        exception::raise(internal::SystemException(), {internal::file, "finalizeImpl"});
    }
    pending_ = false;
    const auto context = std::exchange(context_, nullptr);
    internal::decrypt(*context, *context->authorizedKey());
    out = std::move(context->output());
    return true;
}

} // namespace orvik::plugin::wincrypt
