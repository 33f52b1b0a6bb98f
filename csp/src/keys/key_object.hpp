#pragma once

/// What stands behind an HCRYPTKEY.

#include "keys/provider_context.hpp"

namespace klunortredi::csp {

/// A key pair of a container, or an imported public key. Immutable. Every call throws ApiError(NTE_BAD_UID) once the
/// provider context is released.
class KeyObject {
public:
    /// The key pair of that spec. Throws ApiError(NTE_NO_KEY).
    KeyObject(std::shared_ptr<ProviderContext> context, DWORD keySpec);
    /// A public key. Throws ApiError(NTE_BAD_PUBLIC_KEY).
    KeyObject(std::shared_ptr<ProviderContext> context, ByteView publicKeyInfo);

    /// Not owned.
    [[nodiscard]] EVP_PKEY* publicKey() const;
    /// CryptGetKeyParam and CryptSetKeyParam.
    void param(DWORD param, void* buffer, DWORD* size) const;
    void setParam(DWORD param, const BYTE* data) const;

private:
    static constexpr DWORD imported = 0;

    [[nodiscard]] ALG_ID algorithmId() const;
    [[nodiscard]] DWORD permissions() const;
    void giveCertificate(void* buffer, DWORD* size) const;

    std::shared_ptr<ProviderContext> context_;
    DWORD keySpec_;
    ossl::Pkey publicKey_;
    const KeyAlgorithm& algorithm_;
};

/// Throw ApiError(NTE_BAD_KEY) for a handle that is not one of ours.
unsigned long addKey(std::shared_ptr<KeyObject> key);
std::shared_ptr<KeyObject> keyObject(unsigned long hKey);
void destroyKey(unsigned long hKey);

} // namespace klunortredi::csp
