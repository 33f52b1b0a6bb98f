#include "keys/generate_request.hpp"

#include "core/error.hpp"

namespace klunortredi::csp {

namespace {

DWORD keySpecOf(const ProviderRecord& provider, ALG_ID algorithm) {
    if (algorithm == capi::AT_KEYEXCHANGE || algorithm == capi::AT_SIGNATURE) {
        return algorithm;
    }
    const KeyAlgorithm& own = keyAlgorithm(provider);
    if (algorithm != own.exchangeId && algorithm != own.signId) {
        fail(capi::NTE_BAD_ALGID);
    }
    return algorithm == own.signId ? capi::AT_SIGNATURE : capi::AT_KEYEXCHANGE;
}

} // namespace

ProviderContext::KeyRequest generateRequest(const ProviderRecord& provider, ALG_ID algorithm, DWORD flags) {
    constexpr DWORD sizeShift = 16;
    constexpr DWORD flagMask = 0xFFFF;
    const DWORD keySpec = keySpecOf(provider, algorithm);
    if ((flags & flagMask & ~capi::CRYPT_EXPORTABLE) != 0) {
        fail(capi::NTE_BAD_FLAGS);
    }
    return {keySpec, flags >> sizeShift, (flags & capi::CRYPT_EXPORTABLE) != 0};
}

} // namespace klunortredi::csp
