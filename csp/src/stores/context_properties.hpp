#pragma once

/// Properties as the CryptoAPI reads and sets them through a context.

#include "stores/context.hpp"

namespace klunortredi::csp {

/// The value by the two-call protocol: CRYPT_KEY_PROV_INFO (2), the key handle (1), CERT_KEY_CONTEXT (5), the SHA-1
/// hash (3, computed), the key identifier (20, computed unless one was set), the octets of any other.
/// ApiError(CRYPT_E_NOT_FOUND) when the certificate has no such property, ERROR_INVALID_PARAMETER for number 0.
void giveProperty(const ContextTarget& target, DWORD id, void* data, DWORD* size);

/// Sets the property, or with null `data` deletes it, for every context of the same store element, and saves it where
/// the store is on disk. Key handles (1, 5) stay in memory. The computed hash (3) cannot be set:
/// ApiError(ERROR_INVALID_PARAMETER).
void setProperty(const ContextTarget& target, DWORD id, const void* data);

} // namespace klunortredi::csp
