#include "chain_case.hpp"

#include "carried_store.hpp"
#include "x509/file_time.hpp"

#include <algorithm>
#include <iterator>

namespace chain_case {

using csp::Bytes;

StoreHandle storeOf(const std::vector<Bytes>& certificates, const std::vector<Bytes>& crls) {
    if (crls.empty()) {
        StoreHandle store = memoryStore();
        for (const Bytes& certificate : certificates) {
            add(store.get(), certificate, capi::CERT_STORE_ADD_ALWAYS);
        }
        return store;
    }
    StoreHandle store(openCarriedStore(certificates, crls));
    if (!store) {
        throw std::runtime_error("the service does not read the message with certificates and CRLs");
    }
    return store;
}

Answer ask(const Question& question) {
    Answer answer;
    const Context target = contextOf(question.target);
    if (!target) {
        answer.code = api::GetLastError();
        return answer;
    }
    const StoreHandle anchors = storeOf(question.anchors, {});
    const StoreHandle additional = storeOf(question.issuers, question.crls);
    std::string usage = question.usage;
    char* usages[] = {usage.data()};
    std::vector<std::string> policies = question.policies;
    std::vector<char*> policyPointers;
    std::ranges::transform(policies, std::back_inserter(policyPointers), [](std::string& oid) { return oid.data(); });
    CERT_CHAIN_PARA_LONG parameters{};
    parameters.cbSize = sizeof parameters;
    parameters.RequestedIssuancePolicy = {capi::USAGE_MATCH_TYPE_OR,
                                          {static_cast<DWORD>(policyPointers.size()), policyPointers.data()}};
    parameters.RequestedUsage.dwType = capi::USAGE_MATCH_TYPE_AND;
    parameters.RequestedUsage.Usage = {usage.empty() ? 0U : 1U, usages};
    FILETIME time = csp::toFileTime(question.time == 0 ? std::time(nullptr) : question.time);
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    if (api::CertGetCertificateChain(
            anchors.get(), target.get(), &time, additional.get(), reinterpret_cast<CERT_CHAIN_PARA*>(&parameters),
            question.flags | capi::CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL, nullptr, &chain) == 0) {
        answer.code = api::GetLastError();
        return answer;
    }
    answer.errors = chain->TrustStatus.dwErrorStatus;
    for (DWORD i = 0; i < chain->rgpChain[0]->cElement; ++i) {
        answer.elements.push_back(chain->rgpChain[0]->rgpElement[i]->TrustStatus.dwErrorStatus);
    }
    api::CertFreeCertificateChain(chain);
    return answer;
}

} // namespace chain_case
