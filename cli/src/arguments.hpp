#pragma once

/// The command line.

#include "options.hpp"
#include "verbs/verbs.hpp"

#include <functional>
#include <string>

namespace klunortredi::cli {

/// What the command line asks for.
struct Command {
    Options options;
    std::function<ExitCode(Session&)> run; ///< empty: everything is said already (help, version, wrong usage)
    std::string verb;                      ///< what it calls for, as it is written there: "certs list"
    ExitCode exit = ExitCode::done;        ///< of an empty `run`
};

/// Reads the command line. Help and version are printed here; wrong usage is reported here, as JSON too when that was
/// asked for.
Command parse(int argc, char** argv);

} // namespace klunortredi::cli
