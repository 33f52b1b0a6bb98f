#include "stores/context.hpp"

#include "core/immortal.hpp"

#include <algorithm>
#include <map>
#include <mutex>

namespace klunortredi::csp {

namespace {

struct Entry {
    CERT_CONTEXT context;
    ContextTarget target;
    std::size_t references = 1;
};

struct Registry {
    std::mutex mutex;
    std::map<PCCERT_CONTEXT, std::unique_ptr<Entry>> entries;

    auto find(PCCERT_CONTEXT context) {
        const auto found = entries.find(context);
        if (found == entries.end()) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        return found;
    }
};

Registry& registry() {
    // Never destroyed: a host's static objects may free their contexts after ours are gone.
    static Immortal<Registry> instance;
    return *instance;
}

} // namespace

PCCERT_CONTEXT addContext(std::shared_ptr<Certificate> certificate, std::shared_ptr<OpenStore> store) {
    // The C structure has no const members; its pointers lead to what this certificate owns and nobody changes.
    const CERT_CONTEXT context{capi::X509_ASN_ENCODING,
                               const_cast<BYTE*>(certificate->encoded().data()), // NOLINT
                               static_cast<DWORD>(certificate->encoded().size()),
                               const_cast<CERT_INFO*>(&certificate->info()), // NOLINT
                               store ? store->handle : nullptr};
    auto entry = std::make_unique<Entry>(Entry{context, {std::move(certificate), std::move(store)}});
    const PCCERT_CONTEXT key = &entry->context;
    const std::lock_guard lock(registry().mutex);
    registry().entries.emplace(key, std::move(entry));
    return key;
}

ContextTarget contextTarget(PCCERT_CONTEXT context) {
    const std::lock_guard lock(registry().mutex);
    return registry().find(context)->second->target;
}

PCCERT_CONTEXT duplicateContext(PCCERT_CONTEXT context) {
    const std::lock_guard lock(registry().mutex);
    ++registry().find(context)->second->references;
    return context;
}

void freeContext(PCCERT_CONTEXT context) {
    // Outlives the lock: destroying a certificate may release a key handle, which has locks of its own.
    std::unique_ptr<Entry> last;
    const std::lock_guard lock(registry().mutex);
    const auto found = registry().find(context);
    if (--found->second->references == 0) {
        last = std::move(found->second);
        registry().entries.erase(found);
    }
}

std::size_t contextsOf(const OpenStore& store) {
    const std::lock_guard lock(registry().mutex);
    return static_cast<std::size_t>(std::ranges::count_if(
        registry().entries, [&](const auto& item) { return item.second->target.store.get() == &store; }));
}

std::size_t liveContexts() {
    const std::lock_guard lock(registry().mutex);
    return registry().entries.size();
}

} // namespace klunortredi::csp
