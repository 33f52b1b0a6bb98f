#include "keys/providers.hpp"

#include "core/error.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

constexpr DWORD highestProviderType = 999; // of the CryptoAPI

const ProviderRecord* ofType(DWORD type) {
    const auto* const found =
        std::find_if(providers.begin(), providers.end(), [type](const auto& row) { return row.type == type; });
    return found == providers.end() ? nullptr : found;
}

const ProviderRecord* ofName(std::wstring_view name) {
    const auto* const found = std::find_if(providers.begin(), providers.end(), [name](const auto& row) {
        return std::equal(name.begin(), name.end(), row.name.begin(), row.name.end(),
                          [](wchar_t given, char own) { return given == static_cast<wchar_t>(own); });
    });
    return found == providers.end() ? nullptr : found;
}

} // namespace

const ProviderRecord& findProvider(std::wstring_view name, DWORD type) {
    if (type == 0 || type > highestProviderType) {
        fail(capi::NTE_BAD_PROV_TYPE);
    }
    const ProviderRecord* const row = name.empty() ? ofType(type) : ofName(name);
    if (row == nullptr) {
        fail(name.empty() ? capi::NTE_PROV_TYPE_NOT_DEF : capi::NTE_KEYSET_NOT_DEF);
    }
    if (row->type != type) {
        fail(capi::NTE_PROV_TYPE_NO_MATCH);
    }
    return *row;
}

const KeyAlgorithm& keyAlgorithm(const ProviderRecord& provider) noexcept {
    return *findKey(provider.keyOid);
}

bool offers(const ProviderRecord& provider, const DigestAlgorithm& digest) noexcept {
    return digest.id != capi::CALG_OID_INFO_PARAMETERS && (provider.gostDigests || !digest.gost);
}

} // namespace klunortredi::csp
