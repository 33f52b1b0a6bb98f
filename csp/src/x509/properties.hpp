#pragma once

/// Properties of a certificate: what the CryptoAPI keeps beside it and its signature does not cover.

#include "capi/types.h"
#include "core/bytes.hpp"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace klunortredi::csp {

/// CRYPT_KEY_PROV_INFO by value: where the private key lies.
struct KeyProviderInfo {
    struct Parameter {
        DWORD id = 0;
        Bytes data;
        DWORD flags = 0;
    };

    std::optional<std::wstring> container; ///< empty optional: the pointer was null
    std::optional<std::wstring> provider;
    DWORD providerType = 0;
    DWORD flags = 0;
    std::vector<Parameter> parameters;
    DWORD keySpec = 0;

    explicit KeyProviderInfo() = default;
    /// Deep copy. A null rgProvParam with a count: ApiError(ERROR_INVALID_PARAMETER).
    explicit KeyProviderInfo(const CRYPT_KEY_PROV_INFO& info);
    /// Hands the CRYPT_KEY_PROV_INFO out in one block, by the two-call protocol.
    void deliver(void* buffer, DWORD* size) const;
};

/// The properties that live as long as the certificate: they are copied with it and saved on disk. Key handles, which
/// mean nothing outside the process, are kept by Certificate.
struct Properties {
    std::optional<KeyProviderInfo> keyProvider;
    std::map<DWORD, Bytes> blobs;

    /// Takes a property as CertSetCertificateContextProperty has it: a CRYPT_KEY_PROV_INFO for number 2, a
    /// CRYPT_DATA_BLOB for any other; null deletes.
    void set(DWORD id, const void* data);
    /// Adds those properties of `other` that are not there.
    void addMissing(const Properties& other);
};

} // namespace klunortredi::csp
