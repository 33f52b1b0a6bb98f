#pragma once

#include "lenient.hpp"
#include "orvik/plugin/crypto/tools.hpp"

#include <boost/optional.hpp>
#include <boost/utility/string_view.hpp>

namespace orvik::plugin::wincrypt {

/// The framework's record of the provider of that name; nothing for a name that is no Unicode, which none can have.
inline boost::optional<crypto::tools::ProviderInfo> providerRecord(boost::wstring_view name) {
    return crypto::tools::providerInfo(utf8OrEmpty(name));
}

} // namespace orvik::plugin::wincrypt
