#include "net/cache.hpp"

#include "cache_entry.hpp"
#include "cache_folder.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

namespace klunortredi::net {

namespace {

constexpr std::size_t headAllowance = 4096; // of an entry's file, beyond the octets
constexpr std::time_t clockTolerance = 300; // an entry from the future was written by a clock that went wrong
constexpr std::size_t lockCharacters = 2;   // 256 lock files, shared by all keys

/// What other processes would find out too. The rest depends on the caller, or costs nothing to find out.
constexpr std::array keptFailures{ErrorKind::resolve, ErrorKind::connect,   ErrorKind::timeout,  ErrorKind::tls,
                                  ErrorKind::status,  ErrorKind::mediaType, ErrorKind::tooLarge, ErrorKind::redirect,
                                  ErrorKind::cutOff,  ErrorKind::protocol};

std::optional<CacheEntry> validEntry(const CacheFolder& folder, const std::string& name, const CacheLimits& limits) {
    const auto file = folder.read(name, limits.entryOctets + headAllowance);
    auto entry = file ? decodeEntry(*file) : std::nullopt;
    const std::time_t now = std::time(nullptr);
    if (!entry || entry->storedAt > now + clockTolerance || now >= entry->validUntil) {
        return std::nullopt;
    }
    return entry;
}

void keep(const CacheFolder& folder, const std::string& name, CacheEntry entry, const CacheLimits& limits) {
    const auto longest = static_cast<std::time_t>(limits.longestValidity.count());
    entry.storedAt = std::time(nullptr);
    entry.validUntil = std::min(entry.validUntil, entry.storedAt + longest);
    if (entry.octets.size() > limits.entryOctets || entry.validUntil <= entry.storedAt) {
        return;
    }
    folder.write(name, encodeEntry(entry));
    folder.evict(limits.entries, limits.totalOctets);
}

std::string octetsOf(CacheEntry entry) {
    if (entry.failure) {
        throw NetworkError(*entry.failure);
    }
    return std::move(entry.octets);
}

std::string downloadInto(const CacheFolder& folder, const std::string& name, const CacheLimits& limits,
                         const std::function<Cache::Download()>& download) {
    try {
        auto made = download();
        keep(folder, name, {0, made.validUntil, made.octets, {}}, limits);
        return std::move(made.octets);
    } catch (const NetworkError& e) {
        if (std::ranges::find(keptFailures, e.kind()) != keptFailures.end()) {
            const auto until = std::time(nullptr) + static_cast<std::time_t>(limits.failureValidity.count());
            keep(folder, name, {0, until, {}, e}, limits);
        }
        throw;
    }
}

} // namespace

Cache::Cache(std::filesystem::path folder, CacheLimits limits) : folder_(std::move(folder)), limits_(limits) {}

Cache Cache::ofUser(CacheLimits limits) {
    const auto absolute = [](const char* variable) {
        const char* const value = ::secure_getenv(variable);
        return value != nullptr && *value == '/' ? std::filesystem::path(value) : std::filesystem::path();
    };
    auto base = absolute("XDG_CACHE_HOME");
    if (base.empty() && !absolute("HOME").empty()) {
        base = absolute("HOME") / ".cache";
    }
    return Cache(base.empty() ? base : base / "klunortredi", limits);
}

std::optional<std::string> Cache::find(const std::string& key) const {
    const auto folder = CacheFolder::open(folder_);
    auto entry = folder ? validEntry(*folder, digestText(key), limits_) : std::nullopt;
    if (!entry || entry->failure) {
        return std::nullopt;
    }
    return std::move(entry->octets);
}

void Cache::store(const std::string& key, const Download& download) const {
    if (const auto folder = CacheFolder::open(folder_)) {
        keep(*folder, digestText(key), {0, download.validUntil, download.octets, {}}, limits_);
    }
}

std::string Cache::obtain(const std::string& key, const std::function<Download()>& download) const {
    const auto folder = CacheFolder::open(folder_);
    if (!folder) {
        return download().octets;
    }
    const std::string name = digestText(key);
    if (auto entry = validEntry(*folder, name, limits_)) {
        return octetsOf(std::move(*entry));
    }
    const auto lock = folder->lock(name.substr(0, lockCharacters), limits_.lockTimeout);
    if (auto entry = validEntry(*folder, name, limits_)) { // the download of another process
        return octetsOf(std::move(*entry));
    }
    return downloadInto(*folder, name, limits_, download);
}

} // namespace klunortredi::net
