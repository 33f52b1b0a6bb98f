#include "core/output.hpp"
#include "exports/export.hpp"
#include "objects/codec.hpp"

namespace klunortredi::csp::exports {

BOOL CryptEncodeObject(DWORD dwCertEncodingType, const char* lpszStructType, const void* pvStructInfo, BYTE* pbEncoded,
                       DWORD* pcbEncoded) {
    return guarded(
        [&] { give(encodeObject(dwCertEncodingType, lpszStructType, pvStructInfo), pbEncoded, pcbEncoded); });
}

BOOL CryptDecodeObject(DWORD dwCertEncodingType, const char* lpszStructType, const BYTE* pbEncoded, DWORD cbEncoded,
                       DWORD dwFlags, void* pvStructInfo, DWORD* pcbStructInfo) {
    return guarded([&] {
        if (pbEncoded == nullptr && cbEncoded != 0) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        decodeObject(dwCertEncodingType, lpszStructType, {pbEncoded, cbEncoded}, dwFlags, pvStructInfo, pcbStructInfo);
    });
}

} // namespace klunortredi::csp::exports
