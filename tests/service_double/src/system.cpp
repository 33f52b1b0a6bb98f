// Last error, texts, time, memory.

#include "model.hpp"

#include "capi/constants.hpp"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <new>

namespace service_double {

namespace {

thread_local DWORD lastError;

} // namespace

Failed fail(DWORD code) {
    lastError = code;
    return {};
}

DWORD Defaults::GetLastError() {
    return lastError;
}

void Defaults::SetLastError(DWORD code) {
    lastError = code;
}

DWORD Defaults::FormatMessageW(DWORD flags, const void* /*source*/, DWORD code, DWORD /*language*/, char* buffer,
                               DWORD size, va_list* /*arguments*/) {
    const auto& messages = service().messages;
    const auto found = messages.find(code);
    if (found == messages.end()) {
        return fail(capi::ERROR_FILE_NOT_FOUND);
    }
    const auto& text = found->second;
    if ((flags & capi::FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0) {
        const Lock lock(stateMutex());
        auto* block = static_cast<char*>(::operator new(text.size() + 1));
        state().memory.insert(block);
        std::memcpy(block, text.c_str(), text.size() + 1);
        std::memcpy(buffer, &block, sizeof block); // the buffer is a place for a pointer then
        return static_cast<DWORD>(text.size());
    }
    if (text.size() >= size) {
        return fail(capi::ERROR_MORE_DATA);
    }
    std::copy(text.c_str(), text.c_str() + text.size() + 1, buffer);
    return static_cast<DWORD>(text.size());
}

void* Defaults::LocalFree(void* block) {
    const Lock lock(stateMutex());
    if (block == nullptr) {
        return nullptr;
    }
    if (state().memory.erase(block) == 0) {
        misuse("LocalFree: memory that is not held", capi::ERROR_INVALID_HANDLE);
        return block;
    }
    ::operator delete(block);
    return nullptr;
}

void Defaults::GetSystemTime(SYSTEMTIME* time) {
    *time = service().now;
}

BOOL Defaults::SystemTimeToFileTime(const SYSTEMTIME* time, FILETIME* result) {
    constexpr int firstYear = 1900;
    constexpr unsigned long epoch = 11644473600UL;
    constexpr unsigned long ticks = 10000000UL;
    constexpr unsigned long ticksPerMillisecond = 10000UL;
    std::tm parts{};
    parts.tm_year = time->wYear - firstYear;
    parts.tm_mon = time->wMonth - 1;
    parts.tm_mday = time->wDay;
    parts.tm_hour = time->wHour;
    parts.tm_min = time->wMinute;
    parts.tm_sec = time->wSecond;
    const auto seconds = static_cast<unsigned long>(timegm(&parts)) + epoch;
    const unsigned long value = seconds * ticks + time->wMilliseconds * ticksPerMillisecond;
    constexpr unsigned halfBits = 32;
    result->dwLowDateTime = static_cast<DWORD>(value);
    result->dwHighDateTime = static_cast<DWORD>(value >> halfBits);
    return 1;
}

} // namespace service_double
