#include "objects/time.hpp"
#include "exports/export.hpp"

namespace klunortredi::csp::exports {

void GetSystemTime(SYSTEMTIME* lpSystemTime) {
    guarded([&] {
        if (lpSystemTime == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        *lpSystemTime = systemTimeNow();
    });
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* lpSystemTime, FILETIME* lpFileTime) {
    return guarded([&] {
        if (lpSystemTime == nullptr || lpFileTime == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        *lpFileTime = fileTimeOf(*lpSystemTime);
    });
}

} // namespace klunortredi::csp::exports
