#pragma once

#include "capi/types.h"

#include <cstdint>

namespace orvik::plugin::wincrypt {

/// A number where the CryptoAPI takes "a text or a small number": structure types, store providers.
inline const char* structType(DWORD number) {
    return reinterpret_cast<const char*>(std::uintptr_t{number}); // NOLINT: the CryptoAPI's own way of passing it
}

} // namespace orvik::plugin::wincrypt
