#pragma once

/// Runs a scenario with its 1st, 2nd, ... n-th CryptoAPI call failing, until a run needs no further failure.

#include "capi/types.h"

#include <cstddef>
#include <exception>
#include <functional>
#include <string>

namespace service_double {

/// How one run ended.
struct FaultOutcome {
    std::size_t index;         ///< which call failed, from 1
    std::string call;          ///< that call as text, as in Call::text
    std::string function;      ///< its function's name
    DWORD code;                ///< the error it failed with
    std::exception_ptr thrown; ///< what the scenario threw; null when it returned
};

struct FaultWalk {
    std::string name;                                ///< for the printed count
    std::function<void()> arrange;                   ///< scripts the service, fresh before every run; may be empty
    std::function<void()> scenario;                  ///< the operation, releasing what it made
    std::function<void(const FaultOutcome&)> expect; ///< asserts the documented result of a failure; may be empty
    DWORD code = 0x8009000E;                         ///< NTE_NO_MEMORY: nobody's special case
};

/// Checks after every run that the books balance, prints how many failures were injected, and returns that number.
/// The run without a failure must not throw.
std::size_t walkFaults(const FaultWalk& walk);

} // namespace service_double
