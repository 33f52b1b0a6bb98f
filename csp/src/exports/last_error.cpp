#include "exports/export.hpp"

namespace klunortredi::csp::exports {

DWORD GetLastError() {
    return lastError();
}

void SetLastError(DWORD dwErrCode) {
    setLastError(dwErrCode);
}

} // namespace klunortredi::csp::exports
