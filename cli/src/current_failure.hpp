#pragma once

#include "failure.hpp"

#include <cstdint>
#include <string>

namespace klunortredi::cli {

/// The failure that an exception in flight means, whatever threw it; `what` names the step that failed. Call it inside
/// a catch block.
Failure currentFailure(const std::string& what);

/// The failure that a code of the service means.
Failure serviceFailure(const std::string& what, std::uint32_t code);
/// The same code in a few words, for lists and verdicts; never empty.
std::string refusalReason(std::uint32_t code);

/// The library answers with an empty list both when there is nothing and when the service could not look. `error` is
/// what the service said when it was asked for the first item: throws Failure unless it says that there is none.
void checkEmptyList(const std::string& what, std::uint32_t error);

} // namespace klunortredi::cli
