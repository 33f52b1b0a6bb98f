#pragma once

/// What a CRL, or the answer of a server, says of one certificate of a chain.

#include "capi/types.h"
#include "chains/ocsp.hpp"
#include "core/ossl.hpp"

#include <memory>

namespace klunortredi::csp {

struct ElementRevocation {
    std::shared_ptr<X509_CRL> base;
    std::shared_ptr<X509_CRL> delta;         ///< null when none was used
    std::shared_ptr<const X509_CRL> entryOf; ///< the one of both whose entry is `entry`
    const X509_REVOKED* entry = nullptr;     ///< the certificate's entry; null when it is not listed
    std::optional<OcspAnswer> answer{};      ///< of a server, in place of CRLs
    DWORD result = 0;                        ///< CERT_REVOCATION_INFO.dwRevocationResult
    DWORD freshness = 0;                     ///< seconds from the newest ThisUpdate to the time asked about
};

} // namespace klunortredi::csp
