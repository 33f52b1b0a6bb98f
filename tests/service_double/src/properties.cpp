// Properties of certificate contexts, and the way from a certificate to its key.

#include "model.hpp"

#include "capi/constants.hpp"

namespace service_double {

namespace {

Flat flatKeyProviderInfo(const CRYPT_KEY_PROV_INFO& info) {
    Flat flat(sizeof info);
    if (info.pwszContainerName != nullptr) {
        flat.text(offsetof(CRYPT_KEY_PROV_INFO, pwszContainerName), std::wstring(info.pwszContainerName));
    }
    if (info.pwszProvName != nullptr) {
        flat.text(offsetof(CRYPT_KEY_PROV_INFO, pwszProvName), std::wstring(info.pwszProvName));
    }
    flat.set(offsetof(CRYPT_KEY_PROV_INFO, dwProvType), info.dwProvType);
    flat.set(offsetof(CRYPT_KEY_PROV_INFO, dwFlags), info.dwFlags);
    flat.set(offsetof(CRYPT_KEY_PROV_INFO, dwKeySpec), info.dwKeySpec);
    return flat;
}

void setKeyProviderInfo(CertificateObject& certificate, const void* data) {
    if (data == nullptr) {
        certificate.keyProviderInfo.reset();
    } else {
        certificate.keyProviderInfo = flatKeyProviderInfo(*static_cast<const CRYPT_KEY_PROV_INFO*>(data));
    }
}

} // namespace

BOOL Defaults::CertGetCertificateContextProperty(PCCERT_CONTEXT context, DWORD id, void* buffer, DWORD* size) {
    const Lock lock(stateMutex());
    const auto certificate = findCertificate(context);
    if (!certificate) {
        return fail(capi::ERROR_INVALID_PARAMETER);
    }
    if (id == capi::CERT_KEY_PROV_INFO_PROP_ID && certificate->keyProviderInfo) {
        return giveFlat(*certificate->keyProviderInfo, buffer, size);
    }
    if (id == capi::CERT_SHA1_HASH_PROP_ID) {
        return give(digestOf(capi::CALG_SHA1, certificate->der), buffer, size);
    }
    const auto found = certificate->properties.find(id);
    return found == certificate->properties.end() ? static_cast<BOOL>(fail(capi::CRYPT_E_NOT_FOUND))
                                                  : give(found->second, buffer, size);
}

BOOL Defaults::CertSetCertificateContextProperty(PCCERT_CONTEXT context, DWORD id, DWORD /*flags*/, const void* data) {
    const Lock lock(stateMutex());
    const auto certificate = findCertificate(context);
    if (!certificate) {
        return fail(capi::ERROR_INVALID_PARAMETER);
    }
    if (id == capi::CERT_KEY_PROV_INFO_PROP_ID) {
        setKeyProviderInfo(*certificate, data);
    } else if (data == nullptr) {
        certificate->properties.erase(id);
    } else {
        const auto& blob = *static_cast<const CRYPT_DATA_BLOB*>(data);
        certificate->properties[id].assign(reinterpret_cast<const char*>(blob.pbData), blob.cbData);
    }
    return 1;
}

BOOL Defaults::CryptAcquireCertificatePrivateKey(PCCERT_CONTEXT context, DWORD flags, void* /*reserved*/,
                                                 unsigned long* handle, DWORD* keySpec, BOOL* callerFrees) {
    const Lock lock(stateMutex());
    const auto certificate = findCertificate(context);
    if (!certificate || !certificate->keyProviderInfo) {
        return fail(capi::CRYPT_E_NO_KEY_PROPERTY);
    }
    std::string block(certificate->keyProviderInfo->size(), '\0');
    certificate->keyProviderInfo->placedAt(block.data()).copy(block.data(), block.size());
    const auto* info = reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(block.data());
    const DWORD silent = (flags & capi::CRYPT_ACQUIRE_SILENT_FLAG) != 0 ? capi::CRYPT_SILENT : 0;
    if (!acquire(handle, info->pwszContainerName, info->pwszProvName, info->dwProvType, info->dwFlags | silent)) {
        return 0;
    }
    *keySpec = info->dwKeySpec;
    *callerFrees = service().callerFrees ? 1 : 0;
    if (!service().callerFrees) {
        state().contexts.find(*handle)->ownedByService = 1;
    }
    return 1;
}

BOOL Defaults::CertGetEnhancedKeyUsage(PCCERT_CONTEXT /*context*/, DWORD /*flags*/, CERT_ENHKEY_USAGE* /*usage*/,
                                       DWORD* /*size*/) {
    return fail(capi::CRYPT_E_NOT_FOUND);
}

} // namespace service_double
