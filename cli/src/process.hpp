#pragma once

#include <map>
#include <string>
#include <vector>

namespace klunortredi::cli {

struct ProcessResult {
    int exit = -1;      ///< exit code; -1 when the program was killed
    std::string output; ///< standard output and standard error together
};

/// Runs a program (found on PATH when it has no slash) with `environment` laid over this process's own, without
/// standard input, and waits for it. Throws Failure (exit 3) when it cannot be started.
ProcessResult runProcess(const std::vector<std::string>& command,
                         const std::map<std::string, std::string>& environment);

} // namespace klunortredi::cli
