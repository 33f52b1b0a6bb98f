#pragma once

/// Stores that live in memory: empty ones, and those filled from a message.

#include "stores/store.hpp"

#include <mutex>

namespace klunortredi::csp {

class MemoryStore final : public Store {
public:
    MemoryStore() = default;
    /// Holds what a message carries. A certificate or CRL that does not decode is left out: it can be nobody's.
    MemoryStore(const std::vector<Bytes>& certificates, std::vector<Bytes> crls);

    std::vector<std::shared_ptr<Certificate>> certificates() override;
    Match next(std::uint64_t after, const Criterion& wanted) override;
    std::vector<StoredCrl> crls() override;
    std::shared_ptr<Certificate> add(const Certificate& certificate, AddRule rule) override;
    void remove(const Certificate& certificate) override;
    void change(Certificate& certificate, const std::function<void(Properties&)>& change) override;

private:
    std::mutex mutex_;
    std::vector<std::shared_ptr<Certificate>> certificates_;
    const std::vector<Bytes> crls_;
};

} // namespace klunortredi::csp
