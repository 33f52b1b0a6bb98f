#include "service_double/flatten.hpp"

#include "service_double/service_double.hpp"

#include "capi/constants.hpp"

#include <cstdint>
#include <cstring>

namespace service_double {

std::size_t Flat::append(const std::string& octets) {
    const std::size_t offset = octets_.size();
    octets_ += octets;
    return offset;
}

std::size_t Flat::appendStructure(std::size_t size) {
    octets_.resize((octets_.size() + alignof(void*) - 1) / alignof(void*) * alignof(void*));
    return append(std::string(size, '\0'));
}

void Flat::blob(std::size_t offset, const std::string& octets) {
    set(offset + offsetof(CRYPTOAPI_BLOB, cbData), static_cast<DWORD>(octets.size()));
    if (!octets.empty()) {
        point(offset + offsetof(CRYPTOAPI_BLOB, pbData), append(octets));
    }
}

void Flat::text(std::size_t offset, const std::string& text) {
    point(offset, append(text + '\0'));
}

void Flat::text(std::size_t offset, const std::wstring& text) {
    const std::size_t target = appendStructure(0);
    append(std::string(reinterpret_cast<const char*>(text.c_str()), (text.size() + 1) * sizeof(wchar_t)));
    point(offset, target);
}

std::string Flat::placedAt(const void* address) const {
    std::string result = octets_;
    for (const auto& [offset, target] : pointers_) {
        const auto pointer = reinterpret_cast<std::uintptr_t>(address) + target;
        std::memcpy(result.data() + offset, &pointer, sizeof pointer);
    }
    return result;
}

BOOL giveFlat(const Flat& flat, void* buffer, DWORD* size) {
    return give(flat.placedAt(buffer), buffer, size);
}

BOOL give(const std::string& value, void* buffer, DWORD* size) {
    const DWORD room = *size;
    *size = static_cast<DWORD>(value.size());
    if (buffer == nullptr) {
        return 1;
    }
    if (room < value.size()) {
        return fail(capi::ERROR_MORE_DATA);
    }
    std::memcpy(buffer, value.data(), value.size());
    return 1;
}

} // namespace service_double
