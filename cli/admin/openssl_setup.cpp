#include "openssl_setup.hpp"

#include "core/error.hpp"
#include "crypto/engine.hpp"

#include <openssl/engine.h>
#include <openssl/provider.h>

namespace klunortredi::admin {

void prepareOpenssl() {
    if (ENGINE_set_default(csp::gostEngine(), ENGINE_METHOD_ALL) != 1) {
        csp::fail(capi::NTE_PROV_TYPE_NOT_DEF);
    }
    // RC2 and single DES of files made before PBES2. The default provider is no longer loaded by itself once another
    // one is named. Where the old one is not installed, only such files are refused.
    OSSL_PROVIDER_load(nullptr, "default");
    OSSL_PROVIDER_load(nullptr, "legacy");
}

} // namespace klunortredi::admin
