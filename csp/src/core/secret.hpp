#pragma once

/// Octets that do not stay in memory after use: PINs, content-encryption keys.

#include <openssl/crypto.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace klunortredi::csp {

template <class T>
struct WipingAllocator {
    using value_type = T;
    WipingAllocator() = default;
    template <class U>
    explicit WipingAllocator(const WipingAllocator<U>& /*other*/) noexcept {}
    T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T* memory, std::size_t count) noexcept {
        OPENSSL_cleanse(memory, count * sizeof(T));
        std::allocator<T>().deallocate(memory, count);
    }
    friend bool operator==(const WipingAllocator& /*a*/, const WipingAllocator& /*b*/) noexcept { return true; }
};

/// Wiped when destroyed, replaced or grown. (A std::string would keep short values inside itself.)
using Secret = std::vector<char, WipingAllocator<char>>;

/// Key material: the same for octets.
using SecretBytes = std::vector<std::uint8_t, WipingAllocator<std::uint8_t>>;

inline Secret secretOf(std::string_view text) {
    return {text.begin(), text.end()};
}

inline std::string_view view(const Secret& secret) noexcept {
    return {secret.data(), secret.size()};
}

} // namespace klunortredi::csp
