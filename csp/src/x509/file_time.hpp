#pragma once

/// FILETIME: 100-nanosecond intervals since 1601-01-01 UTC.

#include "capi/types.h"

#include <cstdint>
#include <ctime>

namespace klunortredi::csp {

inline constexpr std::int64_t fileTimeUnitsPerSecond = 10'000'000;
inline constexpr std::int64_t fileTimeEpochBeforeUnix = 11'644'473'600; ///< seconds from 1601 to 1970

/// A moment before 1601, which a FILETIME cannot tell, becomes its first one.
inline FILETIME toFileTime(std::time_t time) noexcept {
    const std::int64_t seconds = time < -fileTimeEpochBeforeUnix ? 0 : time + fileTimeEpochBeforeUnix;
    const auto units = static_cast<std::uint64_t>(seconds * fileTimeUnitsPerSecond);
    return {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32U)};
}

/// Whole seconds; the fraction is dropped.
inline std::time_t fromFileTime(const FILETIME& time) noexcept {
    const std::uint64_t units = (static_cast<std::uint64_t>(time.dwHighDateTime) << 32U) | time.dwLowDateTime;
    return static_cast<std::time_t>(units / static_cast<std::uint64_t>(fileTimeUnitsPerSecond)) -
           fileTimeEpochBeforeUnix;
}

} // namespace klunortredi::csp
