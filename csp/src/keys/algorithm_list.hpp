#pragma once

/// What PP_ENUMALGS enumerates.

#include "core/bytes.hpp"
#include "keys/providers.hpp"

#include <vector>

namespace klunortredi::csp {

/// The hash and key algorithms of a provider, each as the octets of a PROV_ENUMALGS.
std::vector<Bytes> algorithmList(const ProviderRecord& provider);

} // namespace klunortredi::csp
