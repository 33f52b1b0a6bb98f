#pragma once

/// Which certificate a signer names.

#include "capi/types.h"
#include "messages/signer_info.hpp"

namespace klunortredi::csp {

/// Whether `certificate` is the one that `id` names: issuer (compared as names are, RFC 5280, 7.1) and serial number,
/// or its subject key identifier extension.
bool namesCertificate(const SignerId& id, const CERT_INFO& certificate);

} // namespace klunortredi::csp
