#pragma once

/// Files that the service skips while it reads, kept so that a caller can ask for their names.

#include "capi/types.h"

#include <filesystem>
#include <string>

namespace klunortredi::csp {

/// Remembers that `file` was skipped, and writes a warning. `code` says why: ERROR_INVALID_DATA when its contents are
/// not what they should be, else the code of the failed reading. A file stands in the list once, with its last code.
void noteSkipped(const std::filesystem::path& file, DWORD code) noexcept;

/// What was skipped since the last `forgetSkipped`, in the form of PP_SKIPPED_ENTRIES without the final zero.
std::string skippedText();
void forgetSkipped();

} // namespace klunortredi::csp
