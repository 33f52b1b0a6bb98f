#pragma once

/// Extended key usage along a chain (RFC 5280, 4.2.1.12): a certificate's usages within those of its issuers.

#include "chains/chain_builder.hpp"

namespace klunortredi::csp {

/// Fills each element's usage, and sets the bits of those that do not allow what is requested.
void judgeUsage(std::vector<ChainElement>& elements, const RequestedUsage& requested);

} // namespace klunortredi::csp
