#pragma once

/// Objects that outlive the process's static destructors.

#include <cstddef>
#include <new>
#include <utility>

namespace klunortredi::csp {

/// Holds a T that is never destroyed, for function-local statics that a host's static objects may still use when those
/// of this library are gone, or when OpenSSL has cleaned up.
///
/// The T lies in the static itself and not on the heap: when the library is unloaded, what an emptied table needed is
/// gone with it, and a leak checker tells only of what was really left open.
template <class T>
class Immortal {
public:
    template <class... Args>
    explicit Immortal(Args&&... args) {
        new (storage_) T(std::forward<Args>(args)...);
    }
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;
    ~Immortal() = default;

    T& operator*() noexcept { return *std::launder(reinterpret_cast<T*>(storage_)); }
    T* operator->() noexcept { return &**this; }

private:
    alignas(T) std::byte storage_[sizeof(T)];
};

} // namespace klunortredi::csp
