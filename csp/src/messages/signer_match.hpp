#pragma once

/// Which certificate a signer names.

#include "capi/types.h"
#include "messages/signer_info.hpp"

namespace klunortredi::csp {

/// Whether `certificate` is the one that `id` names: issuer (compared as names are, RFC 5280, 7.1) and serial number,
/// or its subject key identifier extension.
bool namesCertificate(const SignerId& id, const CERT_INFO& certificate);

/// Whether two DER Names are the same name (RFC 5280, 7.1).
bool sameName(ByteView a, ByteView b);

} // namespace klunortredi::csp
