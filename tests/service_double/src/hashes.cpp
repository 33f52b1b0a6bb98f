// Hashes and signatures. A signature here is a digest over the hash value and the signer's public key: enough to tell
// the right key and the right content from wrong ones.

#include "model.hpp"

#include "capi/constants.hpp"

#include <algorithm>

namespace service_double {

namespace {

std::string signatureOf(const HashObject& hash, const std::string& publicOctets) {
    return digestOf(0, digestOf(hash.algorithm, hash.data) + publicOctets);
}

} // namespace

BOOL Defaults::CryptCreateHash(unsigned long context, ALG_ID algorithm, unsigned long /*key*/, DWORD /*flags*/,
                               unsigned long* hash) {
    const Lock lock(stateMutex());
    if (providerOf(context) == nullptr) {
        return fail(capi::NTE_BAD_UID);
    }
    *hash = state().hashes.add({context, algorithm, {}});
    return 1;
}

BOOL Defaults::CryptHashData(unsigned long handle, const BYTE* data, DWORD size, DWORD /*flags*/) {
    const Lock lock(stateMutex());
    auto* hash = state().hashes.find(handle);
    if (hash == nullptr) {
        return fail(capi::NTE_BAD_HASH);
    }
    if (hash->finished) {
        return fail(capi::NTE_BAD_HASH_STATE);
    }
    hash->data.append(reinterpret_cast<const char*>(data), size);
    return 1;
}

BOOL Defaults::CryptGetHashParam(unsigned long handle, DWORD parameter, BYTE* buffer, DWORD* size, DWORD /*flags*/) {
    const Lock lock(stateMutex());
    auto* hash = state().hashes.find(handle);
    if (hash == nullptr) {
        return fail(capi::NTE_BAD_HASH);
    }
    const auto value = digestOf(hash->algorithm, hash->data);
    if (parameter == capi::HP_HASHSIZE) {
        const auto length = static_cast<DWORD>(value.size());
        return give({reinterpret_cast<const char*>(&length), sizeof length}, buffer, size);
    }
    if (parameter != capi::HP_HASHVAL) {
        return fail(capi::NTE_BAD_TYPE);
    }
    hash->finished = hash->finished || buffer != nullptr;
    return give(value, buffer, size);
}

BOOL Defaults::CryptDestroyHash(unsigned long hash) {
    const Lock lock(stateMutex());
    return state().hashes.erase(hash) ? 1 : misuse("CryptDestroyHash: a hash that is not held", capi::NTE_BAD_HASH);
}

BOOL Defaults::CryptSignHashW(unsigned long handle, DWORD spec, const char* /*description*/, DWORD /*flags*/,
                              BYTE* buffer, DWORD* size) {
    const Lock lock(stateMutex());
    const auto* hash = state().hashes.find(handle);
    if (hash == nullptr) {
        return fail(capi::NTE_BAD_HASH);
    }
    const auto* container = containerOf(hash->context);
    if (container == nullptr ||
        std::find(container->keySpecs.begin(), container->keySpecs.end(), spec) == container->keySpecs.end()) {
        return fail(capi::NTE_NO_KEY);
    }
    return give(signatureOf(*hash, container->publicKey.key), buffer, size);
}

BOOL Defaults::CryptVerifySignatureW(unsigned long handle, const BYTE* signature, DWORD size, unsigned long key,
                                     const char* /*description*/, DWORD /*flags*/) {
    const Lock lock(stateMutex());
    const auto* hash = state().hashes.find(handle);
    const auto* publicKey = state().keys.find(key);
    if (hash == nullptr || publicKey == nullptr) {
        return fail(hash == nullptr ? capi::NTE_BAD_HASH : capi::NTE_BAD_KEY);
    }
    const std::string given(reinterpret_cast<const char*>(signature), size);
    return given == signatureOf(*hash, publicKey->publicOctets) ? 1 : fail(capi::NTE_BAD_SIGNATURE);
}

BOOL Defaults::CryptHashCertificate(unsigned long /*context*/, ALG_ID algorithm, DWORD /*flags*/, const BYTE* encoded,
                                    DWORD encodedSize, BYTE* buffer, DWORD* size) {
    return give(digestOf(algorithm, {reinterpret_cast<const char*>(encoded), encodedSize}), buffer, size);
}

} // namespace service_double
