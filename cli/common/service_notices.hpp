#pragma once

#include <cstdlib>

namespace klunortredi::cli {

/// Asks the embedded service to name on standard error what the user has to know beyond an error code, such as the
/// process that holds a lock (KLUNORTREDI_NOTICES; what the caller of the command has set stands). To be called before
/// threads are started.
inline void askForNotices() {
    ::setenv("KLUNORTREDI_NOTICES", "1", 0); // NOLINT(concurrency-mt-unsafe): there is one thread yet
}

} // namespace klunortredi::cli
