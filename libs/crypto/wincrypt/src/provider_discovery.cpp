#include "crypto/wincrypt/provider.hpp"

#include "cancellation.hpp"
#include "capi/constants.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/public_key.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/tools_encode.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "log_text.hpp"
#include "orvik/plugin/crypto/tools.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "orvik/plugin/hex.hpp"
#include "orvik/plugin/tools.hpp"

#include <boost/filesystem/path.hpp>
#include <boost/smart_ptr/make_shared.hpp>

namespace orvik::plugin::crypto {

bool operator<(const IProvider& a, const IProvider& b) {
    const auto deviceOfA = a.device();
    const auto deviceOfB = b.device();
    if (deviceOfA && deviceOfB) {
        return *deviceOfA < *deviceOfB;
    }
    if (deviceOfA || deviceOfB) {
        return !deviceOfA;
    }
    if (a.type() != b.type()) {
        return a.type() < b.type();
    }
    if (a.name() != b.name()) {
        return a.name() < b.name();
    }
    return a.container() < b.container();
}

} // namespace orvik::plugin::crypto

namespace orvik::plugin::wincrypt {

using crypto::exception::SystemException;
using plugin::exception::ApplicationException;

namespace internal {
namespace {

crypto::IProvider::Set providers() {
    static const crypto::IProvider::Set result = [] {
        crypto::IProvider::Set installed;
        for (const auto& [type, name] : EnumProvidersEx()) {
            installed.insert(boost::make_shared<Provider>(static_cast<crypto::IProvider::Type>(type), name));
        }
        return installed;
    }();
    return result;
}

/// One step of the container enumeration into `buffer`; false at its end.
bool nextContainer(const HCRYPTPROV& context, DWORD flags, std::string& buffer) {
    auto length = static_cast<DWORD>(buffer.size());
    return CryptGetProvParam(context.get(), capi::PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(buffer.data()), &length,
                             flags) != 0;
}

/// The last component of a fully qualified name.
std::string fileName(const std::wstring& container) {
    return boost::filesystem::path(plugin::converter::utf16_to_utf8(container)).filename().string();
}

/// The key in an exported CERT_PUBLIC_KEY_INFO; null when there is none to show.
boost::shared_ptr<crypto::IPublicKey> exportedKey(std::string info) {
    if (info.size() < sizeof(CERT_PUBLIC_KEY_INFO)) {
        log::warning("wincrypt: publicKeyInfo is empty");
        return nullptr;
    }
    return boost::make_shared<PublicKey>(reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(info.data()));
}

} // namespace
} // namespace internal

crypto::IProvider::Set Provider::providers(const Session&) const {
    static const Set result = internal::providers();
    return result;
}

boost::shared_ptr<crypto::IProvider> Provider::provider(const std::wstring& name) {
    if (name.empty()) {
        return nullptr;
    }
    for (const auto& provider : internal::providers()) {
        if (plugin::tools::icontains(provider->name(), name)) {
            return provider;
        }
    }
    return nullptr;
}

std::vector<std::wstring> Provider::containers() const {
    return containers(*this);
}

std::vector<std::wstring> Provider::containers(const IProvider& provider) {
    std::vector<std::wstring> names;
    try {
        const HCRYPTPROV context(provider, nullptr);
        if (tools::isCNG(context.get())) {
            return names;
        }
        constexpr DWORD first = capi::CRYPT_FIRST | capi::CRYPT_FQCN;
        constexpr DWORD next = capi::CRYPT_NEXT | capi::CRYPT_FQCN;
        DWORD length = 0;
        if (CryptGetProvParam(context.get(), capi::PP_ENUMCONTAINERS, nullptr, &length, first) == 0) {
            return names;
        }
        std::string name(length, '\0');
        for (DWORD flags = first; internal::nextContainer(context, flags, name); flags = next) {
            names.push_back(plugin::converter::utf8_to_utf16(name.c_str()));
        }
    } catch (const std::exception& e) {
        log::warning("wincrypt: get provider containers failed, provider: " + quotedName(provider.name()) + ", " +
                     e.what());
    }
    return names;
}

std::vector<std::wstring> Provider::containers(const IProvider& provider, const std::wstring& filter) {
    auto names = containers(provider);
    if (!filter.empty()) {
        const auto wanted = plugin::converter::utf16_to_utf8(filter);
        std::erase_if(names, [&](const std::wstring& name) { return internal::fileName(name) != wanted; });
    }
    return names;
}

boost::shared_ptr<crypto::IPublicKey> Provider::publicKey(const IProvider& provider) {
    // A container that opens only through a dialogue is asked a second time, with dialogues allowed.
    constexpr DWORD attempts[] = {capi::CRYPT_SILENT, 0};
    const bool cng = crypto::tools::isCNG(provider);
    const auto container = provider.container();
    try {
        unsigned error = 0;
        for (const DWORD flags : attempts) {
            const HCRYPTPROV context(container.value_or(std::wstring()), provider.name(), provider.type(), flags,
                                     &error);
            if (context) {
                auto info = tools::exportPublicKeyInfo(context.get());
                log::debug("wincrypt: get provider's publicKey (cng:" + std::string(cng ? "true" : "false") +
                           "): container: " + quotedContainer(container));
                return internal::exportedKey(std::move(info));
            }
        }
        exception::raise(SystemException(error), {"provider", "publicKey"});
    } catch (const SystemException& e) {
        if (e.cancelled()) {
            exception::raise(ApplicationException(ApplicationException::Code::cancelled), {"provider", "publicKey"});
        }
        log::warning("wincrypt: get public key for provider failed, provider: " + quotedName(provider.name()) +
                     " error: " + e.what());
        return nullptr;
    }
}

boost::shared_ptr<crypto::IPublicKey> Provider::publicKey() const {
    try {
        return publicKey(*this);
    } catch (const ApplicationException&) {
        log::warning("wincrypt: get provider's public key failed - user cancelled: " + quotedContainer(container_));
    } catch (const std::exception&) {
        log::warning("wincrypt: get provider's public key failed, provider: " + quotedName(name_));
    }
    return nullptr;
}

boost::optional<std::wstring> Provider::container(const crypto::IPublicKey& key) const {
    if (key.key().empty()) {
        return boost::none;
    }
    log::debug("wincrypt: try provider, name: " + utf8OrEmpty(name_));
    for (const auto& name : containers()) {
        const auto text = plugin::converter::utf16_to_utf8(name);
        log::debug("wincrypt: try container: " + text);
        const auto found = Provider(type_, name_, name).publicKey();
        if (!found) {
            continue;
        }
        log::debug("wincrypt: try container public key: " + hex::encode(found->key()));
        if (*found == key) {
            log::debug("wincrypt: found certificate container: " + text);
            return name;
        }
    }
    return boost::none;
}

void Provider::deleteContainer(const std::wstring& container, const std::string& reason) const {
    unsigned error = 0;
    HCRYPTPROV deleted(container, name_, type_, capi::CRYPT_DELETEKEYSET, &error);
    if (error == 0) {
        static_cast<void>(deleted.detach()); // a context that deletes its container is no context afterwards
        return;
    }
    log::warning("wincrypt: delete container failed, provider: " + quotedName(name_) +
                 ", container: " + quotedName(container) + ", reason: " + reason + ", error: " + std::to_string(error));
    if (acquisitionCancelled(error)) {
        exception::raise(ApplicationException(ApplicationException::Code::cancelled), {"provider", "deleteContainer"});
    }
    exception::raise(SystemException(error), {"provider", "deleteContainer"});
}

void Provider::deleteContainers(const IProvider& provider, const std::wstring& filter) {
    if (crypto::tools::isCNG(provider)) {
        return;
    }
    for (const auto& name : containers(provider, filter)) {
        unsigned long none = 0; // not to be released, as above
        if (CryptAcquireContextW(&none, name.c_str(), provider.name().c_str(), provider.type(),
                                 capi::CRYPT_DELETEKEYSET) == 0) {
            log::warning("wincrypt: delete container failed, provider: " + quotedName(provider.name()));
        }
    }
}

} // namespace orvik::plugin::wincrypt
