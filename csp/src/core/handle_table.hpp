#pragma once

/// Handles are numbers that a table translates, never addresses: a stale, foreign or made-up handle finds nothing.

#include "core/error.hpp"

#include <map>
#include <memory>
#include <mutex>

namespace klunortredi::csp {

/// Which table a handle belongs to; kept in its top byte, so that a key handle never passes for a hash handle.
enum class HandleKind : unsigned long { Context = 1, Key, Hash, Store, Message };

/// Live objects of one kind. Thread-safe; handle values are not reused within a process.
template <class T, HandleKind Kind>
class HandleTable {
public:
    /// `badHandle` is the error code for a handle that this table does not hold.
    explicit HandleTable(DWORD badHandle) : badHandle_(badHandle) {}

    unsigned long add(std::shared_ptr<T> object) {
        const std::lock_guard lock(mutex_);
        const unsigned long handle = (static_cast<unsigned long>(Kind) << 56U) | ++last_;
        objects_.emplace(handle, std::move(object));
        return handle;
    }

    [[nodiscard]] std::shared_ptr<T> get(unsigned long handle) const {
        const std::lock_guard lock(mutex_);
        const auto found = objects_.find(handle);
        if (found == objects_.end()) {
            fail(badHandle_);
        }
        return found->second;
    }

    /// Takes the object out; it dies when its last user lets go.
    std::shared_ptr<T> remove(unsigned long handle) {
        const std::lock_guard lock(mutex_);
        const auto found = objects_.find(handle);
        if (found == objects_.end()) {
            fail(badHandle_);
        }
        auto object = std::move(found->second);
        objects_.erase(found);
        return object;
    }

    [[nodiscard]] std::size_t size() const {
        const std::lock_guard lock(mutex_);
        return objects_.size();
    }

private:
    const DWORD badHandle_;
    mutable std::mutex mutex_;
    /// A map, since an empty one keeps no memory: the tables are never destroyed.
    std::map<unsigned long, std::shared_ptr<T>> objects_;
    unsigned long last_ = 0;
};

} // namespace klunortredi::csp
