#pragma once

/// Writing of PKCS#12 files (RFC 7292, R 50.1.112-2016).

#include "core/bytes.hpp"
#include "core/ossl.hpp"
#include "core/secret.hpp"

#include <optional>
#include <string>

namespace klunortredi::admin {

/// What goes into the file.
struct PfxEntry {
    EVP_PKEY* key;
    std::optional<csp::Bytes> certificate; ///< DER
    std::string friendlyName;              ///< UTF-8
};

/// DER of the file, everything in it encrypted with PBES2. GOST keys: GOST 28147-89 with a key of HMAC
/// GOST R 34.11-2012, the MAC of GOST R 34.11-2012 (512); RSA keys: AES-256 and HMAC SHA-256.
csp::Bytes writePfx(const PfxEntry& entry, const csp::Secret& password);

} // namespace klunortredi::admin
