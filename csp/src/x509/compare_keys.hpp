#pragma once

/// Equality of public keys.

#include "capi/types.h"

namespace klunortredi::csp {

/// Whether both describe the same public key.
///
/// The algorithms must be the same: by OID text, or both names of one key kind of the service (a GOST key appears
/// under its signature and under its agreement OID). The key bits must be the same octets. Parameters count only where
/// both have some, and NULL is none (RFC 3279, 2.3.1 asks for NULL with RSA, and some writers leave it out); those of
/// a GOST key may name the same curve in different ways (RFC 9215, 4.2).
bool samePublicKey(const CERT_PUBLIC_KEY_INFO& a, const CERT_PUBLIC_KEY_INFO& b);

} // namespace klunortredi::csp
