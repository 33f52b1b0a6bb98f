#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <string>

namespace orvik::plugin::crypto {

class ICertificate;
class IProvider;

/// The private key of a certificate.
class ORVIK_EXPORT IPrivateKey {
public:
    IPrivateKey() = default;
    IPrivateKey(const IPrivateKey&) = delete;
    IPrivateKey& operator=(const IPrivateKey&) = delete;
    virtual ~IPrivateKey();

    [[nodiscard]] virtual boost::shared_ptr<ICertificate> certificate() const = 0;
    [[nodiscard]] virtual boost::shared_ptr<IProvider> provider() const = 0;
    /// Throws CryptoException authorizationRefused when the PIN dialogue ends without success.
    virtual void authenticate(const std::string& pin) = 0;
    /// The back-end's handle of the key's context; stays the key's.
    [[nodiscard]] virtual void* context() const = 0;
    [[nodiscard]] virtual bool authenticated() const = 0;
    virtual void resetAuthentication() = 0;
    [[nodiscard]] virtual bool supportsAuthentication() const = 0;
    /// 1 (exchange) or 2 (signature).
    [[nodiscard]] virtual unsigned keySpec() const = 0;
};

} // namespace orvik::plugin::crypto
