#include "stores/store_list.hpp"

#include <algorithm>
#include <unordered_set>

namespace klunortredi::csp {

void StoreList::setNames(const std::vector<std::string>& thumbprints, const StoreIndex& index) {
    const std::unordered_set<std::string> present(thumbprints.begin(), thumbprints.end());
    std::vector<std::string> gone;
    for (const auto& [thumbprint, entry] : entries_) {
        if (!present.contains(thumbprint)) {
            gone.push_back(thumbprint);
        }
    }
    for (const std::string& thumbprint : gone) {
        erase(thumbprint);
    }
    for (const std::string& thumbprint : thumbprints) {
        StoreEntry& entry = at(thumbprint);
        const auto numbers = entry.keys ? index.end() : index.find(thumbprint);
        if (numbers != index.end()) {
            setKeys(entry, numbers->second);
            entry.indexed = true;
            --unindexed_;
        }
    }
}

StoreEntry* StoreList::find(const std::string& thumbprint) const {
    const auto found = entries_.find(thumbprint);
    return found == entries_.end() ? nullptr : found->second.get();
}

StoreEntry& StoreList::at(const std::string& thumbprint) {
    if (StoreEntry* const known = find(thumbprint)) {
        return *known;
    }
    auto made = std::make_unique<StoreEntry>(StoreEntry{thumbprint, Certificate::takeOrdinal()});
    StoreEntry& entry = *made;
    entries_.emplace(thumbprint, std::move(made));
    order_.emplace(entry.ordinal, &entry);
    unkeyed_.insert(&entry);
    return entry;
}

void StoreList::erase(const std::string& thumbprint) {
    StoreEntry* const entry = find(thumbprint);
    if (entry == nullptr) {
        return;
    }
    dropKeys(*entry);
    unkeyed_.erase(entry);
    order_.erase(entry->ordinal);
    entries_.erase(thumbprint);
}

void StoreList::dropKeys(StoreEntry& entry) {
    if (!entry.keys) {
        return;
    }
    for (std::size_t kind = 0; kind < searchKinds; ++kind) {
        if (postings_[kind]) {
            const auto [first, last] = postings_[kind]->equal_range((*entry.keys)[kind]);
            postings_[kind]->erase(std::find_if(first, last, [&](const auto& row) { return row.second == &entry; }));
        }
    }
    unindexed_ -= entry.indexed ? 0U : 1U;
    entry.keys.reset();
    entry.indexed = false;
    unkeyed_.insert(&entry);
}

void StoreList::setKeys(StoreEntry& entry, const SearchKeys& keys) {
    if (entry.keys == keys) {
        return;
    }
    if (entry.keys) { // of one octet string there is one set of numbers
        forgetIndex();
    }
    entry.keys = keys;
    unkeyed_.erase(&entry);
    ++unindexed_;
    for (std::size_t kind = 0; kind < searchKinds; ++kind) {
        if (postings_[kind]) {
            postings_[kind]->emplace(keys[kind], &entry);
        }
    }
}

void StoreList::forgetIndex() {
    for (const auto& [thumbprint, entry] : entries_) {
        dropKeys(*entry);
    }
}

void StoreList::setIndexed() {
    for (const auto& [thumbprint, entry] : entries_) {
        entry->indexed = entry->keys.has_value();
    }
    unindexed_ = 0;
}

StoreIndex StoreList::index() const {
    StoreIndex index;
    for (const auto& [thumbprint, entry] : entries_) {
        if (entry->keys) {
            index.emplace(thumbprint, *entry->keys);
        }
    }
    return index;
}

StoreEntry* StoreList::after(std::uint64_t ordinal) const {
    const auto found = order_.upper_bound(ordinal);
    return found == order_.end() ? nullptr : found->second;
}

StoreList::Postings& StoreList::postingsOf(SearchBy by) {
    const auto kind = static_cast<std::size_t>(by);
    if (!postings_[kind]) {
        postings_[kind] = std::make_unique<Postings>();
        for (const auto& [thumbprint, entry] : entries_) {
            if (entry->keys) {
                postings_[kind]->emplace((*entry->keys)[kind], entry.get());
            }
        }
    }
    return *postings_[kind];
}

std::vector<StoreEntry*> StoreList::candidates(const SearchPlace::Number& number) {
    std::vector<StoreEntry*> found(unkeyed_.begin(), unkeyed_.end());
    const auto [first, last] = postingsOf(number.by).equal_range(number.value);
    for (auto row = first; row != last; ++row) {
        found.push_back(row->second);
    }
    std::ranges::sort(found, {}, &StoreEntry::ordinal);
    return found;
}

} // namespace klunortredi::csp
