#include "chains/chain_context.hpp"
#include "chains/chain_policy.hpp"
#include "exports/export.hpp"
#include "x509/file_time.hpp"

#include <ctime>

namespace klunortredi::csp::exports {

namespace {

RevocationCheck revocationCheck(DWORD flags) {
    if ((flags & capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN) != 0) {
        return RevocationCheck::Chain;
    }
    if ((flags & capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT) != 0) {
        return RevocationCheck::ChainExcludeRoot;
    }
    return (flags & capi::CERT_CHAIN_REVOCATION_CHECK_END_CERT) != 0 ? RevocationCheck::EndCertificate
                                                                     : RevocationCheck::None;
}

RequestedUsage requestedUsage(const CERT_USAGE_MATCH& match) {
    RequestedUsage requested;
    requested.any = match.dwType == capi::USAGE_MATCH_TYPE_OR;
    for (DWORD i = 0; i < match.Usage.cUsageIdentifier; ++i) {
        if (match.Usage.rgpszUsageIdentifier == nullptr || match.Usage.rgpszUsageIdentifier[i] == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        requested.oids.emplace_back(match.Usage.rgpszUsageIdentifier[i]);
    }
    return requested;
}

/// The anchors that a chain engine stands for: those of store "root" (null) for the engines of the current user (null)
/// and of the machine (1). No entry point makes an engine, so a store's handle in its place makes that store's
/// certificates the only anchors: an extension of this service.
std::shared_ptr<OpenStore> anchorsOf(void* engine) {
    const auto number = reinterpret_cast<unsigned long>(engine); // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast)
    try {
        return number <= 1 ? nullptr : openStore(engine);
    } catch (const ApiError&) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
}

} // namespace

BOOL CertGetCertificateChain(void* hChainEngine, PCCERT_CONTEXT pCertContext, FILETIME* pTime, void* hAdditionalStore,
                             CERT_CHAIN_PARA* pChainPara, DWORD dwFlags, void* /*pvReserved*/,
                             PCCERT_CHAIN_CONTEXT* ppChainContext) {
    return guarded([&] {
        if (pChainPara == nullptr || pChainPara->cbSize < sizeof(CERT_CHAIN_PARA) || ppChainContext == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        *ppChainContext = nullptr;
        ChainRequest request;
        request.certificate = contextTarget(pCertContext).certificate;
        request.additional = hAdditionalStore == nullptr ? nullptr : openStore(hAdditionalStore);
        request.anchors = anchorsOf(hChainEngine);
        request.time = pTime == nullptr ? std::time(nullptr) : fromFileTime(*pTime);
        request.revocation = revocationCheck(dwFlags);
        request.listsAtHand = (dwFlags & capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY) != 0;
        request.lowerQuality = (dwFlags & capi::CERT_CHAIN_RETURN_LOWER_QUALITY_CONTEXTS) != 0;
        request.usage = requestedUsage(pChainPara->RequestedUsage);
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
