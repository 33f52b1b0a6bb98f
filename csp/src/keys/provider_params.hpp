#pragma once

/// CryptGetProvParam and CryptSetProvParam.

#include "keys/provider_context.hpp"

namespace klunortredi::csp {

/// Throws ApiError: NTE_BAD_TYPE for an unknown parameter, NTE_BAD_FLAGS for flags that it does not take,
/// NTE_BAD_KEYSET for one of a container where there is none, and those of the two-call protocol.
void getProviderParam(ProviderContext& context, DWORD param, void* buffer, DWORD* size, DWORD flags);

/// `data` is zero-terminated text. Throws as above; NTE_BAD_LEN for text of more than 255 octets.
void setProviderParam(ProviderContext& context, DWORD param, const char* data, DWORD flags);

} // namespace klunortredi::csp
