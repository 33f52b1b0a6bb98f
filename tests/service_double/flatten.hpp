#pragma once

/// Structures as the CryptoAPI gives them out: one block, its pointers pointing into itself.

#include "capi/types.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace service_double {

/// A block under construction. Starts as a zeroed structure of the given size; offsets count from its beginning.
///
///     Flat flat(sizeof(CRYPT_BIT_BLOB));
///     flat.set(offsetof(CRYPT_BIT_BLOB, cbData), DWORD{1});
///     flat.point(offsetof(CRYPT_BIT_BLOB, pbData), flat.append("\x80"));
///     return giveFlat(flat, buffer, size);
class Flat {
public:
    explicit Flat(std::size_t structureSize) : octets_(structureSize, '\0') {}

    /// Writes a plain member.
    template <class T>
    void set(std::size_t offset, T value) {
        octets_.replace(offset, sizeof value, reinterpret_cast<const char*>(&value), sizeof value);
    }
    /// Lets the pointer at `offset` point to `target` within the block.
    void point(std::size_t offset, std::size_t target) { pointers_.emplace_back(offset, target); }
    /// Adds octets behind the block; their offset. No alignment: the last octet added is the block's last.
    std::size_t append(const std::string& octets);
    /// Adds a zeroed structure behind the block, aligned for pointers; its offset.
    std::size_t appendStructure(std::size_t size);
    /// Fills the cbData and pbData of the blob at `offset`.
    void blob(std::size_t offset, const std::string& octets);
    /// Points at a copy of the text, zero included.
    void text(std::size_t offset, const std::string& text);
    void text(std::size_t offset, const std::wstring& text);

    [[nodiscard]] std::size_t size() const { return octets_.size(); }
    /// The block with its pointers set for lying at `address`.
    [[nodiscard]] std::string placedAt(const void* address) const;

private:
    std::string octets_;
    std::vector<std::pair<std::size_t, std::size_t>> pointers_;
};

/// The CryptoAPI's output protocol for a block: size only for a null buffer, ERROR_MORE_DATA for a short one.
BOOL giveFlat(const Flat& flat, void* buffer, DWORD* size);

} // namespace service_double
