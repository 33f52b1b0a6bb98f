#pragma once

#include <openssl/evp.h>

namespace orvik::plugin::xml::internal {

/// OpenSSL's GOST engine, loaded on first use (thread-safe); no default of the process changes. Null when it is not
/// installed.
ENGINE* gostEngine() noexcept;

/// A digest of the engine by OpenSSL's number; null when there is no engine.
const EVP_MD* gostDigest(int nid) noexcept;

} // namespace orvik::plugin::xml::internal
