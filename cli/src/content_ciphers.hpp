#pragma once

/// The content ciphers of enveloped messages, as the command names them.

#include <string>
#include <string_view>

namespace klunortredi::cli {

struct ContentCipher {
    std::string_view name; ///< of --cipher
    std::string_view oid;
    bool authenticated; ///< nobody changes the content without notice
    bool gost;          ///< for GOST keys; the others are for RSA keys
};

/// Throws Failure (usage), listing the names, for an unknown one.
const ContentCipher& contentCipher(const std::string& name);
/// Null for an OID that has no row.
const ContentCipher* contentCipherByOid(std::string_view oid);

} // namespace klunortredi::cli
