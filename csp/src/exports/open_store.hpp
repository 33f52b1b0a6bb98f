#pragma once

/// Opening of stores by provider, as CertOpenStore and CertOpenSystemStore do it.

#include "capi/types.h"

namespace klunortredi::csp {

/// Opens a store of a provider given by number or by name ("Memory", "System", "Message"): memory (2), message (1,
/// `parameter` is the HCRYPTMSG) or system (9 narrow and 10 wide name in `parameter`). Gives the handle.
///
/// Of the flags, CERT_STORE_READONLY_FLAG refuses later changes with ERROR_ACCESS_DENIED, CERT_STORE_OPEN_EXISTING_FLAG
/// refuses a system store that was never written with ERROR_FILE_NOT_FOUND. The system store locations (user, machine
/// ...) are one and the same: the service's data belongs to one user. ApiError(ERROR_FILE_NOT_FOUND) for another
/// provider.
void* openStoreOf(const char* provider, DWORD flags, const void* parameter);

/// Opens the system store of that name. A null or unfit name: ApiError(ERROR_INVALID_PARAMETER).
void* openSystemStore(const char* name, DWORD flags);

} // namespace klunortredi::csp
