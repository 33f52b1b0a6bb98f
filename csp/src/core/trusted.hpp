#pragma once

/// Whether a file or folder can have been written by somebody else than this user or root.

#include <filesystem>

namespace klunortredi::csp::files {

/// Throws ApiError(ERROR_ACCESS_DENIED), with a notice that names the path and the remedy, when the file or folder
/// belongs to another user than this process's or root, or when others may write it. A group may write it where its
/// number is the owner's, as systems do that give each user a group of their own. Links are followed; what is not there
/// is left to whoever opens it.
void requireTrusted(const std::filesystem::path& path);

} // namespace klunortredi::csp::files
