#pragma once

/// SHA-1 and SHA-2 (FIPS 180-4) of octets that are all there.

#include "core/bytes.hpp"
#include "crypto/algorithms.hpp"

#include <optional>

namespace klunortredi::csp {

/// The hash of `data`; none when `algorithm` is of another family. OpenSSL's providers are not asked for it: to load
/// them for a thumbprint takes longer than checking a signature.
std::optional<Bytes> shaOf(const DigestAlgorithm& algorithm, ByteView data);

} // namespace klunortredi::csp
