#include "core/output.hpp"
#include "exports/export.hpp"
#include "text/binary_text.hpp"
#include "text/messages.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace klunortredi::csp::exports {

namespace {

/// A malloc'd copy with room for at least `minimum` characters; LocalFree frees it.
char* allocateText(const std::string& text, DWORD minimum) {
    const std::size_t size = std::max<std::size_t>(text.size() + 1, minimum);
    auto* const copy = static_cast<char*>(std::calloc(size, 1));
    if (copy == nullptr) {
        fail(capi::ERROR_NOT_ENOUGH_MEMORY);
    }
    std::memcpy(copy, text.data(), text.size());
    return copy;
}

} // namespace

DWORD FormatMessageW(DWORD dwFlags, const void* /*lpSource*/, DWORD dwMessageId, DWORD /*dwLanguageId*/, char* lpBuffer,
                     DWORD nSize, va_list* /*Arguments*/) {
    return guard<DWORD>(0, [&] {
        if ((dwFlags & capi::FORMAT_MESSAGE_FROM_SYSTEM) == 0 || lpBuffer == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        const std::string text = errorMessage(dwMessageId);
        if ((dwFlags & capi::FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0) {
            // The parameter then is the address of the caller's pointer.
            char* const copy = allocateText(text, nSize);
            std::memcpy(lpBuffer, &copy, sizeof copy);
        } else if (nSize <= text.size()) {
            fail(capi::ERROR_INSUFFICIENT_BUFFER);
        } else {
            std::memcpy(lpBuffer, text.c_str(), text.size() + 1);
        }
        return static_cast<DWORD>(text.size());
    });
}

void* LocalFree(void* hMem) {
    std::free(hMem);
    return nullptr;
}

BOOL CryptBinaryToStringW(const BYTE* pbBinary, DWORD cbBinary, DWORD dwFlags, char* pszString, DWORD* pcchString) {
    return guarded([&] {
        if (pbBinary == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        const std::string text = binaryToText({pbBinary, cbBinary}, dwFlags);
        giveText(text, pszString, pcchString);
        if (pszString != nullptr) {
            // Unlike the size query, the written text is told without its zero.
            *pcchString = static_cast<DWORD>(text.size());
        }
    });
}

} // namespace klunortredi::csp::exports
