#pragma once

/// Where an operation stands in its class's table of virtual functions: code compiled against the interfaces calls by
/// that number.

#include <gmock/gmock.h>

#include <cstddef>
#include <cstring>
#include <numeric>
#include <vector>

namespace wincrypt_keys {

/// A pointer to a virtual member function is one more than its offset in the table (Itanium C++ ABI, 2.3).
template <class Member>
std::size_t slot(Member member) {
    std::ptrdiff_t representation = 0;
    std::memcpy(&representation, &member, sizeof(representation));
    return static_cast<std::size_t>(representation - 1) / sizeof(void*);
}

/// The slots after the two destructors.
inline std::vector<std::size_t> behindDestructors(std::size_t count) {
    std::vector<std::size_t> slots(count);
    std::iota(slots.begin(), slots.end(), 2U);
    return slots;
}

template <class... Members>
void inOrder(Members... members) {
    EXPECT_THAT((std::vector<std::size_t>{slot(members)...}),
                testing::ElementsAreArray(behindDestructors(sizeof...(members))));
}

} // namespace wincrypt_keys
