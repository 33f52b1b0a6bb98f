// The suffixed spelling beside the plain one: it fails, so that a test sees which of the two was taken.

#include "service_double/service_double.hpp"

extern "C" __attribute__((visibility("default"))) BOOL CryptGenRandomA(unsigned long, DWORD, BYTE*);
extern "C" BOOL CryptGenRandomA(unsigned long, DWORD, BYTE*) {
    constexpr DWORD wrongSpelling = 0xA;
    return service_double::fail(wrongSpelling);
}
