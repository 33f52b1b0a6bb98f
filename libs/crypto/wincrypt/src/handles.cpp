#include "crypto/wincrypt/handles.hpp"

#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

#include "capi/constants.hpp"
#include "log_text.hpp"
#include "provider_record.hpp"

#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/tools.hpp"

#include <cstdint>
#include <utility>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

using crypto::IProvider;

bool isCryptoPro(const std::wstring& provider) {
    const auto info = providerRecord(provider);
    return info && info->family == IProvider::Family::cryptoPro;
}

void reportFailure(const std::wstring& provider, unsigned code, unsigned* error) {
    log::warning("wincrypt: acquire context failed, provider: " + quotedName(provider) +
                 ", reason: " + std::to_string(code));
    if (error != nullptr) {
        *error = code;
    }
}

/// Returns the name under which the container was acquired; empty when there is none.
std::wstring acquire(unsigned long& handle, const std::wstring& container, const std::wstring& provider,
                     IProvider::Type type, unsigned long flags, unsigned* error) {
    if (provider.empty()) {
        constexpr int line = 65; // support staff and log filters know this failure by its line
        exception::raise(
            crypto::exception::CryptoException(crypto::exception::CryptoException::Code::emptyProviderName),
            {"scoped_handle", "operator()", line});
    }
    if (crypto::tools::isCNG(provider)) {
        return {};
    }
    const auto attempt = [&](const wchar_t* name) {
        return CryptAcquireContextW(&handle, name, provider.c_str(), type, static_cast<DWORD>(flags)) != 0;
    };
    if (attempt(container.empty() ? nullptr : container.c_str())) {
        return container;
    }
    if (!container.empty() && isCryptoPro(provider)) {
        std::wstring prefixed = crypto::constant::crypto_pro_file_reader_container_prefix_w + container;
        if (attempt(prefixed.c_str())) {
            return prefixed;
        }
    }
    const unsigned code = GetLastErrorEx();
    handle = 0; // whatever a failed call may have left there is not ours
    reportFailure(provider, code, error);
    return {};
}

unsigned long defaultFlags(const IProvider& provider) {
    return provider.container() ? 0 : capi::CRYPT_VERIFYCONTEXT | capi::CRYPT_SILENT;
}

} // namespace
} // namespace internal

HCRYPTPROV::HCRYPTPROV() : HCRYPTPROV(0UL) {}

HCRYPTPROV::HCRYPTPROV(unsigned long handle)
    : scoped_handle([handle](unsigned long& held) { held = handle; }, [this](unsigned long& held) { giveBack(held); }),
      known_(false), cng_(false) {}

// The flags come after the handle: whatever was acquired is given back with CryptReleaseContext, without asking.
HCRYPTPROV::HCRYPTPROV(const std::wstring& container, const std::wstring& provider, crypto::IProvider::Type type,
                       unsigned long flags, unsigned* error)
    : scoped_handle([&](unsigned long& held) { internal::acquire(held, container, provider, type, flags, error); },
                    [this](unsigned long& held) { giveBack(held); }),
      known_(true), cng_(false) {}

HCRYPTPROV::HCRYPTPROV(const std::wstring& container, const std::wstring& provider, crypto::IProvider::Type type,
                       unsigned long flags, unsigned* error, std::wstring& acquired)
    : scoped_handle(
          [&](unsigned long& held) {
              auto name = internal::acquire(held, container, provider, type, flags, error);
              if (held != 0) {
                  acquired = std::move(name);
              }
          },
          [this](unsigned long& held) { giveBack(held); }),
      known_(true), cng_(false) {}

HCRYPTPROV::HCRYPTPROV(const crypto::IProvider& provider, unsigned* error)
    : HCRYPTPROV(provider.container().value_or(std::wstring()), provider.name(), provider.type(),
                 internal::defaultFlags(provider), error) {}

HCRYPTPROV::~HCRYPTPROV() {
    finish();
}

void HCRYPTPROV::giveBack(unsigned long handle) {
    if (!known_) {
        cng_ = tools::isCNG(handle);
        known_ = true;
    }
    if (!cng_) {
        CryptReleaseContext(handle, 0);
    }
}

HCRYPTKEY::HCRYPTKEY() : scoped_handle(nullptr, [](unsigned long& held) { CryptDestroyKey(held); }) {}

HCRYPTHASH::HCRYPTHASH() : scoped_handle(nullptr, [](unsigned long& held) { CryptDestroyHash(held); }) {}

HCRYPTMSG::HCRYPTMSG() : scoped_handle(nullptr, [](void*& held) { CryptMsgClose(held); }) {}

HCERTSTORE::HCERTSTORE(void* message)
    : scoped_handle(
          [message](void*& held) {
              const auto* provider = reinterpret_cast<const char*>(std::uintptr_t{capi::CERT_STORE_PROV_MSG});
              held = CertOpenStore(provider, capi::X509_AND_PKCS_7, 0, 0, message);
          },
          [](void*& held) { CertCloseStore(held, 0); }) {}

} // namespace orvik::plugin::wincrypt
