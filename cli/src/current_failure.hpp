#pragma once

#include "failure.hpp"

#include <string>

namespace klunortredi::cli {

/// The failure that an exception in flight means, whatever threw it; `what` names the step that failed. Call it inside
/// a catch block.
Failure currentFailure(const std::string& what);

} // namespace klunortredi::cli
