#pragma once

/// The judges: the openssl command with the GOST engine, and certtool.

#include "support.hpp"

#include <string>

namespace klunortredi::test {

/// Runs a shell command in `folder` with a configuration that loads the GOST engine; returns its exit status. Output
/// goes to `folder`/output.txt.
int run(const TempFolder& folder, const std::string& command);
/// The output of the command run last.
std::string output(const TempFolder& folder);

} // namespace klunortredi::test
