#include "exports/export.hpp"
#include "stores/context.hpp"
#include "stores/context_properties.hpp"
#include "x509/compare_keys.hpp"
#include "x509/enhanced_key_usage.hpp"

namespace klunortredi::csp::exports {

PCCERT_CONTEXT CertCreateCertificateContext(DWORD dwCertEncodingType, const BYTE* pbCertEncoded, DWORD cbCertEncoded) {
    return guard<PCCERT_CONTEXT>(nullptr, [&] {
        if (pbCertEncoded == nullptr || (dwCertEncodingType & capi::X509_ASN_ENCODING) == 0) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        return addContext(std::make_shared<Certificate>(ByteView{pbCertEncoded, cbCertEncoded}), nullptr);
    });
}

PCCERT_CONTEXT CertDuplicateCertificateContext(PCCERT_CONTEXT pCertContext) {
    return guard<PCCERT_CONTEXT>(nullptr, [&] { return duplicateContext(pCertContext); });
}

BOOL CertFreeCertificateContext(PCCERT_CONTEXT pCertContext) {
    return guarded([&] {
        if (pCertContext != nullptr) {
            freeContext(pCertContext);
        }
    });
}

BOOL CertGetCertificateContextProperty(PCCERT_CONTEXT pCertContext, DWORD dwPropId, void* pvData, DWORD* pcbData) {
    return guarded([&] { giveProperty(contextTarget(pCertContext), dwPropId, pvData, pcbData); });
}

BOOL CertSetCertificateContextProperty(PCCERT_CONTEXT pCertContext, DWORD dwPropId, DWORD /*dwFlags*/,
                                       const void* pvData) {
    return guarded([&] { setProperty(contextTarget(pCertContext), dwPropId, pvData); });
}

BOOL CertGetEnhancedKeyUsage(PCCERT_CONTEXT pCertContext, DWORD dwFlags, CERT_ENHKEY_USAGE* pUsage, DWORD* pcbUsage) {
    return guarded([&] {
        const auto usage = enhancedKeyUsage(*contextTarget(pCertContext).certificate, dwFlags);
        deliverUsage(usage.value_or(std::vector<std::string>{}), pUsage, pcbUsage);
        // An empty list says with the last error whether it means any usage or none.
        setLastError(usage ? capi::ERROR_SUCCESS : capi::CRYPT_E_NOT_FOUND);
    });
}

CERT_EXTENSION* CertFindExtension(const char* pszObjId, DWORD cExtensions, CERT_EXTENSION* rgExtensions) {
    return guard<CERT_EXTENSION*>(nullptr, [&] {
        if (pszObjId == nullptr || (rgExtensions == nullptr && cExtensions != 0)) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        CERT_EXTENSION* const found = findExtension(pszObjId, cExtensions, rgExtensions);
        if (found == nullptr) {
            fail(capi::CRYPT_E_NOT_FOUND);
        }
        return found;
    });
}

BOOL CertComparePublicKeyInfo(DWORD /*dwCertEncodingType*/, CERT_PUBLIC_KEY_INFO* pPublicKey1,
                              CERT_PUBLIC_KEY_INFO* pPublicKey2) {
    return guarded([&] {
        if (pPublicKey1 == nullptr || pPublicKey2 == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        if (!samePublicKey(*pPublicKey1, *pPublicKey2)) {
            fail(capi::CRYPT_E_NO_MATCH);
        }
    });
}

} // namespace klunortredi::csp::exports
