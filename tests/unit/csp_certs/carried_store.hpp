#pragma once

/// A store with certificates and CRLs, opened over a message that carries them. Needs no test framework: fuzz targets
/// use it too.

#include "core/bytes.hpp"

#include <vector>

/// An HCERTSTORE, to be closed with CertCloseStore; null when the service refuses to read the message, as for elements
/// that are not DER.
void* openCarriedStore(const std::vector<klunortredi::csp::Bytes>& certificates,
                       const std::vector<klunortredi::csp::Bytes>& crls);
