#pragma once

/// Which key and which certificate of a file belong together.

#include "pfx_file.hpp"
#include "private_key.hpp"

#include <optional>
#include <string>

namespace klunortredi::admin {

/// A private key on its way into a container or out of one.
struct Identity {
    PrivateKey key;
    std::optional<csp::Bytes> certificate; ///< DER, of that key
    std::string friendlyName;              ///< UTF-8, may be empty
    std::size_t otherCertificates = 0;     ///< further ones in the file
};

/// The key with its certificate. A file of several keys needs `wanted`, the friendly name of one or its number from 1.
/// Among certificates of the same key the one that the file links with it (localKeyID) goes first.
///
/// Throws cli::Failure: no key (exit 3), no such key (exit 1), several keys (exit 2, naming them), certificates of
/// which none is the key's (exit 4). Certificates also judge whether the key's octets were understood; only a file
/// without any is believed as it is.
Identity chooseIdentity(PfxContents contents, const std::string& wanted);

} // namespace klunortredi::admin
