// Entry points that go wrong, to lay in front of a service: the suite must notice each of them.

#include "capi/types.h"

#include <cstdlib>

#define DEVIATING extern "C" __attribute__((visibility("default")))

/// Accepts every signature.
DEVIATING BOOL CryptVerifySignature(unsigned long /*hash*/, const BYTE* /*signature*/, DWORD /*size*/,
                                    unsigned long /*key*/, const char* /*description*/, DWORD /*flags*/) {
    return 1;
}

/// Cannot free nothing.
DEVIATING void* LocalFree(void* memory) {
    if (memory == nullptr) {
        std::abort();
    }
    std::free(memory);
    return nullptr;
}
