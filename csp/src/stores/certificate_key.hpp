#pragma once

/// The private key of a certificate, found through its key provider property.

#include "stores/context.hpp"

namespace klunortredi::csp {

struct AcquiredKey {
    unsigned long provider = 0; ///< HCRYPTPROV
    DWORD keySpec = 0;
    bool callerFrees = true; ///< false: the certificate keeps the handle
};

/// What CryptAcquireCertificatePrivateKey does. `flags` are CRYPT_ACQUIRE_...: with the cache flag (or where the
/// property asks for it and the flags follow it) the handle is kept with the certificate and given again next time;
/// with the comparison flag the key must be the certificate's (NTE_BAD_PUBLIC_KEY otherwise). The preference for
/// another kind of key storage is accepted, there is none.
///
/// The key spec is the property's when the container has such a key, else that of the key which it has.
/// ApiError(CRYPT_E_NO_KEY_PROPERTY) when the certificate has no such property; else as acquireContext.
AcquiredKey acquireCertificateKey(const ContextTarget& target, DWORD flags);

} // namespace klunortredi::csp
