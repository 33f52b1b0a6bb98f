// Certificate stores and chains.

#include "model.hpp"

#include "capi/constants.hpp"

#include <algorithm>

namespace service_double {

namespace {

constexpr unsigned long widestNumber = 0xFFFF;

std::string octets(const CRYPTOAPI_BLOB& blob) {
    return {reinterpret_cast<const char*>(blob.pbData), blob.cbData};
}

std::vector<CertificatePointer> parseAll(const std::vector<std::string>& encoded) {
    std::vector<CertificatePointer> certificates;
    for (const auto& der : encoded) {
        certificates.push_back(parseCertificate(der));
    }
    return certificates;
}

/// A system store's certificates: the script's, parsed once, so that properties set on them stay.
std::vector<CertificatePointer>& systemStore(const std::string& name) {
    auto& known = state().systemStores;
    const auto found = known.find(name);
    return found != known.end() ? found->second
                                : known.emplace(name, parseAll(service().systemStores[name])).first->second;
}

std::vector<CertificatePointer>* contentOf(void* handle) {
    auto* store = state().stores.find(toHandle(handle));
    if (store == nullptr) {
        return nullptr;
    }
    return store->name.empty() ? &store->certificates : &systemStore(store->name);
}

bool sameSubject(const CERT_INFO& a, const CERT_INFO& b) {
    return octets(a.Issuer) == octets(b.Issuer) && octets(a.SerialNumber) == octets(b.SerialNumber);
}

bool matches(const CertificateObject& certificate, DWORD type, const void* sought) {
    switch (type) {
    case capi::CERT_FIND_ANY:
        return true;
    case capi::CERT_FIND_EXISTING: {
        const auto other = findCertificate(static_cast<PCCERT_CONTEXT>(sought));
        return other && other->der == certificate.der;
    }
    case capi::CERT_FIND_SUBJECT_CERT:
        return sameSubject(*certificate.context.pCertInfo, *static_cast<const CERT_INFO*>(sought));
    case capi::CERT_FIND_SHA1_HASH:
        return digestOf(capi::CALG_SHA1, certificate.der) == octets(*static_cast<const CRYPTOAPI_BLOB*>(sought));
    default:
        return false;
    }
}

/// The first match behind `previous`, whose reference the call takes.
PCCERT_CONTEXT findNext(void* handle, PCCERT_CONTEXT previous, DWORD type, const void* sought, const char* function) {
    auto* content = contentOf(handle);
    auto position = content == nullptr ? 0 : content->size();
    if (content != nullptr) {
        const auto found = std::find_if(content->begin(), content->end(),
                                        [&](const auto& entry) { return &entry->context == previous; });
        position =
            previous == nullptr || found == content->end() ? 0 : static_cast<std::size_t>(found - content->begin()) + 1;
    }
    if (previous != nullptr) {
        letGo(previous, function);
    }
    if (content == nullptr) {
        return fail(capi::ERROR_INVALID_HANDLE);
    }
    for (; position < content->size(); ++position) {
        if (matches(*(*content)[position], type, sought)) {
            return hold((*content)[position]);
        }
    }
    return fail(capi::CRYPT_E_NOT_FOUND);
}

} // namespace

void* Defaults::CertOpenStore(const char* provider, DWORD /*encoding*/, unsigned long /*context*/, DWORD /*flags*/,
                              const void* parameter) {
    const Lock lock(stateMutex());
    const auto kind = toHandle(provider);
    if (kind == capi::CERT_STORE_PROV_MSG && state().messages.find(toHandle(parameter)) != nullptr) {
        return toPointer(state().stores.add({{}, parseAll(service().message.certificates)}));
    }
    if (kind == capi::CERT_STORE_PROV_MEMORY) {
        return toPointer(state().stores.add({}));
    }
    return fail(kind <= widestNumber ? capi::ERROR_INVALID_PARAMETER : capi::ERROR_FILE_NOT_FOUND);
}

void* Defaults::CertOpenSystemStore(unsigned long /*context*/, const char* name) {
    const Lock lock(stateMutex());
    return toPointer(state().stores.add({name, {}}));
}

BOOL Defaults::CertCloseStore(void* handle, DWORD /*flags*/) {
    const Lock lock(stateMutex());
    return state().stores.erase(toHandle(handle))
               ? 1
               : misuse("CertCloseStore: a store that is not held", capi::ERROR_INVALID_HANDLE);
}

PCCERT_CONTEXT Defaults::CertEnumCertificatesInStore(void* handle, PCCERT_CONTEXT previous) {
    const Lock lock(stateMutex());
    return findNext(handle, previous, capi::CERT_FIND_ANY, nullptr, "CertEnumCertificatesInStore");
}

PCCERT_CONTEXT Defaults::CertFindCertificateInStore(void* handle, DWORD /*encoding*/, DWORD /*flags*/, DWORD type,
                                                    const void* sought, PCCERT_CONTEXT previous) {
    const Lock lock(stateMutex());
    return findNext(handle, previous, type, sought, "CertFindCertificateInStore");
}

PCCERT_CONTEXT Defaults::CertGetSubjectCertificateFromStore(void* handle, DWORD /*encoding*/, CERT_INFO* id) {
    const Lock lock(stateMutex());
    return findNext(handle, nullptr, capi::CERT_FIND_SUBJECT_CERT, id, "CertGetSubjectCertificateFromStore");
}

BOOL Defaults::CertAddCertificateContextToStore(void* handle, PCCERT_CONTEXT context, DWORD disposition,
                                                PCCERT_CONTEXT* added) {
    const Lock lock(stateMutex());
    auto* content = contentOf(handle);
    const auto given = findCertificate(context);
    if (content == nullptr || !given) {
        return fail(content == nullptr ? capi::ERROR_INVALID_HANDLE : capi::ERROR_INVALID_PARAMETER);
    }
    const auto existing = std::find_if(content->begin(), content->end(), [&](const auto& entry) {
        return sameSubject(*entry->context.pCertInfo, *given->context.pCertInfo);
    });
    if (existing != content->end() && disposition == capi::CERT_STORE_ADD_NEW) {
        return fail(capi::CRYPT_E_EXISTS);
    }
    if (existing != content->end() && disposition == capi::CERT_STORE_ADD_REPLACE_EXISTING) {
        content->erase(existing);
    }
    auto copy = parseCertificate(given->der);
    copy->properties = given->properties;
    copy->keyProviderInfo = given->keyProviderInfo;
    content->push_back(copy);
    if (added != nullptr) {
        *added = hold(copy);
    }
    return 1;
}

BOOL Defaults::CertDeleteCertificateFromStore(PCCERT_CONTEXT context) {
    const Lock lock(stateMutex());
    const auto isIt = [&](const auto& entry) { return &entry->context == context; };
    for (const auto& [handle, store] : state().stores.objects()) {
        std::erase_if(*contentOf(toPointer(handle)), isIt);
    }
    return letGo(context, "CertDeleteCertificateFromStore");
}

BOOL Defaults::CertGetCertificateChain(void* /*engine*/, PCCERT_CONTEXT /*context*/, FILETIME* /*time*/,
                                       void* /*store*/, CERT_CHAIN_PARA* /*parameters*/, DWORD /*flags*/,
                                       void* /*reserved*/, PCCERT_CHAIN_CONTEXT* result) {
    const Lock lock(stateMutex());
    auto* chain = new CERT_CHAIN_CONTEXT{};
    chain->cbSize = sizeof *chain;
    chain->TrustStatus.dwErrorStatus = service().chainStatus;
    state().chains.insert(chain);
    *result = chain;
    return 1;
}

BOOL Defaults::CertVerifyCertificateChainPolicy(const char* /*policy*/, PCCERT_CHAIN_CONTEXT /*chain*/,
                                                CERT_CHAIN_POLICY_PARA* /*parameters*/,
                                                CERT_CHAIN_POLICY_STATUS* status) {
    status->dwError = 0;
    return 1;
}

void Defaults::CertFreeCertificateChain(PCCERT_CHAIN_CONTEXT chain) {
    const Lock lock(stateMutex());
    if (state().chains.erase(chain) == 0) {
        misuse("CertFreeCertificateChain: a chain that is not held", capi::ERROR_INVALID_PARAMETER);
        return;
    }
    delete chain;
}

} // namespace service_double
