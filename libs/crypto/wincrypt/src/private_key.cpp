#include "crypto/wincrypt/private_key.hpp"

#include "cancellation.hpp"
#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/provider.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_auth.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "orvik/plugin/log.hpp"
#include "takes_pin.hpp"

#include <boost/smart_ptr/make_shared.hpp>

namespace orvik::plugin::wincrypt {

using crypto::exception::CryptoException;
using crypto::exception::SystemException;
using plugin::exception::ApplicationException;

namespace internal {
namespace {

/// What the service answers when it is asked for the key of a certificate.
struct Acquired {
    unsigned long handle = 0;
    DWORD keySpec = 0;
    BOOL callerFrees = 0;
};

bool acquire(PCCERT_CONTEXT certificate, Acquired& key) {
    return CryptAcquireCertificatePrivateKey(certificate, capi::CRYPT_ACQUIRE_PREFER_NCRYPT_KEY_FLAG, nullptr,
                                             &key.handle, &key.keySpec, &key.callerFrees) != 0;
}

[[noreturn]] void throwAcquisitionFailure(unsigned error) {
    const exception::Location here{"private_key", "createContext"};
    if (acquisitionCancelled(error)) {
        exception::raise(ApplicationException(ApplicationException::Code::cancelled), here);
    }
    if (error == capi::NTE_BAD_PROV_TYPE) {
        exception::raise(CryptoException(CryptoException::Code::wrongProviderType), here);
    }
    exception::raise(SystemException(error), here);
}

/// The provider and container in which an open context stands.
boost::shared_ptr<Provider> describe(unsigned long context) {
    const auto container = tools::exportContainerName(context);
    const auto name = tools::exportProviderName(context);
    const unsigned long type = tools::exportProviderType(context);
    return boost::make_shared<Provider>(type, name, boost::make_optional(!container.empty(), container));
}

} // namespace
} // namespace internal

class PrivateKey::PrivateKeyImpl {
public:
    explicit PrivateKeyImpl(const boost::shared_ptr<crypto::ICertificate>& certificate) : certificate_(certificate) {}

    void* context() {
        if (!context_) {
            createContext();
        }
        return tools::fromHCRYPTPROV(context_->get());
    }

    boost::shared_ptr<crypto::IProvider> provider() {
        if (!provider_) {
            createContext();
        }
        return provider_;
    }

    unsigned keySpec() {
        try {
            context();
        } catch (const std::exception&) {
            log::error("wincrypt: keySpec: privateKey acquire failed.");
            exception::raise(CryptoException(CryptoException::Code::privateKeyUnavailable), {"private_key", "keySpec"});
        }
        return keySpec_;
    }

    void authenticate(const std::string& pin) {
        const auto handle = boost::make_shared<WincryptAuth>(tools::toHCRYPTPROV(context()));
        authenticated_ = false; // a wrong PIN ends what an earlier one allowed
        if (!crypto::AuthProvider::authorize(handle, pin)) {
            exception::raise(CryptoException(CryptoException::Code::authorizationRefused),
                             {"private_key", "authenticate"});
        }
        authenticated_ = true;
    }

    [[nodiscard]] bool authenticated() const { return authenticated_; }

    void resetAuthentication() {
        context_.reset();
        authenticated_ = false;
    }

private:
    void createContext() {
        // The certificate settles its own link first, so that the service finds the key where the link says.
        static_cast<void>(certificate_->provider(true));
        static_cast<void>(certificate_->container());

        internal::Acquired key;
        auto* const certificate = tools::toPCCERT_CONTEXT(certificate_->context());
        if (!internal::acquire(certificate, key)) {
            const auto error = GetLastErrorEx();
            if (!internal::acquire(certificate, key)) {
                internal::throwAcquisitionFailure(error);
            }
        }
        // A handle that must not be freed belongs to the certificate; a reference of its own makes it safe to keep.
        auto owned = boost::make_shared<HCRYPTPROV>(key.callerFrees != 0 ? key.handle : 0);
        auto provider = internal::describe(key.handle);
        if (key.callerFrees == 0) {
            if (CryptContextAddRef(key.handle, nullptr, 0) == 0) {
                exception::raise(SystemException(), {"private_key", "createContext"});
            }
            *owned->put() = key.handle;
        }
        context_ = std::move(owned);
        keySpec_ = key.keySpec;
        provider_ = std::move(provider);
    }

    boost::shared_ptr<crypto::ICertificate> certificate_;
    boost::shared_ptr<HCRYPTPROV> context_; // null until the key is used
    unsigned keySpec_ = 0;
    boost::shared_ptr<Provider> provider_;
    bool authenticated_ = false;
};

PrivateKey::PrivateKey(const boost::shared_ptr<crypto::ICertificate>& certificate)
    : certificate_(certificate), impl_(boost::make_shared<PrivateKeyImpl>(certificate)) {}

PrivateKey::~PrivateKey() = default;

boost::shared_ptr<crypto::ICertificate> PrivateKey::certificate() const {
    return certificate_;
}

boost::shared_ptr<crypto::IProvider> PrivateKey::provider() const {
    return impl_->provider();
}

void PrivateKey::authenticate(const std::string& pin) {
    impl_->authenticate(pin);
}

void* PrivateKey::context() const {
    return impl_->context();
}

bool PrivateKey::authenticated() const {
    return impl_->authenticated();
}

void PrivateKey::resetAuthentication() {
    impl_->resetAuthentication();
}

bool PrivateKey::supportsAuthentication() const {
    static const bool supportsAuthentication = takesPin(provider()->name());
    return supportsAuthentication;
}

unsigned PrivateKey::keySpec() const {
    return impl_->keySpec();
}

} // namespace orvik::plugin::wincrypt
