#include "stores/context_properties.hpp"

#include "core/output.hpp"

namespace klunortredi::csp {

namespace {

KeyHandle heldKey(const Certificate& certificate) {
    KeyHandle key = certificate.keyHandle();
    if (key.provider == 0) {
        fail(capi::CRYPT_E_NOT_FOUND);
    }
    return key;
}

template <class Value>
void giveValue(const Value& value, void* data, DWORD* size) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast)
    give(ByteView{reinterpret_cast<const std::uint8_t*>(&value), sizeof value}, data, size);
}

void giveKeyContext(const Certificate& certificate, void* data, DWORD* size) {
    const KeyHandle key = heldKey(certificate);
    CERT_KEY_CONTEXT context{};
    context.cbSize = sizeof context;
    context.hCryptProv = key.provider;
    context.dwKeySpec = key.keySpec;
    giveValue(context, data, size);
}

void giveBlob(const Certificate& certificate, DWORD id, void* data, DWORD* size) {
    const Properties properties = certificate.properties();
    const auto found = properties.blobs.find(id);
    if (found != properties.blobs.end()) {
        give(found->second, data, size);
    } else if (id == capi::CERT_KEY_IDENTIFIER_PROP_ID) {
        give(certificate.keyIdentifier(), data, size);
    } else {
        fail(capi::CRYPT_E_NOT_FOUND);
    }
}

KeyHandle keyContext(const CERT_KEY_CONTEXT& context) {
    if (context.cbSize < sizeof context) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    return {context.hCryptProv, context.dwKeySpec, nullptr};
}

} // namespace

void giveProperty(const ContextTarget& target, DWORD id, void* data, DWORD* size) {
    const Certificate& certificate = *target.certificate;
    switch (id) {
    case 0:
        fail(capi::ERROR_INVALID_PARAMETER);
    case capi::CERT_KEY_PROV_HANDLE_PROP_ID:
        return giveValue(heldKey(certificate).provider, data, size);
    case capi::CERT_KEY_CONTEXT_PROP_ID:
        return giveKeyContext(certificate, data, size);
    case capi::CERT_SHA1_HASH_PROP_ID:
        return give(certificate.thumbprint(), data, size);
    case capi::CERT_KEY_PROV_INFO_PROP_ID: {
        const Properties properties = certificate.properties();
        if (!properties.keyProvider) {
            fail(capi::CRYPT_E_NOT_FOUND);
        }
        return properties.keyProvider->deliver(data, size);
    }
    default:
        return giveBlob(certificate, id, data, size);
    }
}

void setProperty(const ContextTarget& target, DWORD id, const void* data) {
    Certificate& certificate = *target.certificate;
    switch (id) {
    case 0:
    case capi::CERT_SHA1_HASH_PROP_ID:
        fail(capi::ERROR_INVALID_PARAMETER);
    case capi::CERT_KEY_PROV_HANDLE_PROP_ID:
        return certificate.setKeyHandle(
            data == nullptr ? KeyHandle{} : KeyHandle{*static_cast<const unsigned long*>(data), 0, nullptr});
    case capi::CERT_KEY_CONTEXT_PROP_ID:
        return certificate.setKeyHandle(data == nullptr ? KeyHandle{}
                                                        : keyContext(*static_cast<const CERT_KEY_CONTEXT*>(data)));
    default:
        break;
    }
    const auto change = [&](Properties& properties) { properties.set(id, data); };
    if (target.store) {
        target.store->writable().change(certificate, change);
    } else {
        certificate.changeProperties(change);
    }
}

} // namespace klunortredi::csp
