#pragma once

/// Questions before something that cannot be undone.

#include <string>

namespace klunortredi::cli {

/// Asks `question` on the terminal and returns when the answer is "y" or "yes". Throws Failure: any other answer (exit
/// 5), no terminal (exit 2, naming --yes). `what` begins the failure's text: "cannot delete container x".
void confirm(const std::string& question, const std::string& what);

} // namespace klunortredi::cli
