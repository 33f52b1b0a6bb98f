#include "stores/memory_store.hpp"

#include <algorithm>

namespace klunortredi::csp {

MemoryStore::MemoryStore(const std::vector<Bytes>& certificates, std::vector<Bytes> crls) : crls_(std::move(crls)) {
    for (const Bytes& der : certificates) {
        try {
            certificates_.push_back(std::make_shared<Certificate>(der));
        } catch (const ApiError&) {
            continue;
        }
    }
}

std::vector<std::shared_ptr<Certificate>> MemoryStore::certificates() {
    const std::lock_guard lock(mutex_);
    return certificates_;
}

Match MemoryStore::next(std::uint64_t after, const Criterion& wanted) {
    const std::lock_guard lock(mutex_);
    auto candidate = std::ranges::upper_bound(certificates_, after, {}, &Certificate::ordinal);
    candidate = std::find_if(candidate, certificates_.end(), [&](const auto& held) { return wanted.meets(*held); });
    return {candidate == certificates_.end() ? nullptr : *candidate};
}

std::vector<StoredCrl> MemoryStore::crls() {
    std::vector<StoredCrl> list;
    for (const Bytes& der : crls_) {
        list.push_back({der, "a message's CRL"});
    }
    return list;
}

std::shared_ptr<Certificate> MemoryStore::add(const Certificate& certificate, AddRule rule) {
    const std::lock_guard lock(mutex_);
    const auto same = std::ranges::find_if(
        certificates_, [&](const auto& held) { return sameIssuerAndSerial(held->info(), certificate.info()); });
    if (same == certificates_.end() || rule == AddRule::Always) {
        return certificates_.emplace_back(
            std::make_shared<Certificate>(certificate.encoded(), certificate.properties()));
    }
    switch (rule) {
    case AddRule::UseExisting:
        // Read before: the certificate may be the element itself.
        (*same)->changeProperties([offered = certificate.properties()](Properties& held) { held.addMissing(offered); });
        return *same;
    case AddRule::Replace:
        // In the same place: a walk that replaces what it meets comes to an end.
        *same = std::make_shared<Certificate>(certificate.encoded(), certificate.properties(), (*same)->ordinal());
        return *same;
    default:
        fail(capi::CRYPT_E_EXISTS);
    }
}

void MemoryStore::remove(const Certificate& certificate) {
    const std::lock_guard lock(mutex_);
    const auto held =
        std::ranges::find_if(certificates_, [&](const auto& candidate) { return candidate.get() == &certificate; });
    if (held == certificates_.end()) {
        fail(capi::CRYPT_E_NOT_FOUND);
    }
    certificates_.erase(held);
}

void MemoryStore::change(Certificate& certificate, const std::function<void(Properties&)>& change) {
    certificate.changeProperties(change);
}

} // namespace klunortredi::csp
