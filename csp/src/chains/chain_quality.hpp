#pragma once

/// The order of quality of chains for one certificate (docs/trust-policy.md).

#include "capi/types.h"

namespace klunortredi::csp {

/// Whether a chain with the error bits `left` is better than one with `right`: it lacks the gravest error that only one
/// of them has.
bool isBetterChain(DWORD left, DWORD right) noexcept;

} // namespace klunortredi::csp
