#pragma once

/// Files that the service skipped while it read stores: a user must know what a list or a verdict does not include.

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace klunortredi::cli {

class Console;

struct SkippedEntry {
    std::string file;   ///< path, control characters as '?'
    std::uint32_t code; ///< of capi: ERROR_INVALID_DATA when it is not a certificate or CRL, else of the failed reading
};

/// Asks the service what it skipped since the last question. To be called after a use of a store; a service that keeps
/// no such list skips nothing.
void collectSkipped();
/// All that was collected in this process, by file.
std::vector<SkippedEntry> skippedEntries();

/// The first that could not be read; null when all could.
const SkippedEntry* firstUnread(const std::vector<SkippedEntry>& entries);
/// [{"file":"...","reason":"..."}]
nlohmann::ordered_json toJson(const std::vector<SkippedEntry>& entries);
/// One remark for each, on standard error.
void noteSkipped(const Console& console);

} // namespace klunortredi::cli
