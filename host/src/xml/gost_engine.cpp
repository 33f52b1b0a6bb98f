#include "gost_engine.hpp"

#include <openssl/crypto.h>
#include <openssl/engine.h>
#include <openssl/err.h>

namespace orvik::plugin::xml::internal {

namespace {

ENGINE* load() noexcept {
    ERR_set_mark();
    OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
    ENGINE* engine = ENGINE_by_id("gost");
    if (engine != nullptr && ENGINE_init(engine) != 1) {
        ENGINE_free(engine);
        engine = nullptr;
    }
    if (engine != nullptr) {
        // OpenSSL does not read GOST keys from certificates without these.
        ENGINE_register_pkey_meths(engine);
        ENGINE_register_pkey_asn1_meths(engine);
    }
    ERR_pop_to_mark();
    return engine;
}

} // namespace

ENGINE* gostEngine() noexcept {
    static ENGINE* const engine = load();
    return engine;
}

const EVP_MD* gostDigest(int nid) noexcept {
    ENGINE* const engine = gostEngine();
    return engine == nullptr ? nullptr : ENGINE_get_digest(engine, nid);
}

} // namespace orvik::plugin::xml::internal
