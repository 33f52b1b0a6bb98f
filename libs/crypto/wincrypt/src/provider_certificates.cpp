#include "crypto/wincrypt/provider.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "log_text.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "provider_record.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>

namespace orvik::plugin::wincrypt {

using crypto::exception::SystemException;

namespace internal {
namespace {

constexpr const char* rsaOid = "1.2.840.113549.1.1.1";

/// DER of the certificate that lies beside the context's key; empty when there is none.
std::string storedCertificate(const HCRYPTPROV& context) {
    HCRYPTKEY key;
    if (!tools::isCNG(context.get()) && CryptGetUserKey(context.get(), tools::keySpec(context.get()), key.put()) == 0) {
        exception::raise(SystemException(), {"provider", "certificate"});
    }
    return CryptGetKeyParamEx(key.get(), capi::KP_CERTIFICATE);
}

/// Whether the provider's record lists the algorithm. RSA never counts: an RSA certificate in a container of these
/// providers is not one that the provider signs with.
bool supports(const crypto::IProvider& provider, const std::string& algorithm) {
    const auto record = providerRecord(provider.name());
    return record && algorithm != rsaOid &&
           std::find(record->algorithms.begin(), record->algorithms.end(), algorithm) != record->algorithms.end();
}

/// The provider as the context tells it; where it does not tell, the one that the context was opened with, for a
/// certificate must not be tied to a provider without a name.
Provider homeOf(const HCRYPTPROV& context, const crypto::IProvider& opened) {
    const unsigned type = tools::exportProviderType(context.get());
    const auto name = tools::exportProviderName(context.get());
    return {type != 0 ? static_cast<crypto::IProvider::Type>(type) : opened.type(),
            name.empty() ? opened.name() : name};
}

/// The certificate in the context's container, tied to it; null when there is none, or none of the provider's kind.
boost::shared_ptr<Certificate> certificate(const HCRYPTPROV& context, const crypto::IProvider& provider) {
    const auto der = storedCertificate(context);
    if (der.empty()) {
        return nullptr;
    }
    auto certificate = boost::make_shared<Certificate>(der);
    const auto key = certificate->publicKey();
    const std::string algorithm = key ? key->algObjId() : std::string();
    if (!supports(provider, algorithm)) {
        log::warning("wincrypt: provider " + quotedName(provider.name()) + " doesn't support " + algorithm);
        return nullptr;
    }
    if (!certificate->container()) {
        const Provider home = homeOf(context, provider);
        const auto path = tools::exportContainerPath(context.get());
        if (!path.empty()) { // a link without a container would lead to the default one
            static_cast<void>(certificate->link(home, path));
        }
    }
    log::debug("wincrypt: provider certificate: " + certificate->subject());
    return certificate;
}

/// As above, by the container's name. Throws SystemException when the container cannot be opened.
boost::shared_ptr<Certificate> certificate(const crypto::IProvider& provider, const std::wstring& container) {
    unsigned error = 0;
    const HCRYPTPROV context(container, provider.name(), provider.type(), 0, &error);
    if (!context) {
        exception::raise(SystemException(error), {"provider", "certificate"});
    }
    return certificate(context, provider);
}

void reportUnread(const crypto::IProvider& provider, const std::exception& e) {
    log::warning("wincrypt: get provider certificates failed, provider: " + quotedName(provider.name()) +
                 ", error: " + e.what());
}

/// For the walks over all containers: one that fails is logged and skipped.
boost::shared_ptr<Certificate> certificateIfReadable(const crypto::IProvider& provider, const std::wstring& container) {
    try {
        return certificate(provider, container);
    } catch (const std::exception& e) {
        reportUnread(provider, e);
        return nullptr;
    }
}

} // namespace
} // namespace internal

std::vector<boost::shared_ptr<crypto::ICertificate>> Provider::certificates() const {
    std::vector<boost::shared_ptr<crypto::ICertificate>> found;
    for (const auto& container : containers()) {
        if (auto certificate = internal::certificateIfReadable(*this, container)) {
            found.push_back(std::move(certificate));
        }
    }
    return found;
}

boost::shared_ptr<crypto::ICertificate> Provider::certificate(const std::wstring& container) const {
    try {
        return internal::certificate(*this, container);
    } catch (const std::exception& e) {
        log::warning("wincrypt: get provider certificate failed, container: " + quotedName(container) + ", " +
                     e.what());
        return nullptr;
    }
}

boost::shared_ptr<crypto::ICertificate>
Provider::certificate(const boost::shared_ptr<crypto::ICertificate>& like) const {
    if (!like) {
        return nullptr;
    }
    std::string serialNumber;
    try {
        serialNumber = like->serialNumber();
    } catch (const std::exception& e) {
        internal::reportUnread(*this, e);
        return nullptr;
    }
    std::set<std::wstring> visited;
    for (const auto& container : containers()) {
        if (!visited.insert(container).second) {
            continue;
        }
        auto certificate = internal::certificateIfReadable(*this, container);
        if (certificate && certificate->serialNumber() == serialNumber) {
            return certificate;
        }
    }
    return nullptr;
}

} // namespace orvik::plugin::wincrypt
