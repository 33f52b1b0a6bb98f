#include "crypto/engine.hpp"

#include "core/error.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/ossl.hpp"

#include <openssl/crypto.h>
#include <openssl/engine.h>

#include <array>
#include <atomic>

namespace klunortredi::csp {

namespace {

/// ENGINE_by_id takes the engine that the host has loaded already, or loads the installed one. What it implements
/// is registered for the GOST algorithms alone; without that OpenSSL does not decode their keys.
ENGINE* loadGost() {
    const ossl::ErrorMark mark;
    OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
    ENGINE* const engine = ENGINE_by_id("gost");
    if (engine == nullptr) {
        fail(capi::NTE_PROV_TYPE_NOT_DEF);
    }
    if (ENGINE_init(engine) != 1) {
        ENGINE_free(engine);
        fail(capi::NTE_PROV_TYPE_NOT_DEF);
    }
    ENGINE_register_digests(engine);
    ENGINE_register_pkey_meths(engine);
    ENGINE_register_pkey_asn1_meths(engine);
    return engine;
}

const EVP_MD* fetchMethod(const DigestAlgorithm& algorithm) {
    const ossl::ErrorMark mark;
    const EVP_MD* const method =
        algorithm.gost ? ENGINE_get_digest(gostEngine(), OBJ_sn2nid(algorithm.name))
                       : EVP_MD_fetch(nullptr, algorithm.name, nullptr); // kept for the life of the process
    if (method == nullptr) {
        fail(capi::NTE_BAD_ALGID);
    }
    return method;
}

} // namespace

ENGINE* gostEngine() {
    static ENGINE* const engine = loadGost();
    return engine;
}

const EVP_MD* digestMethod(const DigestAlgorithm& algorithm) {
    constexpr std::size_t rows = 16;
    static std::array<std::atomic<const EVP_MD*>, rows> methods{};
    const auto index = static_cast<std::size_t>(&algorithm - digestAlgorithms().data());
    if (index >= digestAlgorithms().size() || index >= rows) {
        fail(capi::NTE_BAD_ALGID);
    }
    const EVP_MD* method = methods[index].load(std::memory_order_acquire);
    if (method == nullptr) {
        method = fetchMethod(algorithm);
        methods[index].store(method, std::memory_order_release);
    }
    return method;
}

} // namespace klunortredi::csp
