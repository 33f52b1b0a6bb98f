#include "decrypt_context.hpp"

#include "message_stream.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools.hpp"
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

/// The issuer under which the CryptoAPI reports a recipient that is named by its key identifier: a Name with one
/// attribute, 1.3.6.1.4.1.311.10.7.1, whose value is the identifier as OCTET STRING.
std::string keyIdentifierName(const std::string& identifier) {
    constexpr std::size_t longest = 64; // so that every length below takes one octet; those in use have 20
    if (identifier.empty() || identifier.size() > longest) {
        return {};
    }
    const auto element = [](char tag, const std::string& content) {
        return std::string{tag, static_cast<char>(content.size())} + content;
    };
    const std::string type("\x06\x0A\x2B\x06\x01\x04\x01\x82\x37\x0A\x07\x01", 12);
    return element('\x30', element('\x31', element('\x30', type + element('\x04', identifier))));
}

/// The helper returns the property one octet short; the octet lies after the string's end.
std::string keyIdentifier(const CERT_CONTEXT& certificate) {
    const auto property = CertGetCertificateContextPropertyEx(&certificate, capi::CERT_KEY_IDENTIFIER_PROP_ID);
    return property.empty() ? std::string() : std::string(property.data(), property.size() + 1);
}

} // namespace
} // namespace internal

DecryptContext::DecryptContext(const boost::shared_ptr<crypto::ICertificate>& certificate)
    : certificate_(certificate), stream_(streamInto(output_)) {}

DecryptContext::~DecryptContext() = default;

const CERT_CONTEXT& DecryptContext::certificate() const {
    return *tools::toPCCERT_CONTEXT(certificate_->context());
}

bool DecryptContext::isNamedBy(const CERT_INFO& recipient) const {
    const auto& own = *certificate().pCertInfo;
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
    : DecryptContext(certificate), sink_(sink) {
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
    if (DecryptContext::isNamedBy(recipient)) {
        return true;
    }
    const auto name = internal::keyIdentifierName(internal::keyIdentifier(certificate()));
    const std::string issuer(reinterpret_cast<const char*>(recipient.Issuer.pbData), recipient.Issuer.cbData);
    return !name.empty() && issuer == name;
}

} // namespace orvik::plugin::wincrypt
