#include "exports/export.hpp"
#include "exports/open_store.hpp"
#include "stores/context.hpp"
#include "stores/find.hpp"

namespace klunortredi::csp::exports {

namespace {

/// A context that the call takes over: the CryptoAPI frees the previous one of a walk, and a deleted one, in every
/// case, failures included.
class TakenContext {
public:
    explicit TakenContext(PCCERT_CONTEXT context) : context_(context) {
        if (context != nullptr) {
            target_ = contextTarget(context);
        }
    }
    TakenContext(const TakenContext&) = delete;
    TakenContext& operator=(const TakenContext&) = delete;
    ~TakenContext() {
        if (context_ != nullptr) {
            guarded([this] { freeContext(context_); });
        }
    }

    [[nodiscard]] const ContextTarget& target() const noexcept { return target_; }

private:
    PCCERT_CONTEXT context_;
    ContextTarget target_;
};

PCCERT_CONTEXT nextContext(void* store, const TakenContext& previous, const Criterion& wanted) {
    auto open = openStore(store);
    const auto& last = previous.target().certificate;
    Match found = open->store().next(last ? last->ordinal() : 0, wanted);
    if (!found.certificate) {
        fail(found.unread == 0 ? capi::CRYPT_E_NOT_FOUND : found.unread);
    }
    return addContext(std::move(found.certificate), std::move(open));
}

AddRule addRule(DWORD disposition) {
    if (disposition < capi::CERT_STORE_ADD_NEW || disposition > capi::CERT_STORE_ADD_ALWAYS) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    return AddRule{disposition};
}

} // namespace

void* CertOpenStore(const char* lpszStoreProvider, DWORD /*dwEncodingType*/, unsigned long /*hCryptProv*/,
                    DWORD dwFlags, const void* pvPara) {
    return guard<void*>(nullptr, [&] { return openStoreOf(lpszStoreProvider, dwFlags, pvPara); });
}

void* CertOpenSystemStore(unsigned long /*hProv*/, const char* szSubsystemProtocol) {
    return guard<void*>(nullptr, [&] { return openSystemStore(szSubsystemProtocol, 0); });
}

BOOL CertCloseStore(void* hCertStore, DWORD dwFlags) {
    return guarded([&] {
        const auto closed = closeStore(hCertStore);
        if ((dwFlags & capi::CERT_CLOSE_STORE_CHECK_FLAG) != 0 && contextsOf(*closed) != 0) {
            fail(capi::CRYPT_E_PENDING_CLOSE);
        }
    });
}

PCCERT_CONTEXT CertEnumCertificatesInStore(void* hCertStore, PCCERT_CONTEXT pPrevCertContext) {
    return guard<PCCERT_CONTEXT>(nullptr, [&] {
        const TakenContext previous(pPrevCertContext);
        return nextContext(hCertStore, previous, criterion(capi::CERT_FIND_ANY, nullptr));
    });
}

PCCERT_CONTEXT CertFindCertificateInStore(void* hCertStore, DWORD /*dwCertEncodingType*/, DWORD /*dwFindFlags*/,
                                          DWORD dwFindType, const void* pvFindPara, PCCERT_CONTEXT pPrevCertContext) {
    return guard<PCCERT_CONTEXT>(nullptr, [&] {
        const TakenContext previous(pPrevCertContext);
        return nextContext(hCertStore, previous, criterion(dwFindType, pvFindPara));
    });
}

PCCERT_CONTEXT CertGetSubjectCertificateFromStore(void* hCertStore, DWORD dwCertEncodingType, CERT_INFO* pCertId) {
    return CertFindCertificateInStore(hCertStore, dwCertEncodingType, 0, capi::CERT_FIND_SUBJECT_CERT, pCertId,
                                      nullptr);
}

BOOL CertAddCertificateContextToStore(void* hCertStore, PCCERT_CONTEXT pCertContext, DWORD dwAddDisposition,
                                      PCCERT_CONTEXT* ppStoreContext) {
    return guarded([&] {
        if (ppStoreContext != nullptr) {
            *ppStoreContext = nullptr;
        }
        const ContextTarget source = contextTarget(pCertContext);
        const AddRule rule = addRule(dwAddDisposition);
        auto open = openStore(hCertStore);
        auto element = open->writable().add(*source.certificate, rule);
        if (ppStoreContext != nullptr) {
            *ppStoreContext = addContext(std::move(element), std::move(open));
        }
    });
}

BOOL CertDeleteCertificateFromStore(PCCERT_CONTEXT pCertContext) {
    return guarded([&] {
        const TakenContext deleted(pCertContext);
        const auto& [certificate, store] = deleted.target();
        if (!store) {
            fail(pCertContext == nullptr ? capi::ERROR_INVALID_PARAMETER : capi::CRYPT_E_NOT_FOUND);
        }
        store->writable().remove(*certificate);
    });
}

} // namespace klunortredi::csp::exports
