#pragma once

/// The command line.

#include "admin_options.hpp"
#include "verbs/verbs.hpp"

#include <functional>
#include <string>

namespace klunortredi::admin {

/// What the command line asks for.
struct Command {
    AdminOptions options;
    std::function<cli::ExitCode(Session&)> run; ///< empty: everything is said already (help, version, wrong usage)
    std::string verb;                           ///< what it calls for, as it is written there: "container check"
    cli::ExitCode exit = cli::ExitCode::done;   ///< of an empty `run`
};

/// What failures call this program.
inline constexpr const char* programName = "klunortredi-csp";

/// Reads the command line. Help and version are printed here; wrong usage is reported here, as JSON too when that was
/// asked for.
Command parse(int argc, char** argv);

} // namespace klunortredi::admin
