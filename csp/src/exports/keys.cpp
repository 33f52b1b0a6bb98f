#include "exports/argument.hpp"
#include "exports/export.hpp"
#include "keys/generate_request.hpp"
#include "keys/key_object.hpp"
#include "keys/public_key_structure.hpp"
#include "x509/cert_info.hpp"

namespace klunortredi::csp::exports {

namespace {

void requireX509(DWORD encodingType) {
    require((encodingType & capi::X509_ASN_ENCODING) != 0);
}

} // namespace

BOOL CryptGetUserKey(unsigned long hProv, DWORD dwKeySpec, unsigned long* phUserKey) {
    return guarded([&] {
        require(phUserKey != nullptr);
        *phUserKey = addKey(std::make_shared<KeyObject>(providerContext(hProv), dwKeySpec));
    });
}

BOOL CryptGenKey(unsigned long hProv, ALG_ID Algid, DWORD dwFlags, unsigned long* phKey) {
    return guarded([&] {
        require(phKey != nullptr);
        const auto context = providerContext(hProv);
        const auto request = generateRequest(context->provider(), Algid, dwFlags);
        context->generateKey(request);
        *phKey = addKey(std::make_shared<KeyObject>(context, request.keySpec));
    });
}

BOOL CryptDestroyKey(unsigned long hKey) {
    return guarded([&] { destroyKey(hKey); });
}

BOOL CryptGetKeyParam(unsigned long hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
    return guarded([&] {
        require(pdwDataLen != nullptr);
        const auto key = keyObject(hKey);
        requireNoFlags(dwFlags);
        key->param(dwParam, pbData, pdwDataLen);
    });
}

BOOL CryptSetKeyParam(unsigned long hKey, DWORD dwParam, const BYTE* pbData, DWORD dwFlags) {
    return guarded([&] {
        require(pbData != nullptr);
        const auto key = keyObject(hKey);
        requireNoFlags(dwFlags);
        key->setParam(dwParam, pbData);
    });
}

BOOL CryptImportPublicKeyInfo(unsigned long hCryptProv, DWORD dwCertEncodingType, CERT_PUBLIC_KEY_INFO* pInfo,
                              unsigned long* phKey) {
    return guarded([&] {
        require(pInfo != nullptr && pInfo->Algorithm.pszObjId != nullptr && phKey != nullptr);
        requireX509(dwCertEncodingType);
        auto context = providerContext(hCryptProv);
        *phKey = addKey(std::make_shared<KeyObject>(std::move(context), encodePublicKeyInfo(*pInfo)));
    });
}

BOOL CryptExportPublicKeyInfo(unsigned long hCryptProv, DWORD dwKeySpec, DWORD dwCertEncodingType,
                              CERT_PUBLIC_KEY_INFO* pInfo, DWORD* pcbInfo) {
    return guarded([&] {
        require(pcbInfo != nullptr);
        requireX509(dwCertEncodingType);
        publicKeyStructure(providerContext(hCryptProv)->publicKeyInfo(dwKeySpec)).deliver(pInfo, pcbInfo);
    });
}

} // namespace klunortredi::csp::exports
