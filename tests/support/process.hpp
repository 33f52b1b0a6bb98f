#pragma once

/// Programs under test, run as a person or a script would run them.

#include "support/fail_at_call.hpp"

#include <csignal>
#include <map>
#include <string>
#include <vector>

namespace test_support {

struct Outcome {
    int exit = -1;   ///< exit code; -1 when the program was killed by a signal
    int signal = 0;  ///< the signal that killed it
    std::string out; ///< standard output
    std::string err; ///< standard error
    long peakKiB = 0;
    std::string failedCall; ///< what RunOptions::fault let fail first, such as "fsync /folder/file"; empty: nothing
};

struct RunOptions {
    std::map<std::string, std::string> environment; ///< laid over this process's own
    std::string input;                              ///< standard input; empty: /dev/null
    std::string folder;                             ///< working folder; empty: this one's
    int killAtChange = 0;                           ///< SIGKILL before its n-th change on disk; 0: let it run
    Fault fault{};                                  ///< a system call on a file that fails
    long fileSizeLimit = 0;                         ///< octets a written file may have (RLIMIT_FSIZE); 0: no limit
    long cpuLimit = 0;                              ///< seconds of computing before SIGXCPU (RLIMIT_CPU); 0: no limit
    bool withoutTerminal = true;                    ///< in a session of its own, so that /dev/tty cannot be opened
};

/// Runs a program (found on PATH when it has no slash) to its end.
Outcome run(const std::vector<std::string>& command, const RunOptions& options = {});

/// Has `command(options, n)` run and killed before its 1st, 2nd, ... last change (RunOptions::killAtChange), `check(n)`
/// looking at what is left each time. Ends with the run that nothing kills; returns how many were killed.
template <class Command, class Check>
int killAtEachChange(Command&& command, Check&& check) {
    for (int n = 1;; ++n) {
        RunOptions options;
        options.killAtChange = n;
        if (command(options, n).signal != SIGKILL) {
            return n - 1;
        }
        check(n);
    }
}

} // namespace test_support
