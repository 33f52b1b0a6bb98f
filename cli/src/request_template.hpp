#pragma once

/// Files that hold the options of `request` (docs/command.md).

#include "verbs/verbs.hpp"

namespace klunortredi::cli {

/// The options with those of their template in place of what the command line does not say; unchanged when there is no
/// template. Throws Failure (exit 3) for a file that is not a JSON object of the documented members.
RequestArguments withTemplate(RequestArguments arguments);

} // namespace klunortredi::cli
