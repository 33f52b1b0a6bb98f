#pragma once

#include "capi/types.h"
#include "crypto/wincrypt/handles.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <optional>
#include <vector>

namespace orvik::plugin::crypto {
class ICertificate;
class IPrivateKey;
} // namespace orvik::plugin::crypto

namespace orvik::plugin::wincrypt {

/// One decryption under way. The stream description points to the output beside it, so a context stays where it was
/// made.
class DecryptContext {
public:
    explicit DecryptContext(const boost::shared_ptr<crypto::ICertificate>& certificate);
    DecryptContext(const DecryptContext&) = delete;
    DecryptContext& operator=(const DecryptContext&) = delete;

    /// Opens the message; throws SystemException.
    void open();
    [[nodiscard]] void* message() const { return message_.get(); }
    /// The recipient's private key, authorized. Throws as ICertificate::privateKey() does, and CryptoException
    /// privateKeyUnavailable when the PIN is refused.
    [[nodiscard]] boost::shared_ptr<crypto::IPrivateKey> authorizedKey() const;
    /// Index of the first recipient whose issuer and serial number are the certificate's; nullopt when the message is
    /// addressed to others. Throws SystemException.
    [[nodiscard]] std::optional<DWORD> recipientIndex() const;
    /// Lets the service decrypt for that recipient into the output. Throws SystemException.
    void decrypt(const crypto::IPrivateKey& key, DWORD recipientIndex);
    /// What the service has streamed out so far.
    [[nodiscard]] std::vector<unsigned char>& output() { return output_; }

private:
    boost::shared_ptr<crypto::ICertificate> certificate_;
    std::vector<unsigned char> output_;
    HCRYPTMSG message_;
    CMSG_STREAM_INFO stream_;
};

} // namespace orvik::plugin::wincrypt
