#pragma once

/// Checks of arguments that many entry points share.

#include "core/bytes.hpp"
#include "core/error.hpp"

namespace klunortredi::csp::exports {

/// Throws ApiError(ERROR_INVALID_PARAMETER) unless `condition` holds.
inline void require(bool condition) {
    if (!condition) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
}

/// Throws ApiError(NTE_BAD_FLAGS): for entry points that take no flags.
inline void requireNoFlags(DWORD flags) {
    if (flags != 0) {
        fail(capi::NTE_BAD_FLAGS);
    }
}

/// The caller's octets; null stands for none only where the length is 0.
inline ByteView input(const BYTE* data, DWORD size) {
    require(data != nullptr || size == 0);
    return {data, size};
}

} // namespace klunortredi::csp::exports
