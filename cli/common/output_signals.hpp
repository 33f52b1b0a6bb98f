#pragma once

#include <csignal>

namespace klunortredi::cli {

/// Makes output that cannot be written an error to be told like any other, not a death: a reader that goes away, a file
/// that reaches the user's size limit.
inline void surviveFailedOutput() {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

} // namespace klunortredi::cli
