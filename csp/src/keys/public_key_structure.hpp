#pragma once

/// Public keys as the CryptoAPI's structure.

#include "core/bytes.hpp"
#include "core/output.hpp"

namespace klunortredi::csp {

/// A CERT_PUBLIC_KEY_INFO of a DER SubjectPublicKeyInfo. Throws ApiError(NTE_BAD_PUBLIC_KEY).
StructBuilder publicKeyStructure(ByteView subjectPublicKeyInfo);

} // namespace klunortredi::csp
