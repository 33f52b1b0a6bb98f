#pragma once

/// OpenSSL with the GOST engine, which the service loads itself: no configuration file, no environment variable, and no
/// default of the process changed, so that the host's own use of OpenSSL stays as it was.

#include <openssl/evp.h>

namespace klunortredi::csp {

struct DigestAlgorithm;

/// The initialised GOST engine, loaded on first use (thread-safe). Throws ApiError(NTE_PROV_TYPE_NOT_DEF) when it is
/// not installed. Never null.
ENGINE* gostEngine();

/// To be called before OpenSSL decodes what may hold a key, by whoever does not call `gostEngine` there: once the
/// process has a second thread, it makes ready what the engine would otherwise make at the first use of a curve,
/// without a lock.
void prepareForThreads() noexcept;

/// OpenSSL's method of a digest, from the engine where it is a GOST one.
const EVP_MD* digestMethod(const DigestAlgorithm& algorithm);

} // namespace klunortredi::csp
