#include "exports/export.hpp"
#include "objects/sign_and_encode.hpp"
#include "stores/certificate_key.hpp"

namespace klunortredi::csp::exports {

BOOL CryptAcquireCertificatePrivateKey(PCCERT_CONTEXT pCert, DWORD dwFlags, void* /*pvReserved*/,
                                       unsigned long* phCryptProv, DWORD* pdwKeySpec, BOOL* pfCallerFreeProv) {
    return guarded([&] {
        if (phCryptProv == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        *phCryptProv = 0;
        const AcquiredKey key = acquireCertificateKey(contextTarget(pCert), dwFlags);
        *phCryptProv = key.provider;
        if (pdwKeySpec != nullptr) {
            *pdwKeySpec = key.keySpec;
        }
        if (pfCallerFreeProv != nullptr) {
            *pfCallerFreeProv = key.callerFrees ? 1 : 0;
        }
    });
}

BOOL CryptSignAndEncodeCertificate(unsigned long hCryptProv, DWORD dwKeySpec, DWORD dwCertEncodingType,
                                   const char* lpszStructType, const void* pvStructInfo,
                                   CRYPT_ALGORITHM_IDENTIFIER* pSignatureAlgorithm, const void* /*pvHashAuxInfo*/,
                                   BYTE* pbEncoded, DWORD* pcbEncoded) {
    return guarded([&] {
        signAndEncode({hCryptProv, dwKeySpec, dwCertEncodingType, lpszStructType, pvStructInfo, pSignatureAlgorithm},
                      pbEncoded, pcbEncoded);
    });
}

} // namespace klunortredi::csp::exports
