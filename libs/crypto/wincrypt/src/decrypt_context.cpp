#include "decrypt_context.hpp"

#include "message_stream.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/tools_recipients.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"

#include <algorithm>
#include <span>
#include <string>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

using crypto::exception::CryptoException;
using crypto::exception::SystemException;

constexpr const char* file = "encrypt_data_handler";

void require(BOOL succeeded) {
    if (succeeded == 0) {
        exception::raise(SystemException(), {file, "finalizeImpl"});
    }
}

bool sameOctets(const CRYPTOAPI_BLOB& a, const CRYPTOAPI_BLOB& b) {
    return std::ranges::equal(std::span(a.pbData, a.cbData), std::span(b.pbData, b.cbData));
}

} // namespace
} // namespace internal

DecryptContext::DecryptContext(const boost::shared_ptr<crypto::ICertificate>& certificate)
    : certificate_(certificate), stream_(streamInto(output_)) {}

DecryptContext::~DecryptContext() = default;

bool DecryptContext::isNamedBy(const CERT_INFO& recipient) const {
    const auto& own = *tools::toPCCERT_CONTEXT(certificate().context())->pCertInfo;
    return internal::sameOctets(recipient.SerialNumber, own.SerialNumber) &&
           internal::sameOctets(recipient.Issuer, own.Issuer);
}

void DecryptContext::open() {
    *message_.put() = CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, 0, 0, nullptr, &stream_);
    if (!message_) {
        exception::raise(internal::SystemException(), {internal::file, "initializeImpl"});
    }
}

boost::shared_ptr<crypto::IPrivateKey> DecryptContext::authorizedKey() const {
    auto key = certificate_->privateKey();
    if (!crypto::AuthProvider::authorize(key, "decrypt a message")) {
        exception::raise(internal::CryptoException(internal::CryptoException::Code::privateKeyUnavailable),
                         {internal::file, "finalizeImpl"});
    }
    return key;
}

std::optional<DWORD> DecryptContext::recipientIndex() {
    DWORD count = 0;
    DWORD size = sizeof count;
    internal::require(CryptMsgGetParam(message(), capi::CMSG_RECIPIENT_COUNT_PARAM, 0, &count, &size));
    for (DWORD index = 0; index < count; ++index) {
        const auto info = CryptMsgGetParamEx(message(), capi::CMSG_RECIPIENT_INFO_PARAM, index);
        if (info.size() >= sizeof(CERT_INFO) && isNamedBy(*reinterpret_cast<const CERT_INFO*>(info.data()))) {
            return index;
        }
    }
    return std::nullopt;
}

void DecryptContext::decrypt(const crypto::IPrivateKey& key, DWORD recipientIndex) {
    CMSG_CTRL_DECRYPT_PARA parameters{};
    parameters.cbSize = sizeof parameters;
    parameters.hCryptProv = tools::toHCRYPTPROV(key.context());
    parameters.dwKeySpec = key.keySpec();
    parameters.dwRecipientIndex = recipientIndex;
    internal::require(CryptMsgControl(message(), 0, capi::CMSG_CTRL_DECRYPT, &parameters));
}

SinkDecryptContext::SinkDecryptContext(const boost::shared_ptr<crypto::ICertificate>& certificate,
                                       const OutputSink& sink)
    : DecryptContext(certificate), sink_([this, sink](const unsigned char* data, std::size_t size) {
          // What comes before the key was not encrypted: the content of another kind of message.
          return !awaitsKey_ && sink(data, size);
      }) {
    sink_.connect(stream());
}

std::optional<DWORD> SinkDecryptContext::recipientIndex() {
    awaitsKey_ = false;
    return DecryptContext::recipientIndex();
}

bool SinkDecryptContext::knowsRecipientsEarly() const {
    DWORD count = 0;
    DWORD size = sizeof count;
    return CryptMsgGetParam(message(), capi::CMSG_RECIPIENT_COUNT_PARAM, 0, &count, &size) != 0;
}

bool SinkDecryptContext::isNamedBy(const CERT_INFO& recipient) const {
    return tools::isNamed(tools::recipientName(recipient), certificate());
}

} // namespace orvik::plugin::wincrypt
