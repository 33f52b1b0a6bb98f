#pragma once

/// Looking at folders and files: what is there, and whether it changed.

#include "capi/types.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace klunortredi::csp::files {

/// The CryptoAPI code of an errno value after a failed look or read: EMFILE and ENFILE are ERROR_TOO_MANY_OPEN_FILES,
/// ENOMEM ERROR_NOT_ENOUGH_MEMORY, EACCES and its like ERROR_ACCESS_DENIED, ENOENT ERROR_FILE_NOT_FOUND, ENOTDIR
/// ERROR_PATH_NOT_FOUND, anything else ERROR_READ_FAULT.
DWORD readErrorCode(int errnoValue) noexcept;

/// Names of the folder's entries, in no order; none when it is not there. ApiError when it cannot be read to its end.
std::vector<std::string> names(const std::filesystem::path& folder);

/// One state of a file or folder: two equal stamps are the same state, as far as the file system's clock can tell.
struct Stamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t modified = 0; ///< nanoseconds since 1970
    std::int64_t changed = 0;
    bool operator==(const Stamp&) const = default;
};

/// Nullopt when nothing has that name. ApiError when it cannot be asked.
std::optional<Stamp> stampOf(const std::filesystem::path& file);

/// After a change in a folder: makes sure that its stamp differs from `before`, also when both are of one tick of the
/// file system's clock. Returns the new stamp. To be called with the lock held that writers hold.
std::optional<Stamp> advanceStamp(const std::filesystem::path& folder, const Stamp& before);

/// Whether a change of what has that stamp might leave the stamp as it is, because the clock has not moved since.
bool mayChangeUnseen(const Stamp& stamp);

} // namespace klunortredi::csp::files
