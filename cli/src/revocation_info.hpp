#pragma once

/// What a chain element says of its certificate's revocation.

#include "capi/types.h"
#include "trust.hpp"

namespace klunortredi::cli {

/// Read from the element's status bits and its CERT_REVOCATION_INFO, which may be missing: not known then, unless a
/// status bit says that the certificate is revoked.
Revocation readRevocation(const CERT_CHAIN_ELEMENT& element);

} // namespace klunortredi::cli
