#pragma once

/// Certificates and requests signed: SEQUENCE { to be signed, algorithm, signature } (RFC 5280, RFC 2986).

#include "capi/types.h"

namespace klunortredi::csp {

struct SignRequest {
    unsigned long provider = 0; ///< HCRYPTPROV
    DWORD keySpec = 0;
    DWORD encodingType = 0;
    const char* structType = nullptr; ///< X509_CERT_TO_BE_SIGNED or X509_CERT_REQUEST_TO_BE_SIGNED
    const void* info = nullptr;
    const CRYPT_ALGORITHM_IDENTIFIER* algorithm = nullptr;
};

/// By the two-call protocol. The size is found without the private key, so that no PIN is wanted for it, and it is
/// exact: signing happens once, in the call that has room for the result.
///
/// Throws ApiError: ERROR_INVALID_HANDLE for the provider, ERROR_FILE_NOT_FOUND for another structure type,
/// CRYPT_E_UNKNOWN_ALGO for an algorithm that is none of signing, NTE_BAD_ALGID for one that is not the key's or that
/// leaves the hash open, NTE_NO_KEY, and what encoding and signing throw.
void signAndEncode(const SignRequest& request, BYTE* encoded, DWORD* size);

} // namespace klunortredi::csp
