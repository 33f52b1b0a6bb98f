#include "exports/open_store.hpp"

#include "messages/message.hpp"
#include "stores/memory_store.hpp"
#include "stores/system_store.hpp"
#include "text/unicode.hpp"

#include <strings.h>

#include <array>

namespace klunortredi::csp {

namespace {

bool readOnly(DWORD flags) {
    return (flags & capi::CERT_STORE_READONLY_FLAG) != 0;
}

void* openMemory(DWORD flags, const void* /*parameter*/) {
    return addStore(std::make_shared<MemoryStore>(), readOnly(flags));
}

void* openMessage(DWORD flags, const void* parameter) {
    const auto message = certificateCarrier(const_cast<void*>(parameter)); // NOLINT: a handle, never written through
    return addStore(std::make_shared<MemoryStore>(message->certificates(), message->crls()), readOnly(flags));
}

void* openSystemNarrow(DWORD flags, const void* parameter) {
    return openSystemStore(static_cast<const char*>(parameter), flags);
}

void* openSystemWide(DWORD flags, const void* parameter) {
    const auto* const wide = static_cast<const wchar_t*>(parameter);
    const auto name = wide == nullptr ? std::nullopt : utf8FromWide(wide);
    return openSystemStore(name ? name->c_str() : nullptr, flags);
}

struct Provider {
    unsigned long number;
    const char* name; ///< null: by number only
    void* (*open)(DWORD flags, const void* parameter);
};

constexpr std::array<Provider, 4> providers{{
    {capi::CERT_STORE_PROV_MSG, "Message", openMessage},
    {capi::CERT_STORE_PROV_MEMORY, "Memory", openMemory},
    {capi::CERT_STORE_PROV_SYSTEM_A, nullptr, openSystemNarrow},
    {capi::CERT_STORE_PROV_SYSTEM_W, "System", openSystemWide},
}};

/// A provider is a small number in a pointer, or else the address of a name.
bool names(const Provider& row, const char* provider) {
    constexpr unsigned long largestNumber = 0xFFFF;
    const auto number =
        reinterpret_cast<unsigned long>(provider); // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast)
    if (number <= largestNumber) {
        return number == row.number;
    }
    return row.name != nullptr && strcasecmp(row.name, provider) == 0;
}

} // namespace

void* openStoreOf(const char* provider, DWORD flags, const void* parameter) {
    for (const Provider& row : providers) {
        if (names(row, provider)) {
            return row.open(flags, parameter);
        }
    }
    fail(capi::ERROR_FILE_NOT_FOUND);
}

void* openSystemStore(const char* name, DWORD flags) {
    if (name == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    auto store = SystemStore::open(name);
    if ((flags & capi::CERT_STORE_OPEN_EXISTING_FLAG) != 0 && !store->exists()) {
        fail(capi::ERROR_FILE_NOT_FOUND);
    }
    return addStore(std::move(store), readOnly(flags));
}

} // namespace klunortredi::csp
