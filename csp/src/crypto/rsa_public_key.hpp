#pragma once

/// RSA public keys without OpenSSL's decoders, which take longer to find than a signature takes to check.

#include "core/bytes.hpp"
#include "core/ossl.hpp"

namespace klunortredi::csp {

/// The key of a DER RSAPublicKey (RFC 8017, A.1.1); null when `der` is not exactly one.
ossl::Pkey rsaPublicKey(ByteView der);

} // namespace klunortredi::csp
