#pragma once

/// Certificate revocation lists (RFC 5280, section 5), as far as stores carry them.

#include "core/bytes.hpp"

#include <optional>
#include <string>

namespace klunortredi::csp {

/// DER of what a file holds as DER or PEM, not decoded; nullopt when it is neither a SEQUENCE nor a PEM block of a CRL.
std::optional<Bytes> crlDer(ByteView contents);

/// What can be read of a CRL without decoding its entries.
struct CrlHead {
    std::string signatureOid; ///< dotted, of the signed part
    Bytes issuer;             ///< DER of the Name
};

/// Nullopt when `der` does not begin as a CRL does.
std::optional<CrlHead> crlHead(ByteView der);

} // namespace klunortredi::csp
