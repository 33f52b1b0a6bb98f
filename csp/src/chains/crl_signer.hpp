#pragma once

/// Who signed a CRL that is about to be stored.

#include "core/bytes.hpp"

#include <optional>

namespace klunortredi::csp {

/// DER of the SubjectPublicKeyInfo of the certificate of the system stores, under the name of the CRL's issuer, whose
/// key signed the CRL and may sign CRLs. Nullopt when there is none, when `der` is not a CRL, and for signatures over
/// MD2, MD4 and MD5. Says nothing of whether that certificate is trusted.
std::optional<Bytes> crlSignerKey(ByteView der);

} // namespace klunortredi::csp
