#include "chains/chain_context.hpp"

#include "chains/crl_context.hpp"
#include "core/immortal.hpp"

#include <algorithm>

#include <deque>
#include <map>
#include <mutex>

namespace klunortredi::csp {

namespace {

/// A certificate context that is given back at the end.
struct FreeContext {
    void operator()(PCCERT_CONTEXT context) const {
        guarded([context] { freeContext(context); });
    }
};
using OwnedContext = std::unique_ptr<const CERT_CONTEXT, FreeContext>;

/// A CERT_ENHKEY_USAGE with its texts.
struct Usage {
    explicit Usage(std::vector<std::string> oids) : texts(std::move(oids)) {
        for (std::string& text : texts) {
            pointers.push_back(text.data());
        }
        usage = {static_cast<DWORD>(pointers.size()), pointers.data()};
    }
    std::vector<std::string> texts;
    std::vector<char*> pointers;
    CERT_ENHKEY_USAGE usage{};
};

/// Everything that the CERT_CHAIN_CONTEXT leads to. Never moved.
struct Layout {
    CERT_CHAIN_CONTEXT context{};
    CERT_SIMPLE_CHAIN chain{};
    CERT_SIMPLE_CHAIN* chains = &chain;
    std::vector<CERT_CHAIN_ELEMENT> elements;
    std::vector<CERT_CHAIN_ELEMENT*> pointers;
    std::vector<OwnedContext> contexts;
    std::deque<Usage> usages;
    RevocationLayout revocations;
    std::vector<std::unique_ptr<Layout>> lower;
    std::vector<PCCERT_CHAIN_CONTEXT> lowerPointers;
};

struct Registry {
    std::mutex mutex;
    std::map<PCCERT_CHAIN_CONTEXT, std::unique_ptr<Layout>> chains;

    auto find(PCCERT_CHAIN_CONTEXT chain) {
        const auto found = chains.find(chain);
        if (found == chains.end()) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        return found;
    }
};

Registry& registry() {
    // Never destroyed, as the registry of certificate contexts.
    static Immortal<Registry> instance;
    return *instance;
}

CERT_CHAIN_ELEMENT element(const ChainElement& from, PCCERT_CONTEXT context, Layout& layout) {
    CERT_CHAIN_ELEMENT to{};
    to.cbSize = sizeof to;
    to.pCertContext = context;
    to.TrustStatus = {from.errors, from.information};
    if (from.usage) {
        to.pApplicationUsage = &layout.usages.emplace_back(*from.usage).usage;
    }
    if (from.revocation) {
        to.pRevocationInfo = layout.revocations.add(*from.revocation);
    }
    return to;
}

/// The age of the oldest of the CRLs used; nothing unless one was used for every element but a last one without.
std::optional<DWORD> freshness(const BuiltChain& chain) {
    DWORD oldest = 0;
    for (std::size_t i = 0; i < chain.elements.size(); ++i) {
        const auto& revocation = chain.elements[i].revocation;
        if (!revocation && (i == 0 || i + 1 < chain.elements.size())) {
            return std::nullopt;
        }
        oldest = std::max(oldest, revocation ? revocation->freshness : 0);
    }
    return oldest;
}

std::unique_ptr<Layout> layOut(const BuiltChain& chain, PCCERT_CONTEXT context) {
    auto layout = std::make_unique<Layout>();
    for (const ChainElement& from : chain.elements) {
        layout->contexts.emplace_back(layout->contexts.empty() ? duplicateContext(context)
                                                               : addContext(from.certificate, from.store));
        layout->elements.push_back(element(from, layout->contexts.back().get(), *layout));
    }
    for (CERT_CHAIN_ELEMENT& to : layout->elements) {
        layout->pointers.push_back(&to);
    }
    layout->chain.cbSize = sizeof layout->chain;
    layout->chain.TrustStatus.dwErrorStatus = chain.errors;
    layout->chain.cElement = static_cast<DWORD>(layout->pointers.size());
    layout->chain.rgpElement = layout->pointers.data();
    layout->context.cbSize = sizeof layout->context;
    layout->context.TrustStatus = {chain.errors, chain.information};
    layout->context.cChain = 1;
    layout->context.rgpChain = &layout->chains;
    if (const auto age = freshness(chain)) {
        layout->chain.fHasRevocationFreshnessTime = layout->context.fHasRevocationFreshnessTime = 1;
        layout->chain.dwRevocationFreshnessTime = layout->context.dwRevocationFreshnessTime = *age;
    }
    for (const BuiltChain& lower : chain.lower) {
        layout->lower.push_back(layOut(lower, context));
        layout->lowerPointers.push_back(&layout->lower.back()->context);
    }
    layout->context.cLowerQualityChainContext = static_cast<DWORD>(layout->lowerPointers.size());
    layout->context.rgpLowerQualityChainContext =
        layout->lowerPointers.empty() ? nullptr : layout->lowerPointers.data();
    return layout;
}

} // namespace

PCCERT_CHAIN_CONTEXT addChain(const BuiltChain& chain, PCCERT_CONTEXT context) {
    auto layout = layOut(chain, context);
    const PCCERT_CHAIN_CONTEXT key = &layout->context;
    const std::lock_guard lock(registry().mutex);
    registry().chains.emplace(key, std::move(layout));
    return key;
}

void checkChain(PCCERT_CHAIN_CONTEXT chain) {
    const std::lock_guard lock(registry().mutex);
    registry().find(chain);
}

void freeChain(PCCERT_CHAIN_CONTEXT chain) {
    std::unique_ptr<Layout> freed; // goes after the lock
    const std::lock_guard lock(registry().mutex);
    const auto found = registry().find(chain);
    freed = std::move(found->second);
    registry().chains.erase(found);
}

} // namespace klunortredi::csp
