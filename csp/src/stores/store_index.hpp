#pragma once

/// The file `.index` of a store's folder: the search numbers of its certificates, so that a search reads only the files
/// that may be meant.
///
/// It never says which certificates there are (the folder's list does), nor what they are (their files do). A name in
/// it is the hash of the certificate's octets, so a line stays true wherever the folder is copied to. The file ends
/// with a SHA-256 over the rest: one that was cut, or comes from another version, is not used and is written anew.

#include "stores/search_keys.hpp"

#include <filesystem>
#include <string>
#include <unordered_map>

namespace klunortredi::csp {

inline constexpr const char* indexFileName = ".index";

using StoreIndex = std::unordered_map<std::string, SearchKeys>; ///< by thumbprint, lower-case hexadecimal

/// Empty when the index is missing or cannot be used.
StoreIndex readStoreIndex(const std::filesystem::path& folder);

/// Octets of the file for an index.
Bytes formatStoreIndex(const StoreIndex& index);

} // namespace klunortredi::csp
