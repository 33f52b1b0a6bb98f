#include "crypto/random.hpp"
#include "exports/argument.hpp"
#include "exports/export.hpp"
#include "keys/provider_context.hpp"

namespace klunortredi::csp::exports {

BOOL CryptGenRandom(unsigned long hProv, DWORD dwLen, BYTE* pbBuffer) {
    return guarded([&] {
        require(pbBuffer != nullptr || dwLen == 0);
        providerContext(hProv);
        fillRandom({pbBuffer, dwLen});
    });
}

} // namespace klunortredi::csp::exports
