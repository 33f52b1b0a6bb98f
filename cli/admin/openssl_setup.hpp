#pragma once

#include "core/ossl.hpp"

#include <openssl/provider.h>

namespace klunortredi::admin {

/// OpenSSL made ready, for the object's life, for key files of every maker: the GOST engine is the process's default
/// for all that it implements, and the ciphers of old PKCS#12 files are there. The service never does this, its process
/// belongs to a host application; this one is the program's own. Needs no configuration file.
class OpensslSetup {
public:
    /// Throws csp::ApiError(NTE_PROV_TYPE_NOT_DEF) when the engine is not installed.
    OpensslSetup();

private:
    using Provider = std::unique_ptr<OSSL_PROVIDER, csp::ossl::Deleter<OSSL_PROVIDER_unload>>;
    Provider default_;
    Provider legacy_;
};

} // namespace klunortredi::admin
