#pragma once

/// Octets that do not stay in memory after use, nor reach the swap space or a core dump: PINs, content-encryption keys.

#include <openssl/crypto.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace klunortredi::csp {

/// Whole pages of their own, locked in memory and left out of core dumps as far as the system allows: that it does not
/// is not an error. Throws std::bad_alloc.
void* takeSecretMemory(std::size_t octets);
/// Wipes them and gives them back.
void giveSecretMemory(void* memory, std::size_t octets) noexcept;

template <class T>
struct WipingAllocator {
    using value_type = T;
    WipingAllocator() = default;
    template <class U>
    explicit WipingAllocator(const WipingAllocator<U>& /*other*/) noexcept {}
    T* allocate(std::size_t count) {
        static_assert(sizeof(T) == 1, "no product to overflow");
        return static_cast<T*>(takeSecretMemory(count));
    }
    void deallocate(T* memory, std::size_t count) noexcept { giveSecretMemory(memory, count); }
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
