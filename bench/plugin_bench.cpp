// What the plug-in costs above the work itself: a forwarded call above the direct one, a signature above OpenSSL's own.

#include "signer.hpp"

#include "capi/entry_points.h"
#include "core/ossl.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/engine.hpp"
#include "crypto/wincrypt/signature_factory.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/i_hash.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <array>
#include <stdexcept>
#include <vector>

namespace {

using bench::signer;
using orvik::plugin::crypto::SignatureFactory;

constexpr std::size_t contentSize = 1024;
constexpr const char* streebog256 = "1.2.643.7.1.1.2.2";

std::vector<unsigned char> content() {
    return std::vector<unsigned char>(contentSize, 0x5A);
}

/// SystemTimeToFileTime does next to nothing, so that the way there is what is measured.
void directCall(benchmark::State& state) {
    signer();
    void* library = ::dlopen(SERVICE_LIBRARY, RTLD_LAZY);
    const auto call =
        reinterpret_cast<BOOL (*)(const SYSTEMTIME*, FILETIME*)>(::dlsym(library, "SystemTimeToFileTime"));
    const SYSTEMTIME time{2026, 11, 0, 20, 12, 0, 0, 0};
    FILETIME result{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(call(&time, &result));
    }
    ::dlclose(library);
}
BENCHMARK(directCall);

void forwardedCall(benchmark::State& state) {
    signer();
    const SYSTEMTIME time{2026, 11, 0, 20, 12, 0, 0, 0};
    FILETIME result{};
    for (auto _ : state) {
        benchmark::DoNotOptimize(orvik::plugin::wincrypt::SystemTimeToFileTime(&time, &result));
    }
}
BENCHMARK(forwardedCall);

void rawSignature(benchmark::State& state) {
    EVP_PKEY* key = signer().rawKey();
    const EVP_MD* digest = klunortredi::csp::digestMethod(*klunortredi::csp::findDigest(std::string_view(streebog256)));
    const auto data = content();
    std::array<unsigned char, 128> signature{};
    for (auto _ : state) {
        const klunortredi::csp::ossl::MdCtx context(EVP_MD_CTX_new());
        std::size_t size = signature.size();
        if (EVP_DigestSignInit(context.get(), nullptr, digest, nullptr, key) <= 0 ||
            EVP_DigestSign(context.get(), signature.data(), &size, data.data(), data.size()) <= 0) {
            throw std::runtime_error("EVP refuses to sign");
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(rawSignature)->Unit(benchmark::kMicrosecond);

void hashSignature(benchmark::State& state) {
    const auto& certificate = signer().certificate();
    certificate->privateKey()->authenticate("12345678");
    const auto provider = certificate->provider(true);
    const auto data = content();
    for (auto _ : state) {
        const auto hash = provider->hash(certificate, streebog256);
        hash->update(data.data(), data.size());
        benchmark::DoNotOptimize(hash->sign());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(hashSignature)->Unit(benchmark::kMicrosecond);

void detachedSignature(benchmark::State& state) {
    const orvik::plugin::wincrypt::SignatureFactory factory("detached");
    const auto data = content();
    SignatureFactory::Creator::Params params;
    params.certificate = signer().certificate();
    for (auto _ : state) {
        const auto creator = factory.creator({});
        std::vector<unsigned char> out;
        creator->initialize(params);
        creator->update(data.data(), data.size());
        if (!creator->finalize(out)) {
            throw std::runtime_error("the plug-in refuses to sign");
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(detachedSignature)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
