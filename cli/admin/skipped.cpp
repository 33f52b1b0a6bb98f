#include "skipped.hpp"

#include "capi/constants.hpp"
#include "failure.hpp"
#include "printable.hpp"
#include "service_words.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace klunortredi::admin {

namespace {

bool unread(const csp::UnusableEntry& entry) {
    return entry.code != capi::ERROR_INVALID_DATA;
}

std::string reasonOf(const csp::UnusableEntry& entry) {
    return cli::skippingReason(entry.code);
}

} // namespace

nlohmann::ordered_json toJson(const Skipped& entries) {
    auto rows = nlohmann::ordered_json::array();
    for (const csp::UnusableEntry& entry : entries) {
        rows.push_back({{"file", entry.file}, {"reason", reasonOf(entry)}});
    }
    return rows;
}

void print(std::ostream& out, const Skipped& entries) {
    for (const csp::UnusableEntry& entry : entries) {
        out << "skipped " << cli::printable(entry.file) << ": " << reasonOf(entry) << '\n';
    }
}

cli::ExitCode exitOf(const Skipped& entries) {
    return std::ranges::any_of(entries, unread) ? cli::ExitCode::input : cli::ExitCode::done;
}

void refuseUnread(const Skipped& entries, const std::string& what) {
    const auto failed = std::ranges::find_if(entries, unread);
    if (failed != entries.end()) {
        throw cli::Failure(cli::ExitCode::input, what,
                           cli::printable(failed->file) + " is skipped: " + reasonOf(*failed), {}, failed->code);
    }
}

} // namespace klunortredi::admin
