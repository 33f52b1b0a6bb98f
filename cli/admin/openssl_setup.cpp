#include "openssl_setup.hpp"

#include "core/error.hpp"
#include "crypto/engine.hpp"

#include <openssl/engine.h>

namespace klunortredi::admin {

// RC2 and single DES of files made before PBES2 are the legacy provider's. The default provider is no longer loaded by
// itself once another one is named. Where the old one is not installed, only such files are refused.
OpensslSetup::OpensslSetup()
    : default_(OSSL_PROVIDER_load(nullptr, "default")), legacy_(OSSL_PROVIDER_load(nullptr, "legacy")) {
    if (ENGINE_set_default(csp::gostEngine(), ENGINE_METHOD_ALL) != 1) {
        csp::fail(capi::NTE_PROV_TYPE_NOT_DEF);
    }
}

} // namespace klunortredi::admin
