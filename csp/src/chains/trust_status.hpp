#pragma once

/// What OpenSSL finds wrong with a chain, in the trust bits of the CryptoAPI.

#include "capi/types.h"

namespace klunortredi::csp {

struct TrustProblem {
    int error; ///< X509_V_ERR_...
    DWORD bits;
    bool ofChain;     ///< lies with the chain as a whole, not with one certificate
    bool unusableCrl; ///< nothing that the CRL says may be believed
};

/// The row of an X509_V_ERR_... number; null for one that is no statement about certificates.
const TrustProblem* trustProblem(int error) noexcept;

} // namespace klunortredi::csp
