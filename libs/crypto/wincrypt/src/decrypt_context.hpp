#pragma once

#include "capi/types.h"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/output_sink.hpp"
#include "sink_stream.hpp"

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
    virtual ~DecryptContext();

    /// Opens the message; throws SystemException.
    void open();
    [[nodiscard]] void* message() const { return message_.get(); }
    /// The recipient's private key, authorized. Throws as ICertificate::privateKey() does, and CryptoException
    /// privateKeyUnavailable when the PIN is refused.
    [[nodiscard]] boost::shared_ptr<crypto::IPrivateKey> authorizedKey() const;
    /// Index of the first recipient whose issuer and serial number are the certificate's; nullopt when the message is
    /// addressed to others. Throws SystemException.
    [[nodiscard]] virtual std::optional<DWORD> recipientIndex();
    /// Whether the recipients have not been looked at yet.
    [[nodiscard]] virtual bool awaitsKey() const { return true; }
    /// Whether the service knows the recipients before the message is complete, and the key shall be used then.
    [[nodiscard]] virtual bool knowsRecipientsEarly() const { return false; }
    /// Throws what the caller's sink threw, if there is one and it did.
    virtual void rethrowSinkFailure() {}
    /// Lets the service decrypt for that recipient into the output. Throws SystemException.
    void decrypt(const crypto::IPrivateKey& key, DWORD recipientIndex);
    /// What the service has streamed out so far.
    [[nodiscard]] std::vector<unsigned char>& output() { return output_; }

protected:
    /// Whether `recipient` names the certificate.
    [[nodiscard]] virtual bool isNamedBy(const CERT_INFO& recipient) const;
    [[nodiscard]] const crypto::ICertificate& certificate() const { return *certificate_; }
    [[nodiscard]] CMSG_STREAM_INFO& stream() { return stream_; }

private:
    boost::shared_ptr<crypto::ICertificate> certificate_;
    std::vector<unsigned char> output_;
    HCRYPTMSG message_;
    CMSG_STREAM_INFO stream_;
};

/// A decryption whose plaintext goes to a sink.
class SinkDecryptContext : public DecryptContext {
public:
    SinkDecryptContext(const boost::shared_ptr<crypto::ICertificate>& certificate, const OutputSink& sink);

    [[nodiscard]] std::optional<DWORD> recipientIndex() override;
    [[nodiscard]] bool awaitsKey() const override { return awaitsKey_; }
    [[nodiscard]] bool knowsRecipientsEarly() const override;
    void rethrowSinkFailure() override { sink_.rethrowFailure(); }

protected:
    /// Also by the subject key identifier (RFC 5652, 6.2.1).
    [[nodiscard]] bool isNamedBy(const CERT_INFO& recipient) const override;

private:
    SinkStream sink_;
    bool awaitsKey_ = true;
};

} // namespace orvik::plugin::wincrypt
