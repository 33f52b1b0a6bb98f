/* The one list of the CryptoAPI entry points that a service offers and the plug-in calls.
 *
 * KLUNORTREDI_ENTRY_POINTS(X) expands X once per entry point with
 *
 *     X(reach, qualifier, result, member, pointer, symbol, parameters, arguments)
 *
 *     reach       FORWARDED: a free function of the same name and signature stands in front of the loader member;
 *                 LOADER:    only the loader has it (callers use a helper with its own behaviour)
 *     qualifier   CONST or MUTABLE: whether the loader's member function is const
 *     result      result type
 *     member      name of the loader's member function
 *     pointer     stem of the cached pointer's name: `<pointer>Function_`
 *     symbol      name looked up first in the service's libraries, and the name under which the embedded service
 *                 exports it. Six W-named members: two are looked up with their W, four without.
 *     parameters  parenthesised parameter list
 *     arguments   parenthesised argument list for passing on
 *
 * A row stands on one line, "X(" first and the symbol quoted: the build reads the embedded service's export map from
 * it.
 */
#ifndef CAPI_ENTRY_POINTS_H
#define CAPI_ENTRY_POINTS_H

#include "capi/types.h"

/* clang-format off */
#define KLUNORTREDI_ENTRY_POINTS(X) \
    X(FORWARDED, CONST, BOOL, CryptAcquireContextW, cryptAcquireContextW, "CryptAcquireContextW", (unsigned long* phProv, const wchar_t* szContainer, const wchar_t* szProvider, DWORD dwProvType, DWORD dwFlags), (phProv, szContainer, szProvider, dwProvType, dwFlags)) \
    X(FORWARDED, CONST, BOOL, CryptReleaseContext, cryptReleaseContext, "CryptReleaseContext", (unsigned long hProv, DWORD dwFlags), (hProv, dwFlags)) \
    X(FORWARDED, CONST, BOOL, CryptContextAddRef, cryptContextAddRef, "CryptContextAddRef", (unsigned long hProv, DWORD* pdwReserved, DWORD dwFlags), (hProv, pdwReserved, dwFlags)) \
    X(LOADER, CONST, BOOL, CryptEnumProviders, cryptEnumProviders, "CryptEnumProviders", (DWORD dwIndex, DWORD* pdwReserved, DWORD dwFlags, DWORD* pdwProvType, char* szProvName, DWORD* pcbProvName), (dwIndex, pdwReserved, dwFlags, pdwProvType, szProvName, pcbProvName)) \
    X(FORWARDED, CONST, BOOL, CryptGetProvParam, cryptGetProvParam, "CryptGetProvParam", (unsigned long hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags), (hProv, dwParam, pbData, pdwDataLen, dwFlags)) \
    X(FORWARDED, CONST, BOOL, CryptSetProvParam, cryptSetProvParam, "CryptSetProvParam", (unsigned long hProv, DWORD dwParam, const BYTE* pbData, DWORD dwFlags), (hProv, dwParam, pbData, dwFlags)) \
    X(FORWARDED, CONST, BOOL, CryptGetUserKey, cryptGetUserKey, "CryptGetUserKey", (unsigned long hProv, DWORD dwKeySpec, unsigned long* phUserKey), (hProv, dwKeySpec, phUserKey)) \
    X(FORWARDED, CONST, BOOL, CryptGenKey, cryptGenKey, "CryptGenKey", (unsigned long hProv, ALG_ID Algid, DWORD dwFlags, unsigned long* phKey), (hProv, Algid, dwFlags, phKey)) \
    X(FORWARDED, CONST, BOOL, CryptDestroyKey, cryptDestroyKey, "CryptDestroyKey", (unsigned long hKey), (hKey)) \
    X(FORWARDED, CONST, BOOL, CryptGetKeyParam, cryptGetKeyParam, "CryptGetKeyParam", (unsigned long hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags), (hKey, dwParam, pbData, pdwDataLen, dwFlags)) \
    X(FORWARDED, CONST, BOOL, CryptSetKeyParam, cryptSetKeyParam, "CryptSetKeyParam", (unsigned long hKey, DWORD dwParam, const BYTE* pbData, DWORD dwFlags), (hKey, dwParam, pbData, dwFlags)) \
    X(FORWARDED, CONST, BOOL, CryptImportPublicKeyInfo, cryptImportPublicKeyInfo, "CryptImportPublicKeyInfo", (unsigned long hCryptProv, DWORD dwCertEncodingType, CERT_PUBLIC_KEY_INFO* pInfo, unsigned long* phKey), (hCryptProv, dwCertEncodingType, pInfo, phKey)) \
    X(FORWARDED, CONST, BOOL, CryptExportPublicKeyInfo, cryptExportPublicKeyInfo, "CryptExportPublicKeyInfo", (unsigned long hCryptProv, DWORD dwKeySpec, DWORD dwCertEncodingType, CERT_PUBLIC_KEY_INFO* pInfo, DWORD* pcbInfo), (hCryptProv, dwKeySpec, dwCertEncodingType, pInfo, pcbInfo)) \
    X(FORWARDED, CONST, BOOL, CryptCreateHash, cryptCreateHash, "CryptCreateHash", (unsigned long hProv, ALG_ID Algid, unsigned long hKey, DWORD dwFlags, unsigned long* phHash), (hProv, Algid, hKey, dwFlags, phHash)) \
    X(FORWARDED, CONST, BOOL, CryptHashData, cryptHashData, "CryptHashData", (unsigned long hHash, const BYTE* pbData, DWORD dwDataLen, DWORD dwFlags), (hHash, pbData, dwDataLen, dwFlags)) \
    X(FORWARDED, CONST, BOOL, CryptGetHashParam, cryptGetHashParam, "CryptGetHashParam", (unsigned long hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags), (hHash, dwParam, pbData, pdwDataLen, dwFlags)) \
    X(FORWARDED, CONST, BOOL, CryptDestroyHash, cryptDestroyHash, "CryptDestroyHash", (unsigned long hHash), (hHash)) \
    X(FORWARDED, CONST, BOOL, CryptSignHashW, cryptSignHashW, "CryptSignHash", (unsigned long hHash, DWORD dwKeySpec, const char* szDescription, DWORD dwFlags, BYTE* pbSignature, DWORD* pdwSigLen), (hHash, dwKeySpec, szDescription, dwFlags, pbSignature, pdwSigLen)) \
    X(FORWARDED, CONST, BOOL, CryptVerifySignatureW, cryptVerifySignatureW, "CryptVerifySignature", (unsigned long hHash, const BYTE* pbSignature, DWORD dwSigLen, unsigned long hPubKey, const char* szDescription, DWORD dwFlags), (hHash, pbSignature, dwSigLen, hPubKey, szDescription, dwFlags)) \
    X(FORWARDED, MUTABLE, BOOL, CryptHashCertificate, cryptHashCertificate, "CryptHashCertificate", (unsigned long hCryptProv, ALG_ID Algid, DWORD dwFlags, const BYTE* pbEncoded, DWORD cbEncoded, BYTE* pbComputedHash, DWORD* pcbComputedHash), (hCryptProv, Algid, dwFlags, pbEncoded, cbEncoded, pbComputedHash, pcbComputedHash)) \
    X(FORWARDED, CONST, BOOL, CryptSignAndEncodeCertificate, cryptSignAndEncodeCertificate, "CryptSignAndEncodeCertificate", (unsigned long hCryptProv, DWORD dwKeySpec, DWORD dwCertEncodingType, const char* lpszStructType, const void* pvStructInfo, CRYPT_ALGORITHM_IDENTIFIER* pSignatureAlgorithm, const void* pvHashAuxInfo, BYTE* pbEncoded, DWORD* pcbEncoded), (hCryptProv, dwKeySpec, dwCertEncodingType, lpszStructType, pvStructInfo, pSignatureAlgorithm, pvHashAuxInfo, pbEncoded, pcbEncoded)) \
    X(FORWARDED, CONST, BOOL, CryptGenRandom, cryptGenRandom, "CryptGenRandom", (unsigned long hProv, DWORD dwLen, BYTE* pbBuffer), (hProv, dwLen, pbBuffer)) \
    X(FORWARDED, CONST, BOOL, CryptEncodeObject, cryptEncodeObject, "CryptEncodeObject", (DWORD dwCertEncodingType, const char* lpszStructType, const void* pvStructInfo, BYTE* pbEncoded, DWORD* pcbEncoded), (dwCertEncodingType, lpszStructType, pvStructInfo, pbEncoded, pcbEncoded)) \
    X(FORWARDED, CONST, BOOL, CryptDecodeObject, cryptDecodeObject, "CryptDecodeObject", (DWORD dwCertEncodingType, const char* lpszStructType, const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags, void* pvStructInfo, DWORD* pcbStructInfo), (dwCertEncodingType, lpszStructType, pbEncoded, cbEncoded, dwFlags, pvStructInfo, pcbStructInfo)) \
    X(FORWARDED, CONST, void*, CryptMsgOpenToEncode, cryptMsgOpenToEncode, "CryptMsgOpenToEncode", (DWORD dwMsgEncodingType, DWORD dwFlags, DWORD dwMsgType, const void* pvMsgEncodeInfo, char* pszInnerContentObjID, CMSG_STREAM_INFO* pStreamInfo), (dwMsgEncodingType, dwFlags, dwMsgType, pvMsgEncodeInfo, pszInnerContentObjID, pStreamInfo)) \
    X(FORWARDED, CONST, void*, CryptMsgOpenToDecode, cryptMsgOpenToDecode, "CryptMsgOpenToDecode", (DWORD dwMsgEncodingType, DWORD dwFlags, DWORD dwMsgType, unsigned long hCryptProv, CERT_INFO* pRecipientInfo, CMSG_STREAM_INFO* pStreamInfo), (dwMsgEncodingType, dwFlags, dwMsgType, hCryptProv, pRecipientInfo, pStreamInfo)) \
    X(FORWARDED, CONST, BOOL, CryptMsgUpdate, cryptMsgUpdate, "CryptMsgUpdate", (void* hCryptMsg, const BYTE* pbData, DWORD cbData, BOOL fFinal), (hCryptMsg, pbData, cbData, fFinal)) \
    X(FORWARDED, CONST, BOOL, CryptMsgGetParam, cryptMsgGetParam, "CryptMsgGetParam", (void* hCryptMsg, DWORD dwParamType, DWORD dwIndex, void* pvData, DWORD* pcbData), (hCryptMsg, dwParamType, dwIndex, pvData, pcbData)) \
    X(FORWARDED, CONST, BOOL, CryptMsgControl, cryptMsgControl, "CryptMsgControl", (void* hCryptMsg, DWORD dwFlags, DWORD dwCtrlType, const void* pvCtrlPara), (hCryptMsg, dwFlags, dwCtrlType, pvCtrlPara)) \
    X(FORWARDED, CONST, BOOL, CryptMsgClose, cryptMsgClose, "CryptMsgClose", (void* hCryptMsg), (hCryptMsg)) \
    X(FORWARDED, CONST, void*, CertOpenStore, certOpenStore, "CertOpenStore", (const char* lpszStoreProvider, DWORD dwEncodingType, unsigned long hCryptProv, DWORD dwFlags, const void* pvPara), (lpszStoreProvider, dwEncodingType, hCryptProv, dwFlags, pvPara)) \
    X(FORWARDED, CONST, void*, CertOpenSystemStore, certOpenSystemStore, "CertOpenSystemStore", (unsigned long hProv, const char* szSubsystemProtocol), (hProv, szSubsystemProtocol)) \
    X(FORWARDED, CONST, BOOL, CertCloseStore, certCloseStore, "CertCloseStore", (void* hCertStore, DWORD dwFlags), (hCertStore, dwFlags)) \
    X(FORWARDED, CONST, PCCERT_CONTEXT, CertEnumCertificatesInStore, certEnumCertificatesInStore, "CertEnumCertificatesInStore", (void* hCertStore, PCCERT_CONTEXT pPrevCertContext), (hCertStore, pPrevCertContext)) \
    X(FORWARDED, CONST, PCCERT_CONTEXT, CertFindCertificateInStore, certFindCertificateInStore, "CertFindCertificateInStore", (void* hCertStore, DWORD dwCertEncodingType, DWORD dwFindFlags, DWORD dwFindType, const void* pvFindPara, PCCERT_CONTEXT pPrevCertContext), (hCertStore, dwCertEncodingType, dwFindFlags, dwFindType, pvFindPara, pPrevCertContext)) \
    X(FORWARDED, CONST, PCCERT_CONTEXT, CertGetSubjectCertificateFromStore, certGetSubjectCertificateFromStore, "CertGetSubjectCertificateFromStore", (void* hCertStore, DWORD dwCertEncodingType, CERT_INFO* pCertId), (hCertStore, dwCertEncodingType, pCertId)) \
    X(FORWARDED, CONST, BOOL, CertAddCertificateContextToStore, certAddCertificateContextToStore, "CertAddCertificateContextToStore", (void* hCertStore, PCCERT_CONTEXT pCertContext, DWORD dwAddDisposition, PCCERT_CONTEXT* ppStoreContext), (hCertStore, pCertContext, dwAddDisposition, ppStoreContext)) \
    X(FORWARDED, CONST, BOOL, CertDeleteCertificateFromStore, certDeleteCertificateFromStore, "CertDeleteCertificateFromStore", (PCCERT_CONTEXT pCertContext), (pCertContext)) \
    X(FORWARDED, CONST, PCCERT_CONTEXT, CertCreateCertificateContext, certCreateCertificateContext, "CertCreateCertificateContext", (DWORD dwCertEncodingType, const BYTE* pbCertEncoded, DWORD cbCertEncoded), (dwCertEncodingType, pbCertEncoded, cbCertEncoded)) \
    X(FORWARDED, CONST, PCCERT_CONTEXT, CertDuplicateCertificateContext, certDuplicateCertificateContext, "CertDuplicateCertificateContext", (PCCERT_CONTEXT pCertContext), (pCertContext)) \
    X(FORWARDED, CONST, BOOL, CertFreeCertificateContext, certFreeCertificateContext, "CertFreeCertificateContext", (PCCERT_CONTEXT pCertContext), (pCertContext)) \
    X(FORWARDED, CONST, BOOL, CertGetCertificateContextProperty, certGetCertificateContextProperty, "CertGetCertificateContextProperty", (PCCERT_CONTEXT pCertContext, DWORD dwPropId, void* pvData, DWORD* pcbData), (pCertContext, dwPropId, pvData, pcbData)) \
    X(FORWARDED, CONST, BOOL, CertSetCertificateContextProperty, certSetCertificateContextProperty, "CertSetCertificateContextProperty", (PCCERT_CONTEXT pCertContext, DWORD dwPropId, DWORD dwFlags, const void* pvData), (pCertContext, dwPropId, dwFlags, pvData)) \
    X(FORWARDED, CONST, BOOL, CertGetEnhancedKeyUsage, certGetEnhancedKeyUsage, "CertGetEnhancedKeyUsage", (PCCERT_CONTEXT pCertContext, DWORD dwFlags, CERT_ENHKEY_USAGE* pUsage, DWORD* pcbUsage), (pCertContext, dwFlags, pUsage, pcbUsage)) \
    X(FORWARDED, CONST, CERT_EXTENSION*, CertFindExtension, certFindExtension, "CertFindExtension", (const char* pszObjId, DWORD cExtensions, CERT_EXTENSION* rgExtensions), (pszObjId, cExtensions, rgExtensions)) \
    X(FORWARDED, MUTABLE, BOOL, CertComparePublicKeyInfo, certComparePublicKeyInfo, "CertComparePublicKeyInfo", (DWORD dwCertEncodingType, CERT_PUBLIC_KEY_INFO* pPublicKey1, CERT_PUBLIC_KEY_INFO* pPublicKey2), (dwCertEncodingType, pPublicKey1, pPublicKey2)) \
    X(FORWARDED, CONST, DWORD, CertNameToStrW, certNameToStrW, "CertNameToStrW", (DWORD dwCertEncodingType, CERT_NAME_BLOB* pName, DWORD dwStrType, wchar_t* psz, DWORD csz), (dwCertEncodingType, pName, dwStrType, psz, csz)) \
    X(FORWARDED, CONST, BOOL, CertGetCertificateChain, certGetCertificateChain, "CertGetCertificateChain", (void* hChainEngine, PCCERT_CONTEXT pCertContext, FILETIME* pTime, void* hAdditionalStore, CERT_CHAIN_PARA* pChainPara, DWORD dwFlags, void* pvReserved, PCCERT_CHAIN_CONTEXT* ppChainContext), (hChainEngine, pCertContext, pTime, hAdditionalStore, pChainPara, dwFlags, pvReserved, ppChainContext)) \
    X(FORWARDED, CONST, BOOL, CertVerifyCertificateChainPolicy, certVerifyCertificateChainPolicy, "CertVerifyCertificateChainPolicy", (const char* pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext, CERT_CHAIN_POLICY_PARA* pPolicyPara, CERT_CHAIN_POLICY_STATUS* pPolicyStatus), (pszPolicyOID, pChainContext, pPolicyPara, pPolicyStatus)) \
    X(FORWARDED, CONST, void, CertFreeCertificateChain, certFreeCertificateChain, "CertFreeCertificateChain", (PCCERT_CHAIN_CONTEXT pChainContext), (pChainContext)) \
    X(FORWARDED, CONST, BOOL, CryptAcquireCertificatePrivateKey, cryptAcquireCertificatePrivateKey, "CryptAcquireCertificatePrivateKey", (PCCERT_CONTEXT pCert, DWORD dwFlags, void* pvReserved, unsigned long* phCryptProv, DWORD* pdwKeySpec, BOOL* pfCallerFreeProv), (pCert, dwFlags, pvReserved, phCryptProv, pdwKeySpec, pfCallerFreeProv)) \
    X(FORWARDED, CONST, PCCRYPT_OID_INFO, CryptFindOIDInfo, cryptFindOIDInfo, "CryptFindOIDInfo", (DWORD dwKeyType, const void* pvKey, DWORD dwGroupId), (dwKeyType, pvKey, dwGroupId)) \
    X(FORWARDED, CONST, BOOL, CryptBinaryToStringW, cryptBinaryToStringW, "CryptBinaryToString", (const BYTE* pbBinary, DWORD cbBinary, DWORD dwFlags, char* pszString, DWORD* pcchString), (pbBinary, cbBinary, dwFlags, pszString, pcchString)) \
    X(FORWARDED, MUTABLE, DWORD, FormatMessageW, formatMessageW, "FormatMessage", (DWORD dwFlags, const void* lpSource, DWORD dwMessageId, DWORD dwLanguageId, char* lpBuffer, DWORD nSize, va_list* Arguments), (dwFlags, lpSource, dwMessageId, dwLanguageId, lpBuffer, nSize, Arguments)) \
    X(FORWARDED, CONST, void*, LocalFree, localFree, "LocalFree", (void* hMem), (hMem)) \
    X(LOADER, CONST, DWORD, GetLastError, getLastError, "GetLastError", (void), ()) \
    X(LOADER, CONST, void, SetLastError, setLastError, "SetLastError", (DWORD dwErrCode), (dwErrCode)) \
    X(FORWARDED, CONST, void, GetSystemTime, getSystemTime, "GetSystemTime", (SYSTEMTIME* lpSystemTime), (lpSystemTime)) \
    X(FORWARDED, CONST, BOOL, SystemTimeToFileTime, systemTimeToFileTime, "SystemTimeToFileTime", (const SYSTEMTIME* lpSystemTime, FILETIME* lpFileTime), (lpSystemTime, lpFileTime))
/* clang-format on */

#define KLUNORTREDI_COUNT_ENTRY_POINT(...) +1
#define KLUNORTREDI_ENTRY_POINT_COUNT (0 KLUNORTREDI_ENTRY_POINTS(KLUNORTREDI_COUNT_ENTRY_POINT))

#endif
