#pragma once

/// The CryptoAPI's ways of handing out results: a size query, then a buffer; flat bytes or a structure whose pointers
/// lead into the same buffer.

#include "capi/types.h"
#include "core/bytes.hpp"

#include <cstddef>
#include <string>
#include <string_view>

namespace klunortredi::csp {

/// The two-call protocol alone: true when `buffer` is there and has `needed` octets by `*size`. Reports the needed size
/// in every case; fails as `give` does. For results that are made only when they are asked for.
bool hasRoom(std::size_t needed, const void* buffer, DWORD* size);

/// Writes `value` to `*buffer` by the two-call protocol. A null `buffer` only reports the size; one that is too small
/// (by `*size`) reports the needed size and fails with ERROR_MORE_DATA. A null `size`: ERROR_INVALID_PARAMETER.
void give(ByteView value, void* buffer, DWORD* size);
void give(DWORD value, void* buffer, DWORD* size);
/// With the terminating zero.
void giveText(std::string_view value, void* buffer, DWORD* size);

/// Builds a structure followed by everything its pointers lead to, in one relocatable block.
///
/// Offsets are handed out while building; `deliver` copies the block into the caller's buffer and turns the offsets
/// recorded with `point` into addresses there. The caller's buffer must be 8-byte aligned, as malloc gives it.
class StructBuilder {
public:
    /// Reserves the zeroed structure at the start of the block.
    explicit StructBuilder(std::size_t structSize);

    /// Appends `size` zeroed octets at `alignment`; returns their offset.
    std::size_t reserve(std::size_t size, std::size_t alignment = 8);
    std::size_t append(ByteView bytes, std::size_t alignment = 1);
    std::size_t append(std::string_view textWithoutZero);  ///< adds the terminating zero
    std::size_t append(std::wstring_view textWithoutZero); ///< adds the terminating zero

    /// The object at `offset`, for filling. Valid until the next reserve or append.
    template <class T>
    T& at(std::size_t offset) {
        return *reinterpret_cast<T*>(block_.data() + offset); // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast)
    }
    /// Records that the pointer stored at `pointerOffset` leads to `targetOffset`.
    void point(std::size_t pointerOffset, std::size_t targetOffset);
    /// Fills a blob (cbData, pbData) at `blobOffset` with a copy of `bytes`; empty bytes leave a null pointer.
    void blob(std::size_t blobOffset, ByteView bytes);
    void text(std::size_t pointerOffset, std::string_view value);
    void text(std::size_t pointerOffset, std::wstring_view value);

    [[nodiscard]] std::size_t size() const noexcept { return block_.size(); }
    /// Two-call protocol, as `give`.
    void deliver(void* buffer, DWORD* size) const;

private:
    struct Fixup {
        std::size_t pointer;
        std::size_t target;
    };
    std::vector<std::uint8_t> block_;
    std::vector<Fixup> fixups_;
};

} // namespace klunortredi::csp
