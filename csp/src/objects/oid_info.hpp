#pragma once

/// What the service knows about object identifiers.

#include "capi/types.h"

#include <string_view>

namespace klunortredi::csp {

/// The first entry of `group` (0: any) with that OID, display name (compared without regard to ASCII case), ALG_ID, or
/// pair of hash and key ALG_IDs (signature algorithms); null when there is none. Entries and all that they point to
/// live as long as the process.
///
/// An entry's `Algid` is that of the hash, of the key, or, for a signature algorithm, of its hash, the key's being the
/// first DWORD of `ExtraInfo`. For a name attribute `dwValue` is 0 and `pwszName` the key that stands in a name string.
/// CNG names are empty, never null, when there are none.
const CRYPT_OID_INFO* findOidInfo(std::string_view oid, DWORD group);
const CRYPT_OID_INFO* findOidInfo(std::wstring_view name, DWORD group);
const CRYPT_OID_INFO* findOidInfo(ALG_ID id, DWORD group);
const CRYPT_OID_INFO* findOidInfo(ALG_ID hash, ALG_ID key, DWORD group);

} // namespace klunortredi::csp
