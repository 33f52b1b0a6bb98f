#pragma once

/// The file that holds one certificate of a system store: its properties as lines that a person can read, then the
/// certificate as PEM, so that other tools read the file as it is.
///
///     # Test Signer
///     friendly-name: my signing key
///     key-container: signer
///     key-provider: ...
///     key-provider-type: 80
///     key-flags: 0
///     key-spec: 1
///     property-20: 0a1b2c...
///     -----BEGIN CERTIFICATE-----
///
/// A backslash and control characters stand as \hh, the two hexadecimal digits of the octet.

#include "x509/certificate.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace klunortredi::csp {

struct StoreFile {
    Bytes der;
    Properties properties;
};

/// A PIN among the key provider's parameters is left out: it never goes to the disk in clear. ApiError
/// (ERROR_INVALID_PARAMETER) for a container or provider name that is no Unicode text.
std::string formatStoreFile(const Certificate& certificate, const Properties& properties);

/// Nothing when the text is not such a file.
std::optional<StoreFile> parseStoreFile(std::string_view text);

} // namespace klunortredi::csp
