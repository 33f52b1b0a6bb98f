#pragma once

/// Where the service keeps what lasts: key containers and certificate stores.

#include <filesystem>

namespace klunortredi::csp {

/// `$KLUNORTREDI_HOME`, else `$XDG_DATA_HOME/klunortredi`, else `~/.local/share/klunortredi`. Read at each call; not
/// created here. Throws ApiError(ERROR_FILE_NOT_FOUND) when the user has no home directory either,
/// ERROR_ACCESS_DENIED when the folder is another user's or others may write it (core/trusted.hpp).
std::filesystem::path dataDirectory();

} // namespace klunortredi::csp
