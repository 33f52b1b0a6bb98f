// An entry point to lay in front of the embedded service: one that has never heard of counter-signatures.

#include "capi/constants.hpp"
#include "capi/types.h"

#include <dlfcn.h>

extern "C" __attribute__((visibility("default"))) BOOL CryptMsgGetParam(void* message, DWORD type, DWORD index,
                                                                        void* data, DWORD* size) {
    using Function = BOOL(void*, DWORD, DWORD, void*, DWORD*);
    static auto* const service = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "CryptMsgGetParam"));
    constexpr DWORD unassigned = 0x7FFFFFFF; // the service answers it as it answers whatever it does not know
    return service(message, type == capi::CMSG_COUNTER_SIGNATURES_PARAM ? unassigned : type, index, data, size);
}
