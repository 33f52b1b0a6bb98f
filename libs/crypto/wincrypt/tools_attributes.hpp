#pragma once

#include "orvik/plugin/crypto/format/signature_request.hpp"
#include "orvik/plugin/export.hpp"

#include <vector>

namespace orvik::plugin::wincrypt::tools {

/// Turns the values of signed attributes (CMS, RFC 5652, section 11) from text into DER by their types, and adds a
/// signing time of now when there is none. Throws CryptoException badAttribute with the offending value;
/// std::out_of_range for a Unix time that does not fit 64 bits.
ORVIK_EXPORT std::vector<crypto::format::SignedAttribute>
normalizeSignedAttributes(const std::vector<crypto::format::SignedAttribute>& in);

} // namespace orvik::plugin::wincrypt::tools
