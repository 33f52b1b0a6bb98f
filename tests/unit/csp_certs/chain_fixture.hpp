#pragma once

/// Chains over a small authority, asked through the entry points.

#include "service.hpp"
#include "x509/file_time.hpp"

#include <map>
#include <optional>

using pki::Entity;

/// The engine's GOST keys are slow to make: one authority of a kind serves every test of a process.
inline const Entity& rootOf(pki::KeyKind kind) {
    static auto* const roots = new std::map<pki::KeyKind, Entity>;
    const auto [found, fresh] = roots->try_emplace(kind);
    if (fresh) {
        found->second = pki::root("Root " + std::to_string(static_cast<int>(kind)), kind);
    }
    return found->second;
}

inline std::string_view view(const csp::Bytes& der) {
    return {reinterpret_cast<const char*>(der.data()), der.size()};
}

struct FreeChain {
    void operator()(const CERT_CHAIN_CONTEXT* chain) const { api::CertFreeCertificateChain(chain); }
};
using Chain = std::unique_ptr<const CERT_CHAIN_CONTEXT, FreeChain>;

class ChainTest : public ServiceTest {
protected:
    void trust(const Entity& entity) { ASSERT_NE(add(systemStore("root").get(), entity.der), nullptr); }
    void know(const Entity& entity) { ASSERT_NE(add(systemStore("ca").get(), entity.der), nullptr); }
    void revoke(const Entity& issuer, const std::vector<long>& serials) {
        write(folder("ca") / (std::to_string(++crls_) + ".crl"), view(pki::crl(issuer, serials)));
    }

    void addCrl(const csp::Bytes& der) { write(folder("ca") / (std::to_string(++crls_) + ".crl"), view(der)); }

    /// Root trusted, CA known, leaf made.
    void standardChain() {
        trust(root_);
        know(ca_);
    }

    Chain chainOf(const csp::Bytes& der, DWORD flags = 0) {
        const Context certificate = contextOf(der);
        CERT_CHAIN_PARA_LONG whole = long_.value_or(CERT_CHAIN_PARA_LONG{});
        whole.cbSize = long_ ? sizeof whole : sizeof(CERT_CHAIN_PARA);
        whole.RequestedUsage = usage_;
        auto* const parameters = reinterpret_cast<CERT_CHAIN_PARA*>(&whole);
        FILETIME time = csp::toFileTime(time_);
        PCCERT_CHAIN_CONTEXT chain = nullptr;
        EXPECT_TRUE(api::CertGetCertificateChain(anchors_.get(), certificate.get(), time_ == 0 ? nullptr : &time,
                                                 additional_.get(), parameters, flags | network_, nullptr, &chain))
            << std::hex << api::GetLastError();
        return Chain(chain);
    }
    DWORD status(const csp::Bytes& der, DWORD flags = 0) { return chainOf(der, flags)->TrustStatus.dwErrorStatus; }

    /// The code with which no chain is built at all; 0 when one is.
    static DWORD refusal(const csp::Bytes& der) {
        const Context certificate = contextOf(der);
        CERT_CHAIN_PARA parameters{sizeof parameters, {}};
        PCCERT_CHAIN_CONTEXT chain = nullptr;
        const bool built = api::CertGetCertificateChain(nullptr, certificate.get(), nullptr, nullptr, &parameters, 0,
                                                        nullptr, &chain) != 0;
        api::CertFreeCertificateChain(chain);
        return built ? 0 : api::GetLastError();
    }

    static std::vector<DWORD> elementErrors(const Chain& chain) {
        std::vector<DWORD> errors;
        for (DWORD i = 0; i < chain->rgpChain[0]->cElement; ++i) {
            errors.push_back(chain->rgpChain[0]->rgpElement[i]->TrustStatus.dwErrorStatus);
        }
        return errors;
    }
    static DWORD policy(const Chain& chain, DWORD flags, LONG* element = nullptr) {
        CERT_CHAIN_POLICY_PARA parameters{sizeof parameters, flags, nullptr};
        CERT_CHAIN_POLICY_STATUS verdict{};
        EXPECT_TRUE(api::CertVerifyCertificateChainPolicy(storeProvider(capi::CERT_CHAIN_POLICY_BASE), chain.get(),
                                                          &parameters, &verdict));
        if (element != nullptr) {
            *element = verdict.lElementIndex;
        }
        return verdict.dwError;
    }

    const Entity& root_ = rootOf(pki::KeyKind::Ec);
    Entity ca_ = pki::intermediate("Intermediate", root_);
    Entity leaf_ = pki::make({.subject = "Leaf", .issuer = &ca_, .serial = 77});
    CERT_USAGE_MATCH usage_{};
    std::optional<CERT_CHAIN_PARA_LONG> long_; ///< without: the parameters in their short form
    std::time_t time_ = 0;
    DWORD network_ = capi::CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL; ///< 0: the network is asked
    StoreHandle additional_;
    StoreHandle anchors_; ///< null: store "root"
    int crls_ = 0;
};
