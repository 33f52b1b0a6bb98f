#pragma once

/// Entries of a store that a verb skips: how they are named, and what they mean for its exit code.

#include "exit_code.hpp"
#include "stores/store.hpp"

#include <nlohmann/json_fwd.hpp>

#include <ostream>
#include <string>
#include <vector>

namespace klunortredi::admin {

using Skipped = std::vector<csp::UnusableEntry>;

/// [{"file":"<path>","reason":"..."}]
nlohmann::ordered_json toJson(const Skipped& entries);
/// A line for each entry: its file, and why it is skipped.
void print(std::ostream& out, const Skipped& entries);
/// Exit code of a list that lacks these: 3 when the reading of one failed, for then nobody knows what the list lacks. A
/// file that is not a certificate or CRL is named, and the list is complete.
cli::ExitCode exitOf(const Skipped& entries);
/// Throws Failure (exit 3) with `what` when the reading of an entry failed: "none matches" would be a guess.
void refuseUnread(const Skipped& entries, const std::string& what);

} // namespace klunortredi::admin
