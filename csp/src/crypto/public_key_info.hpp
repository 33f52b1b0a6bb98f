#pragma once

/// SubjectPublicKeyInfo taken apart and put together (RFC 5280, section 4.1.2.7).

#include "core/bytes.hpp"

#include <string>
#include <string_view>

namespace klunortredi::csp::spki {

struct Parts {
    std::string oid;  ///< dotted
    Bytes parameters; ///< DER; empty when absent
    Bytes key;        ///< contents of the bit string
};

/// Exactly one DER SubjectPublicKeyInfo, its key of whole octets. Throws ApiError(NTE_BAD_PUBLIC_KEY) otherwise.
Parts split(ByteView info);
/// DER of the parts under another algorithm's `oid`.
Bytes join(std::string_view oid, ByteView parameters, ByteView key);

} // namespace klunortredi::csp::spki
