#include "core/error.hpp"

namespace klunortredi::csp {

namespace {
thread_local DWORD threadLastError = capi::ERROR_SUCCESS;
} // namespace

void fail(DWORD code) {
    throw ApiError(code);
}

DWORD lastError() noexcept {
    return threadLastError;
}

void setLastError(DWORD code) noexcept {
    threadLastError = code;
}

} // namespace klunortredi::csp
