#pragma once

/// The arguments of CryptGenKey.

#include "keys/provider_context.hpp"

namespace klunortredi::csp {

/// What `algorithm` (AT_KEYEXCHANGE, AT_SIGNATURE or one of the provider's two key ALG_IDs) and `flags`
/// (CRYPT_EXPORTABLE; the key size in bits in the upper half, 0 for the default) ask for. Throws ApiError:
/// NTE_BAD_ALGID, NTE_BAD_FLAGS.
ProviderContext::KeyRequest generateRequest(const ProviderRecord& provider, ALG_ID algorithm, DWORD flags);

} // namespace klunortredi::csp
