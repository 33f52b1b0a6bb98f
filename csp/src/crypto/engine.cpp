#include "crypto/engine.hpp"

#include "core/error.hpp"
#include "core/ossl.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/gost_params.hpp"

#include <openssl/crypto.h>
#include <openssl/engine.h>

#include <sys/single_threaded.h>

#include <array>
#include <atomic>

namespace klunortredi::csp {

namespace {

/// The engine makes the group of a curve at its first use and keeps it, without a lock: two threads with their first
/// keys would meet there. Making all of them takes longer than one check of a signature.
void makeCurves(ENGINE* engine) {
    for (const KeyAlgorithm& algorithm : keyAlgorithms()) {
        if (!algorithm.gost) {
            continue;
        }
        const ossl::PkeyCtx context(EVP_PKEY_CTX_new_id(algorithm.pkeyType, engine));
        for (const GostParamSet& set : gostParamSets()) {
            if (findGostParamSet(algorithm, set.oid) == nullptr) {
                continue;
            }
            EVP_PKEY* made = nullptr; // stays null for a set that this engine does not know
            if (context && EVP_PKEY_paramgen_init(context.get()) == 1 &&
                EVP_PKEY_CTX_ctrl_str(context.get(), "paramset", set.engineName) == 1) {
                EVP_PKEY_paramgen(context.get(), &made);
            }
            EVP_PKEY_free(made);
        }
    }
}

/// The engine, once it is loaded.
constinit std::atomic<ENGINE*> loadedEngine = nullptr;

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
    loadedEngine.store(engine, std::memory_order_release);
    return engine;
}

const EVP_MD* fetchMethod(const DigestAlgorithm& algorithm) {
    const ossl::ErrorMark mark;
    const EVP_MD* const method = algorithm.gost ? ENGINE_get_digest(gostEngine(), OBJ_sn2nid(algorithm.name))
                                                : EVP_MD_fetch(nullptr, algorithm.name, nullptr);
    if (method == nullptr) {
        fail(capi::NTE_BAD_ALGID);
    }
    return method;
}

void giveBack(const DigestAlgorithm& algorithm, const EVP_MD* method) noexcept {
    if (!algorithm.gost) { // those are the engine's
        EVP_MD_free(const_cast<EVP_MD*>(method));
    }
}

/// The digests found so far, by their place in digestAlgorithms().
constexpr std::size_t mostMethods = 16;
constinit std::array<std::atomic<const EVP_MD*>, mostMethods> methods{};

/// Gives the fetched ones back at the end, and leaves the table empty: what a host's static objects still hash then is
/// looked up anew.
struct FetchedMethods {
    FetchedMethods() { OPENSSL_init_crypto(0, nullptr); } // so that OpenSSL's own end comes after this one
    FetchedMethods(const FetchedMethods&) = delete;
    FetchedMethods& operator=(const FetchedMethods&) = delete;
    ~FetchedMethods() {
        for (const DigestAlgorithm& algorithm : digestAlgorithms()) {
            giveBack(algorithm, methods[rowOf(algorithm)].exchange(nullptr));
        }
    }

    static std::size_t rowOf(const DigestAlgorithm& algorithm) noexcept {
        return static_cast<std::size_t>(&algorithm - digestAlgorithms().data());
    }
};

} // namespace

ENGINE* gostEngine() {
    static ENGINE* const engine = loadGost();
    prepareForThreads();
    return engine;
}

void prepareForThreads() noexcept {
    if (__libc_single_threaded != 0) {
        return;
    }
    if (ENGINE* const engine = loadedEngine.load(std::memory_order_acquire); engine != nullptr) {
        static const bool made = (makeCurves(engine), true);
        static_cast<void>(made);
    }
}

const EVP_MD* digestMethod(const DigestAlgorithm& algorithm) {
    static const FetchedMethods givenBackAtTheEnd;
    const std::size_t index = FetchedMethods::rowOf(algorithm);
    if (index >= digestAlgorithms().size() || index >= methods.size()) {
        fail(capi::NTE_BAD_ALGID);
    }
    const EVP_MD* method = methods[index].load(std::memory_order_acquire);
    if (method == nullptr) {
        const EVP_MD* const fetched = fetchMethod(algorithm);
        if (methods[index].compare_exchange_strong(method, fetched, std::memory_order_acq_rel)) {
            method = fetched;
        } else {
            giveBack(algorithm, fetched); // another thread was first
        }
    }
    return method;
}

} // namespace klunortredi::csp
