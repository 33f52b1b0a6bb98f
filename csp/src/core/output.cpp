#include "core/output.hpp"

#include "core/error.hpp"

#include <cstring>
#include <limits>

namespace klunortredi::csp {

namespace {

ByteView asBytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

ByteView asBytes(std::wstring_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size() * sizeof(wchar_t)};
}

} // namespace

bool hasRoom(std::size_t needed, const void* buffer, DWORD* size) {
    if (size == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    if (needed > std::numeric_limits<DWORD>::max()) {
        fail(capi::NTE_BAD_LEN);
    }
    const DWORD offered = *size;
    *size = static_cast<DWORD>(needed);
    if (buffer == nullptr) {
        return false;
    }
    if (offered < needed) {
        fail(capi::ERROR_MORE_DATA);
    }
    return true;
}

void give(ByteView value, void* buffer, DWORD* size) {
    if (hasRoom(value.size(), buffer, size) && !value.empty()) {
        std::memcpy(buffer, value.data(), value.size());
    }
}

void give(DWORD value, void* buffer, DWORD* size) {
    if (hasRoom(sizeof value, buffer, size)) {
        std::memcpy(buffer, &value, sizeof value);
    }
}

void giveText(std::string_view value, void* buffer, DWORD* size) {
    if (hasRoom(value.size() + 1, buffer, size)) {
        auto* out = static_cast<char*>(buffer);
        std::memcpy(out, value.data(), value.size());
        out[value.size()] = '\0';
    }
}

StructBuilder::StructBuilder(std::size_t structSize) : block_(structSize) {}

std::size_t StructBuilder::reserve(std::size_t size, std::size_t alignment) {
    const std::size_t offset = (block_.size() + alignment - 1) / alignment * alignment;
    block_.resize(offset + size);
    return offset;
}

std::size_t StructBuilder::append(ByteView bytes, std::size_t alignment) {
    const std::size_t offset = reserve(bytes.size(), alignment);
    if (!bytes.empty()) {
        std::memcpy(block_.data() + offset, bytes.data(), bytes.size());
    }
    return offset;
}

std::size_t StructBuilder::append(std::string_view textWithoutZero) {
    const std::size_t offset = append(asBytes(textWithoutZero));
    block_.push_back(0);
    return offset;
}

std::size_t StructBuilder::append(std::wstring_view textWithoutZero) {
    const std::size_t offset = append(asBytes(textWithoutZero), alignof(wchar_t));
    block_.resize(block_.size() + sizeof(wchar_t));
    return offset;
}

void StructBuilder::point(std::size_t pointerOffset, std::size_t targetOffset) {
    fixups_.push_back({pointerOffset, targetOffset});
}

void StructBuilder::blob(std::size_t blobOffset, ByteView bytes) {
    if (bytes.empty()) {
        return;
    }
    const std::size_t data = append(bytes);
    at<CRYPTOAPI_BLOB>(blobOffset).cbData = static_cast<DWORD>(bytes.size());
    point(blobOffset + offsetof(CRYPTOAPI_BLOB, pbData), data);
}

void StructBuilder::text(std::size_t pointerOffset, std::string_view value) {
    point(pointerOffset, append(value));
}

void StructBuilder::text(std::size_t pointerOffset, std::wstring_view value) {
    point(pointerOffset, append(value));
}

void StructBuilder::deliver(void* buffer, DWORD* size) const {
    if (!hasRoom(block_.size(), buffer, size)) {
        return;
    }
    auto* base = static_cast<std::uint8_t*>(buffer);
    std::memcpy(base, block_.data(), block_.size());
    for (const Fixup& fixup : fixups_) {
        void* const target = base + fixup.target;
        std::memcpy(base + fixup.pointer, &target, sizeof target);
    }
}

} // namespace klunortredi::csp
