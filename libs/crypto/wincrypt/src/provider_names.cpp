#include "crypto/wincrypt/provider_names.hpp"

#include "orvik/plugin/crypto/constant.hpp"

#include <boost/algorithm/string/predicate.hpp>

#include <array>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace orvik::plugin::wincrypt::tools {

namespace internal {
namespace {

namespace constant = crypto::constant;

boost::optional<std::wstring> canonicalName(const std::wstring& name) {
    static const std::array<std::pair<std::wstring, std::wstring>, 3> aliases{{
        {constant::registry_provider_crypto_pro_alias_nameW, constant::registry_provider_crypto_proW},
        {constant::registry_provider_crypto_pro_2012_alias_nameW, constant::registry_provider_crypto_pro_2012W},
        {constant::registry_provider_crypto_pro_2012_ext_alias_nameW, constant::registry_provider_crypto_pro_2012_extW},
    }};
    for (const auto& [alias, canonical] : aliases) {
        if (boost::algorithm::icontains(name, alias)) {
            return canonical;
        }
    }
    return boost::none;
}

} // namespace
} // namespace internal

boost::optional<std::wstring> resolveProviderName(const std::wstring& name) {
    static std::mutex mutex;
    static std::unordered_map<std::wstring, boost::optional<std::wstring>> resolved;
    const std::lock_guard lock(mutex);
    auto found = resolved.find(name);
    if (found == resolved.end()) {
        found = resolved.emplace(name, internal::canonicalName(name)).first;
    }
    return found->second;
}

std::wstring formatProviderName(const std::wstring& name) {
    return resolveProviderName(name).value_or(name);
}

} // namespace orvik::plugin::wincrypt::tools
