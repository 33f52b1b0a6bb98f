#pragma once

#include "net/error.hpp"

#include <ctime>
#include <optional>
#include <string>

namespace klunortredi::net {

/// An entry of the cache: a download, or a failure that is remembered.
struct CacheEntry {
    std::time_t storedAt = 0;
    std::time_t validUntil = 0;
    std::string octets{};                  ///< of the download
    std::optional<NetworkError> failure{}; ///< then octets is empty
};

/// SHA-256 in hexadecimal. Throws std::runtime_error when OpenSSL cannot compute it.
std::string digestText(const std::string& octets);

/// The file of an entry: a line with the digest of what follows, a line of numbers, the octets.
std::string encodeEntry(const CacheEntry& entry);
/// Returns nullopt for a file that is damaged or of another version.
std::optional<CacheEntry> decodeEntry(const std::string& file);

} // namespace klunortredi::net
