#include "crypto/wincrypt/certificate.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/provider.hpp"
#include "crypto/wincrypt/public_key.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/tools_encode.hpp"
#include "crypto/wincrypt/wincrypt_auth.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "log_text.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "orvik/plugin/log.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <string>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

using crypto::exception::CryptoException;
using crypto::exception::SystemException;
using exception::ApplicationException;
using exception::Location;

constexpr Location here{"certificate", "install"};

[[noreturn]] void raiseCancelled() {
    raise(ApplicationException(ApplicationException::Code::cancelled), here);
}

[[noreturn]] void raise(CryptoException::Code code) {
    exception::raise(CryptoException(code), here);
}

/// The container's context; without a name there is none.
HCRYPTPROV open(const crypto::IProvider& provider, boost::wstring_view container, unsigned* error) {
    if (container.empty()) {
        return HCRYPTPROV();
    }
    return HCRYPTPROV(Provider(provider.type(), provider.name(), std::wstring(container)), error);
}

void checkOpen(const HCRYPTPROV& context, unsigned error) {
    if (SystemException::cancelled(error)) {
        raiseCancelled();
    }
    if (!context) {
        raise(CryptoException::Code::noContainer);
    }
}

void unlock(unsigned long context, const std::string& pin) {
    const auto auth = boost::make_shared<WincryptAuth>(context);
    if (auth->supportAuthentication() && !crypto::AuthProvider::authorize(auth, pin)) {
        raise(CryptoException::Code::authorizationRefused);
    }
}

[[noreturn]] void refuseExport(boost::wstring_view container, int code) {
    log::error("crypto: can't get public key for container: " + quotedName(container) +
               " error: " + std::to_string(static_cast<unsigned>(code)));
    if (SystemException::cancelled(code)) {
        raiseCancelled();
    }
    raise(CryptoException::Code::noContainer);
}

std::string publicKeyInfo(unsigned long context, boost::wstring_view container) {
    try {
        auto exported = tools::exportPublicKeyInfo(context);
        if (!exported.empty()) {
            return exported;
        }
    } catch (const SystemException& e) {
        refuseExport(container, e.code().value());
    }
    refuseExport(container, 0);
}

void matchKeys(unsigned long context, boost::wstring_view container, const crypto::IPublicKey& certificateKey) {
    log::debug("crypto: try to match container's and certificate's public keys");
    auto exported = publicKeyInfo(context, container);
    const PublicKey containerPublicKey(reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(exported.data()));
    if (containerPublicKey == certificateKey) {
        return;
    }
    log::error("crypto: certificate doesn't match the container: " + quotedName(container));
    exception::raise(exception::setValue(CryptoException(CryptoException::Code::containerMismatch),
                                         "контейнер не соответствует сертификату"),
                     here);
}

/// Name of the context's container, as the link has to carry it.
std::wstring containerName(unsigned long context) {
    auto name = tools::exportContainerName(context);
    if (name.empty()) { // a link without a container would lead to the default one
        log::error("crypto: can't read the container's name");
        raise(CryptoException::Code::noContainer);
    }
    return name;
}

} // namespace
} // namespace internal

void Certificate::install(const crypto::IProvider& provider, boost::wstring_view container,
                          const std::string& pin) const {
    using internal::here;
    using internal::SystemException;
    if (info() == nullptr) {
        raise(internal::CryptoException(internal::CryptoException::Code::noCertificate), here);
    }
    unsigned error = 0;
    const HCRYPTPROV context = internal::open(provider, container, &error);
    internal::checkOpen(context, error);
    HCRYPTKEY key;
    if (CryptGetUserKey(context.get(), capi::AT_KEYEXCHANGE, key.put()) == 0) {
        raise(SystemException(), here);
    }
    internal::unlock(context.get(), pin);
    internal::matchKeys(context.get(), container, *publicKey());
    const auto name = internal::containerName(context.get());
    if (CryptSetKeyParam(key.get(), capi::KP_CERTIFICATE, native()->pbCertEncoded, 0) == 0) {
        raise(SystemException(), here);
    }
    if (!link(provider, name)) {
        const SystemException failure;
        log::error("crypto: link certificate failed: " + std::to_string(static_cast<unsigned>(failure.code().value())));
        raise(failure, here);
    }
}

} // namespace orvik::plugin::wincrypt
