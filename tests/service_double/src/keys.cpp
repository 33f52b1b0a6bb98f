// Keys of containers, and public keys.

#include "model.hpp"

#include "capi/constants.hpp"

#include <algorithm>

namespace service_double {

namespace {

bool holds(const Container& container, DWORD spec) {
    return std::find(container.keySpecs.begin(), container.keySpecs.end(), spec) != container.keySpecs.end();
}

/// Length of the DER object at `data`, for interfaces that take one without a length.
std::size_t derLength(const BYTE* data) {
    constexpr BYTE longForm = 0x80;
    constexpr unsigned octetBits = 8;
    const BYTE first = data[1];
    if (first < longForm) {
        return std::size_t{2} + first;
    }
    const std::size_t lengthOctets = first - longForm;
    std::size_t length = 0;
    for (std::size_t i = 0; i < lengthOctets; ++i) {
        length = (length << octetBits) + data[2 + i];
    }
    return 2 + lengthOctets + length;
}

} // namespace

Flat flatPublicKey(const PublicKey& key) {
    Flat flat(sizeof(CERT_PUBLIC_KEY_INFO));
    flat.text(offsetof(CERT_PUBLIC_KEY_INFO, Algorithm.pszObjId), key.oid);
    flat.blob(offsetof(CERT_PUBLIC_KEY_INFO, Algorithm.Parameters), key.parameters);
    flat.blob(offsetof(CERT_PUBLIC_KEY_INFO, PublicKey), key.key);
    return flat;
}

BOOL Defaults::CryptGetUserKey(unsigned long context, DWORD spec, unsigned long* key) {
    const Lock lock(stateMutex());
    const auto* container = containerOf(context);
    if (container == nullptr || !holds(*container, spec)) {
        return fail(capi::NTE_NO_KEY);
    }
    *key = state().keys.add({context, spec, container->publicKey.key});
    return 1;
}

BOOL Defaults::CryptGenKey(unsigned long context, ALG_ID algorithm, DWORD /*flags*/, unsigned long* key) {
    const Lock lock(stateMutex());
    auto* container = containerOf(context);
    if (container == nullptr) {
        return fail(capi::NTE_PERM);
    }
    if (!holds(*container, algorithm)) {
        container->keySpecs.push_back(algorithm);
    }
    *key = state().keys.add({context, algorithm, container->publicKey.key});
    return 1;
}

BOOL Defaults::CryptDestroyKey(unsigned long key) {
    const Lock lock(stateMutex());
    return state().keys.erase(key) ? 1 : misuse("CryptDestroyKey: a key that is not held", capi::NTE_BAD_KEY);
}

BOOL Defaults::CryptGetKeyParam(unsigned long handle, DWORD parameter, BYTE* buffer, DWORD* size, DWORD /*flags*/) {
    const Lock lock(stateMutex());
    const auto* key = state().keys.find(handle);
    if (key == nullptr) {
        return fail(capi::NTE_BAD_KEY);
    }
    if (parameter != capi::KP_CERTIFICATE) {
        return fail(capi::NTE_BAD_TYPE);
    }
    const auto* container = containerOf(key->context);
    if (container == nullptr || container->certificate.empty()) {
        return fail(capi::NTE_NOT_FOUND);
    }
    return give(container->certificate, buffer, size);
}

BOOL Defaults::CryptSetKeyParam(unsigned long handle, DWORD parameter, const BYTE* data, DWORD /*flags*/) {
    const Lock lock(stateMutex());
    const auto* key = state().keys.find(handle);
    if (key == nullptr) {
        return fail(capi::NTE_BAD_KEY);
    }
    auto* container = containerOf(key->context);
    if (parameter != capi::KP_CERTIFICATE || container == nullptr) {
        return fail(capi::NTE_BAD_TYPE);
    }
    container->certificate.assign(reinterpret_cast<const char*>(data), derLength(data));
    return 1;
}

BOOL Defaults::CryptImportPublicKeyInfo(unsigned long context, DWORD /*encoding*/, CERT_PUBLIC_KEY_INFO* info,
                                        unsigned long* key) {
    const Lock lock(stateMutex());
    if (providerOf(context) == nullptr) {
        return fail(capi::NTE_BAD_UID);
    }
    const std::string octets(reinterpret_cast<const char*>(info->PublicKey.pbData), info->PublicKey.cbData);
    *key = state().keys.add({context, 0, octets});
    return 1;
}

BOOL Defaults::CryptExportPublicKeyInfo(unsigned long context, DWORD spec, DWORD /*encoding*/,
                                        CERT_PUBLIC_KEY_INFO* info, DWORD* size) {
    const Lock lock(stateMutex());
    const auto* container = containerOf(context);
    if (container == nullptr || !holds(*container, spec)) {
        return fail(capi::NTE_NO_KEY);
    }
    return giveFlat(flatPublicKey(container->publicKey), info, size);
}

BOOL Defaults::CertComparePublicKeyInfo(DWORD /*encoding*/, CERT_PUBLIC_KEY_INFO* a, CERT_PUBLIC_KEY_INFO* b) {
    const auto octets = [](const auto& blob) {
        return std::string(reinterpret_cast<const char*>(blob.pbData), blob.pbData == nullptr ? 0 : blob.cbData);
    };
    const auto oid = [](const CERT_PUBLIC_KEY_INFO* info) {
        return std::string(info->Algorithm.pszObjId == nullptr ? "" : info->Algorithm.pszObjId);
    };
    const bool equal = oid(a) == oid(b) && octets(a->Algorithm.Parameters) == octets(b->Algorithm.Parameters) &&
                       octets(a->PublicKey) == octets(b->PublicKey);
    return equal ? 1 : 0;
}

} // namespace service_double
