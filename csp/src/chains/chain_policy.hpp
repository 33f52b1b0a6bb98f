#pragma once

/// The verdict of a policy on a chain.

#include "capi/types.h"

namespace klunortredi::csp {

/// What the base policy says of a chain: the gravest error as a code, with the element that it lies with (-1: with the
/// chain). `flags` are the CERT_CHAIN_POLICY_IGNORE_... of CERT_CHAIN_POLICY_PARA.
void judgeBasePolicy(const CERT_CHAIN_CONTEXT& chain, DWORD flags, CERT_CHAIN_POLICY_STATUS& status);

} // namespace klunortredi::csp
