#pragma once

#include "net/error.hpp"

#include <chrono>
#include <cstddef>
#include <ctime>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace klunortredi::net {

/// What a cache may hold and how long it waits.
struct CacheLimits {
    std::size_t totalOctets = std::size_t{64} << 20; ///< of all entries: a few hundred CRLs of usual size
    std::size_t entryOctets = std::size_t{32} << 20; ///< larger answers are not stored
    std::size_t entries = 1024;
    std::chrono::seconds longestValidity{7 * 86400}; ///< issuers replace CRLs before their time
    std::chrono::seconds failureValidity{60};        ///< how long a failed download is not repeated
    std::chrono::milliseconds lockTimeout{40'000};   ///< for the download of another process; then one's own begins
};

/// Downloads of this user, kept in a folder (mode 0700) of files that are there complete or not at all. What cannot be
/// read or written is as if it were not there: a cache never makes a request fail. Can be used from any thread and
/// from any number of processes at once.
class Cache {
public:
    /// A download and the time until which it can be used.
    struct Download {
        std::string octets;
        std::time_t validUntil = 0;
    };

    /// An empty path is a cache that keeps nothing.
    explicit Cache(std::filesystem::path folder, CacheLimits limits = {});
    /// XDG_CACHE_HOME/klunortredi, or $HOME/.cache/klunortredi; keeps nothing where neither is an absolute path.
    static Cache ofUser(CacheLimits limits = {});

    /// Returns the valid entry of the key, or nullopt.
    [[nodiscard]] std::optional<std::string> find(const std::string& key) const;
    /// Keeps the octets under the key. Evicts the entries that were stored first when a limit is reached.
    void store(const std::string& key, const Download& download) const;

    /// Returns the valid entry of the key; otherwise calls `download` and keeps what it returns. Processes and threads
    /// that ask for one key at one time wait for one download, at most CacheLimits::lockTimeout. A NetworkError of
    /// `download` about the server is kept for CacheLimits::failureValidity and thrown again meanwhile. Other
    /// exceptions pass through. `download` may parse its octets to know their validity, and throw when they are not
    /// what they should be.
    std::string obtain(const std::string& key, const std::function<Download()>& download) const;

private:
    std::filesystem::path folder_;
    CacheLimits limits_;
};

} // namespace klunortredi::net
