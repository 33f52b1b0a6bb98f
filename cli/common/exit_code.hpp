#pragma once

namespace klunortredi::cli {

/// What the process ends with; part of the command's contract.
enum class ExitCode : int {
    done = 0,      ///< done; signature valid; chain trusted
    no = 1,        ///< a clear no: signature invalid, not found
    usage = 2,     ///< wrong usage
    input = 3,     ///< input or output: missing, unreadable, not of the format, disk full
    service = 4,   ///< the service or the key refused
    cancelled = 5, ///< the person cancelled
    pin = 6,       ///< PIN wrong or locked
    network = 7,   ///< the network or the time-stamp authority failed
    untrusted = 8, ///< valid, but the chain does not end in trust
    defect = 70,   ///< a defect of this program
};

} // namespace klunortredi::cli
