#pragma once

/// SubjectPublicKeyInfo taken apart and put together (RFC 5280, section 4.1.2.7).

#include "core/bytes.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/ossl.hpp"

#include <string>

namespace klunortredi::csp::spki {

struct Parts {
    std::string oid;  ///< dotted
    Bytes parameters; ///< DER SEQUENCE; empty when absent or of another type
    Bytes key;        ///< contents of the bit string
};

/// Exactly one DER SubjectPublicKeyInfo. Throws ApiError(NTE_BAD_PUBLIC_KEY) otherwise.
ossl::X509Pubkey decode(ByteView der);
Parts split(const X509_PUBKEY& info);
/// DER of the parts under the OID of `algorithm`.
Bytes join(const KeyAlgorithm& algorithm, const Parts& parts);
Bytes encode(const X509_PUBKEY& info);

} // namespace klunortredi::csp::spki
