#pragma once

/// The other tools that judge what this system makes.

#include <string>

namespace testing_tools {

struct Outcome {
    int status = -1;    ///< exit code
    std::string output; ///< standard output and standard error
};

/// Runs a shell command, with the GOST engine in reach of the openssl command and of no other.
Outcome run(const std::string& command);

} // namespace testing_tools
