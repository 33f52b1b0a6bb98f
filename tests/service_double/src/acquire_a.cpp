// A service with the narrow CryptAcquireContext only: nothing that the plug-in can call.

#include "capi/types.h"

extern "C" __attribute__((visibility("default"))) BOOL CryptAcquireContextA(unsigned long*, const char*, const char*,
                                                                            DWORD, DWORD);
extern "C" BOOL CryptAcquireContextA(unsigned long*, const char*, const char*, DWORD, DWORD) {
    return 1;
}
