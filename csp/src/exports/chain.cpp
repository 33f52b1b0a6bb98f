#include "chains/chain_context.hpp"
#include "chains/chain_policy.hpp"
#include "exports/chain_request.hpp"
#include "exports/export.hpp"
#include "x509/file_time.hpp"

#include <ctime>

namespace klunortredi::csp::exports {

BOOL CertGetCertificateChain(void* hChainEngine, PCCERT_CONTEXT pCertContext, FILETIME* pTime, void* hAdditionalStore,
                             CERT_CHAIN_PARA* pChainPara, DWORD dwFlags, void* /*pvReserved*/,
                             PCCERT_CHAIN_CONTEXT* ppChainContext) {
    return guarded([&] {
        if (pChainPara == nullptr || pChainPara->cbSize < sizeof(CERT_CHAIN_PARA) || ppChainContext == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        *ppChainContext = nullptr;
        ChainRequest request = chainRequest(*pChainPara, dwFlags);
        request.certificate = contextTarget(pCertContext).certificate;
        request.additional = hAdditionalStore == nullptr ? nullptr : openStore(hAdditionalStore);
        request.anchors = anchorsOf(hChainEngine);
        request.time = pTime == nullptr ? std::time(nullptr) : fromFileTime(*pTime);
        *ppChainContext = addChain(buildChain(request), pCertContext);
    });
}

BOOL CertVerifyCertificateChainPolicy(const char* pszPolicyOID, PCCERT_CHAIN_CONTEXT pChainContext,
                                      CERT_CHAIN_POLICY_PARA* pPolicyPara, CERT_CHAIN_POLICY_STATUS* pPolicyStatus) {
    return guarded([&] {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): a number in a pointer
        if (reinterpret_cast<unsigned long>(pszPolicyOID) != capi::CERT_CHAIN_POLICY_BASE) {
            fail(capi::ERROR_FILE_NOT_FOUND);
        }
        if (pPolicyStatus == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        checkChain(pChainContext);
        judgeBasePolicy(*pChainContext, pPolicyPara == nullptr ? 0 : pPolicyPara->dwFlags, *pPolicyStatus);
    });
}

void CertFreeCertificateChain(PCCERT_CHAIN_CONTEXT pChainContext) {
    guarded([&] {
        if (pChainContext != nullptr) {
            freeChain(pChainContext);
        }
    });
}

} // namespace klunortredi::csp::exports
