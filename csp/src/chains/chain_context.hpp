#pragma once

/// Chain contexts: the CERT_CHAIN_CONTEXT that a caller dereferences, and the registry that knows which are alive.

#include "chains/chain_builder.hpp"
#include "stores/context.hpp"

namespace klunortredi::csp {

/// Lays a chain out in the CryptoAPI's structures. The first element's context is a duplicate of `context`. The
/// chains of lower quality belong to it and go with it; they are not to be freed by themselves.
PCCERT_CHAIN_CONTEXT addChain(const BuiltChain& chain, PCCERT_CONTEXT context);

/// Throws ApiError(ERROR_INVALID_PARAMETER) for a null, stale or foreign pointer, which is never dereferenced.
void checkChain(PCCERT_CHAIN_CONTEXT chain);
/// Errors as of `checkChain`.
void freeChain(PCCERT_CHAIN_CONTEXT chain);

} // namespace klunortredi::csp
