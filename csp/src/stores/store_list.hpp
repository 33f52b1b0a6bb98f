#pragma once

/// What a process knows about the certificate files of a store's folder.

#include "capi/constants.hpp"
#include "core/folder.hpp"
#include "stores/search_keys.hpp"
#include "stores/store_index.hpp"

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace klunortredi::csp {

/// One certificate file.
struct StoreEntry {
    std::string thumbprint;    ///< of its name, lower-case hexadecimal
    std::uint64_t ordinal = 0; ///< of the certificate, also before it is read
    std::optional<SearchKeys> keys{};
    bool indexed = false; ///< the keys stand in the index file
    /// State of the file that was read last; nullopt: none yet, or the file is gone.
    std::optional<files::Stamp> stamp{};
    std::shared_ptr<Certificate> certificate{}; ///< what was read last; stays when the file goes
    /// 0; ERROR_INVALID_DATA when the file is not the certificate that its name says, else why it cannot be read.
    DWORD trouble = 0;

    /// The certificate, unless its file is gone or not usable.
    [[nodiscard]] std::shared_ptr<Certificate> present() const { return stamp && trouble == 0 ? certificate : nullptr; }
    /// Nobody knows what the file holds.
    [[nodiscard]] bool unread() const noexcept { return trouble != 0 && trouble != capi::ERROR_INVALID_DATA; }
};

/// The entries in their order, and by what searches ask for. Entries stay where they are until they are removed.
class StoreList {
public:
    /// Takes over which files there are. New ones get the numbers that `index` has for them.
    void setNames(const std::vector<std::string>& thumbprints, const StoreIndex& index);
    /// The entry of a thumbprint; null when there is none.
    [[nodiscard]] StoreEntry* find(const std::string& thumbprint) const;
    /// The entry of a thumbprint, which is made when there is none.
    StoreEntry& at(const std::string& thumbprint);
    void erase(const std::string& thumbprint);

    /// Sets the numbers of an entry. Numbers from the index that are not the certificate's show that the index is
    /// wrong: then none of it is used any more.
    void setKeys(StoreEntry& entry, const SearchKeys& keys);
    /// Every entry with keys is in the index file now.
    void setIndexed();
    [[nodiscard]] StoreIndex index() const;
    [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }
    /// How many entries have keys that the index file lacks.
    [[nodiscard]] std::size_t unindexed() const noexcept { return unindexed_; }
    [[nodiscard]] bool knows(const std::string& thumbprint) const { return entries_.contains(thumbprint); }

    /// The first entry after `ordinal`; null at the end.
    [[nodiscard]] StoreEntry* after(std::uint64_t ordinal) const;
    /// Entries that have the number, and those whose numbers nobody knows, in order.
    [[nodiscard]] std::vector<StoreEntry*> candidates(const SearchPlace::Number& number);

private:
    using Postings = std::unordered_multimap<std::uint64_t, StoreEntry*>;

    void forgetIndex();
    void dropKeys(StoreEntry& entry);
    Postings& postingsOf(SearchBy by);

    std::unordered_map<std::string, std::unique_ptr<StoreEntry>> entries_;
    std::map<std::uint64_t, StoreEntry*> order_;
    std::set<StoreEntry*> unkeyed_;
    std::array<std::unique_ptr<Postings>, searchKinds> postings_; ///< made when first asked for
    std::size_t unindexed_ = 0;
};

} // namespace klunortredi::csp
