#pragma once

/// What the embedded service says about files that it skips while it reads stores: a parameter of CryptGetProvParam
/// that no other service has (they refuse it), and error codes for failed reading.

#include "capi/types.h"

namespace capi {

/// Reports and forgets what was skipped since the last question, in the whole process. Zero-terminated UTF-8, for each
/// file the code (decimal), a blank, the path with control characters as '?', and a line feed. Empty text: nothing. The
/// value is forgotten once it was delivered into a buffer.
inline constexpr DWORD PP_SKIPPED_ENTRIES = 0x4B4C0006;

inline constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4; ///< the process or the system has no descriptor left
inline constexpr DWORD ERROR_READ_FAULT = 30;         ///< the disk failed

} // namespace capi
