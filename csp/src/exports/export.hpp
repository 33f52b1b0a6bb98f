#pragma once

/// Declares the entry points of the one list, so that a definition with another signature does not compile and the
/// exported symbol is the list's. Define them in this namespace under the member's name:
///
///     BOOL CryptGenRandom(unsigned long hProv, DWORD dwLen, BYTE* pbBuffer) {
///         return guarded([&] { ... });
///     }

#include "capi/entry_points.h"
#include "core/error.hpp"

namespace klunortredi::csp::exports {

// NOLINTBEGIN(bugprone-macro-parentheses)
#define KLUNORTREDI_DECLARE_EXPORT(reach, qualifier, result, member, pointer, symbol, parameters, arguments)           \
    extern "C" __attribute__((visibility("default"))) result member parameters __asm__(symbol);
// NOLINTEND(bugprone-macro-parentheses)
KLUNORTREDI_ENTRY_POINTS(KLUNORTREDI_DECLARE_EXPORT)
#undef KLUNORTREDI_DECLARE_EXPORT

} // namespace klunortredi::csp::exports
