#include "chains/chain_sources.hpp"

#include "stores/system_store.hpp"
#include "x509/x509_der.hpp"

#include <array>

namespace klunortredi::csp {

namespace {

std::shared_ptr<OpenStore> systemStore(const char* name) {
    // Not in the handle table: nobody closes it, it goes with the last context of the chain.
    return std::make_shared<OpenStore>(SystemStore::open(name), false);
}

void collect(const std::shared_ptr<OpenStore>& store, std::vector<Candidate>& candidates,
             std::vector<ossl::X509CrlPtr>& crls) {
    for (auto& certificate : store->store().certificates()) {
        auto x509 = ossl::fromDer<ossl::X509Ptr>(d2i_X509, certificate->encoded());
        if (x509) {
            candidates.push_back({std::move(x509), std::move(certificate), store});
        }
    }
    for (const Bytes& der : store->store().crls()) {
        auto crl = ossl::fromDer<ossl::X509CrlPtr>(d2i_X509_CRL, der);
        if (crl) {
            crls.push_back(std::move(crl));
        }
    }
}

} // namespace

ChainSources::ChainSources(const std::shared_ptr<OpenStore>& additional) {
    collect(systemStore("root"), anchors, crls);
    if (additional) {
        collect(additional, issuers, crls);
    }
    for (const char* name : {"ca", "my", "trust"}) {
        collect(systemStore(name), issuers, crls);
    }
    for (const auto& certificate : systemStore("disallowed")->store().certificates()) {
        disallowed.insert(certificate->thumbprint());
    }
}

const Candidate* ChainSources::find(const X509* x509) const {
    for (const auto* const list : {&anchors, &issuers}) {
        for (const Candidate& candidate : *list) {
            if (X509_cmp(candidate.x509.get(), x509) == 0) {
                return &candidate;
            }
        }
    }
    return nullptr;
}

} // namespace klunortredi::csp
