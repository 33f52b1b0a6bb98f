#pragma once

/// Rules for the form of certificates that OpenSSL does not hold them to (docs/trust-policy.md lists each).

#include "capi/types.h"
#include "core/ossl.hpp"

namespace klunortredi::csp {

/// CERT_TRUST_... error bits for the form of one certificate: version, extensions that need version 3, unique
/// identifiers, the serial number's length, extensions given twice, malformed or empty, qualifiers of critical
/// policies. 0 when nothing is wrong.
DWORD formErrors(X509* certificate);

} // namespace klunortredi::csp
