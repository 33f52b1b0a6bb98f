#pragma once

#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <string>

namespace orvik::plugin::wincrypt {

/// The private key of a certificate, through the service.
///
/// The key's provider context is opened by the first operation that needs it, and belongs to the object. One thread
/// uses an object at a time.
class ORVIK_EXPORT PrivateKey : public crypto::IPrivateKey {
public:
    /// Opens nothing yet.
    explicit PrivateKey(const boost::shared_ptr<crypto::ICertificate>& certificate);
    ~PrivateKey() override;

    [[nodiscard]] boost::shared_ptr<crypto::ICertificate> certificate() const override;
    /// The provider and container in which the key lies; opens the context when none was opened before. Throws as
    /// context() does.
    [[nodiscard]] boost::shared_ptr<crypto::IProvider> provider() const override;
    /// Logs in with `pin`, then as the host application's dialogue decides. Throws CryptoException authorizationRefused
    /// when that fails, and as context() does.
    void authenticate(const std::string& pin) override;
    /// The provider context, opened on first use. Throws ApplicationException cancelled, CryptoException
    /// wrongProviderType, or SystemException with the service's code.
    [[nodiscard]] void* context() const override;
    [[nodiscard]] bool authenticated() const override;
    /// Closes the context, so that the next operation opens a new one and needs the PIN again.
    void resetAuthentication() override;
    /// Whether keys take a PIN here. The first key asked answers for the whole process.
    [[nodiscard]] bool supportsAuthentication() const override;
    /// 1 (exchange) or 2 (signature). Throws CryptoException privateKeyUnavailable when the key cannot be had.
    [[nodiscard]] unsigned keySpec() const override;

private:
    class PrivateKeyImpl;

    boost::shared_ptr<crypto::ICertificate> certificate_;
    boost::shared_ptr<PrivateKeyImpl> impl_;
};

} // namespace orvik::plugin::wincrypt
