#include "skipped_entries.hpp"

#include "capi/constants.hpp"
#include "capi/skipped_entries.hpp"
#include "console.hpp"
#include "crypto/wincrypt/scoped_handle.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "printable.hpp"
#include "service_words.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <sstream>

namespace klunortredi::cli {

namespace {

namespace wincrypt = orvik::plugin::wincrypt;

std::map<std::string, std::uint32_t>& collected() {
    static std::map<std::string, std::uint32_t> entries; ///< codes by file
    return entries;
}

/// The service's list; empty when it has none.
std::string listOfService() {
    const orvik::plugin::scoped_handle<unsigned long> context(
        [](unsigned long& handle) {
            if (wincrypt::CryptAcquireContextW(&handle, nullptr, nullptr, capi::PROV_RSA_AES,
                                               capi::CRYPT_VERIFYCONTEXT | capi::CRYPT_SILENT) == 0) {
                handle = 0;
            }
        },
        [](unsigned long& handle) { wincrypt::CryptReleaseContext(handle, 0); });
    DWORD size = 0;
    if (!context || wincrypt::CryptGetProvParam(context.get(), capi::PP_SKIPPED_ENTRIES, nullptr, &size, 0) == 0) {
        return {};
    }
    std::string text(size, '\0');
    if (wincrypt::CryptGetProvParam(context.get(), capi::PP_SKIPPED_ENTRIES, reinterpret_cast<BYTE*>(text.data()),
                                    &size, 0) == 0) {
        return {};
    }
    return text.substr(0, text.find('\0'));
}

} // namespace

void collectSkipped() {
    std::istringstream list(listOfService());
    for (std::string line; std::getline(list, line);) {
        std::istringstream words(line);
        std::uint32_t code = 0;
        if (words >> code && words.get() == ' ') {
            std::string file;
            std::getline(words, file);
            collected()[file] = code;
        }
    }
}

std::vector<SkippedEntry> skippedEntries() {
    std::vector<SkippedEntry> entries;
    for (const auto& [file, code] : collected()) {
        entries.push_back({file, code});
    }
    return entries;
}

const SkippedEntry* firstUnread(const std::vector<SkippedEntry>& entries) {
    const auto found =
        std::ranges::find_if(entries, [](const SkippedEntry& entry) { return entry.code != capi::ERROR_INVALID_DATA; });
    return found == entries.end() ? nullptr : &*found;
}

nlohmann::ordered_json toJson(const std::vector<SkippedEntry>& entries) {
    auto rows = nlohmann::ordered_json::array();
    for (const SkippedEntry& entry : entries) {
        rows.push_back({{"file", entry.file}, {"reason", skippingReason(entry.code)}});
    }
    return rows;
}

void noteSkipped(const Console& console) {
    for (const SkippedEntry& entry : skippedEntries()) {
        console.note("skipped " + printable(entry.file) + ": " + skippingReason(entry.code));
    }
}

} // namespace klunortredi::cli
