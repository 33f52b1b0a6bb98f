#include "stores/certificate_key.hpp"

#include "crypto/key_pair.hpp"
#include "keys/context.hpp"
#include "keys/provider_params.hpp"

#include <array>
#include <string>

namespace klunortredi::csp {

namespace {

constexpr DWORD followProviderInfo = 0x00000002; ///< CRYPT_ACQUIRE_USE_PROV_INFO_FLAG
constexpr DWORD providerInfoCaches = 0x00000001; ///< CERT_SET_KEY_CONTEXT_PROP_ID in CRYPT_KEY_PROV_INFO.dwFlags

/// A handle that goes back unless somebody takes it.
class Handle {
public:
    explicit Handle(unsigned long value) noexcept : value_(value) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        if (value_ != 0) {
            guarded([this] { releaseContext(value_); });
        }
    }

    [[nodiscard]] unsigned long get() const noexcept { return value_; }
    unsigned long take() noexcept { return std::exchange(value_, 0); }

private:
    unsigned long value_;
};

bool alive(unsigned long provider) {
    try {
        signingContext(provider);
        return true;
    } catch (const ApiError&) {
        return false; // its owner released it
    }
}

bool caches(const Certificate& certificate, DWORD flags) {
    if ((flags & capi::CRYPT_ACQUIRE_CACHE_FLAG) != 0) {
        return true;
    }
    const auto info = certificate.properties().keyProvider;
    return (flags & followProviderInfo) != 0 && info && (info->flags & providerInfoCaches) != 0;
}

unsigned long acquire(const KeyProviderInfo& info, DWORD flags) {
    const DWORD acquireFlags =
        (info.flags & (capi::CRYPT_MACHINE_KEYSET | capi::CRYPT_SILENT)) | (flags & capi::CRYPT_ACQUIRE_SILENT_FLAG);
    Handle handle(acquireContext(info.container.value_or(std::wstring{}), info.provider.value_or(std::wstring{}),
                                 info.providerType, acquireFlags));
    for (const auto& parameter : info.parameters) {
        const std::string text(parameter.data.begin(), parameter.data.end()); // zero-terminated, whatever the blob was
        setProviderParam(*providerContext(handle.get()), parameter.id, text.c_str(), parameter.flags);
    }
    return handle.take();
}

struct FoundKey {
    DWORD keySpec = 0;
    Bytes publicKeyInfo;
};

FoundKey findKeyPair(unsigned long provider, DWORD wanted) {
    const auto context = signingContext(provider);
    const DWORD first = wanted == capi::AT_SIGNATURE ? capi::AT_SIGNATURE : capi::AT_KEYEXCHANGE;
    try {
        return {first, context->publicKeyInfo(first)};
    } catch (const ApiError& error) {
        if (error.code() != capi::NTE_NO_KEY) {
            throw;
        }
    }
    const DWORD other = first == capi::AT_SIGNATURE ? capi::AT_KEYEXCHANGE : capi::AT_SIGNATURE;
    return {other, context->publicKeyInfo(other)};
}

KeyHandle keep(Certificate& certificate, unsigned long provider, DWORD keySpec) {
    const std::shared_ptr<void> owner(nullptr,
                                      [provider](void*) { guarded([provider] { releaseContext(provider); }); });
    return certificate.offerKeyHandle({provider, keySpec, owner}, alive);
}

} // namespace

AcquiredKey acquireCertificateKey(const ContextTarget& target, DWORD flags) {
    Certificate& certificate = *target.certificate;
    const bool cached = caches(certificate, flags);
    if (cached) {
        const KeyHandle held = certificate.keyHandle();
        if (held.provider != 0 && alive(held.provider)) {
            return {held.provider, held.keySpec, false};
        }
    }
    const auto info = certificate.properties().keyProvider;
    if (!info) {
        fail(capi::CRYPT_E_NO_KEY_PROPERTY);
    }
    Handle provider(acquire(*info, flags));
    const FoundKey key = findKeyPair(provider.get(), info->keySpec);
    if ((flags & capi::CRYPT_ACQUIRE_COMPARE_KEY_FLAG) != 0 &&
        !samePublicKey(key.publicKeyInfo, certificate.decoded().subjectPublicKeyInfo())) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    const unsigned long handle = provider.take();
    if (!cached) {
        return {handle, key.keySpec, true};
    }
    const KeyHandle kept = keep(certificate, handle, key.keySpec);
    return {kept.provider, kept.keySpec, false};
}

} // namespace klunortredi::csp
