#pragma once

#include "token.hpp"

namespace orvik::plugin::timestamp_glue {

/// What the signed attributes of a token say of its certificate (RFC 3161, 2.4.2; RFC 5816).
enum class Naming {
    named,   ///< this is the certificate
    other,   ///< they name another one
    missing, ///< they name none, or are malformed
};

/// Compares the hash in the first ESSCertID or ESSCertIDv2 with that of `certificate` (DER); where both attributes are
/// there, both must name it. Throws CryptoException algorithmUnsupported for a hash that no provider offers, and
/// SystemException.
Naming namesCertificate(const Token& token, boost::string_view certificate);

} // namespace orvik::plugin::timestamp_glue
