#include "keys/context.hpp"

#include "core/error.hpp"
#include "core/immortal.hpp"
#include "keys/provider_context.hpp"

#include <vector>

namespace klunortredi::csp {

namespace {

HandleTable<ProviderContext, HandleKind::Context>& contexts() {
    // Never destroyed: what a host leaves open would be freed after OpenSSL has cleaned up at exit.
    static Immortal<HandleTable<ProviderContext, HandleKind::Context>> table(capi::ERROR_INVALID_HANDLE);
    return *table;
}

/// The contexts that make a container, with its name: whoever looks for one of them does not wait for another's key
/// pair, which takes its context as long as it takes.
class Makers {
public:
    using Maker = std::shared_ptr<ProviderContext>;

    void add(const ContainerId& id, const Maker& context) {
        const std::lock_guard lock(mutex_);
        std::erase_if(makers_, [](const auto& maker) { return maker.context.expired(); });
        makers_.push_back({id, context});
    }

    [[nodiscard]] std::vector<Maker> of(const ContainerId& id) const {
        return alive([&id](const ContainerId& made) { return made == id; });
    }

    [[nodiscard]] std::vector<Maker> all() const {
        return alive([](const ContainerId&) { return true; });
    }

private:
    struct Entry {
        ContainerId id;
        std::weak_ptr<ProviderContext> context;
    };

    template <class Predicate>
    std::vector<Maker> alive(Predicate wanted) const {
        const std::lock_guard lock(mutex_);
        std::vector<Maker> found;
        for (const Entry& maker : makers_) {
            if (auto context = wanted(maker.id) ? maker.context.lock() : nullptr) {
                found.push_back(std::move(context));
            }
        }
        return found;
    }

    mutable std::mutex mutex_;
    std::vector<Entry> makers_;
};

Makers& makers() {
    static Makers instance;
    return instance;
}

enum class Purpose { Open, Create, Delete, Verify };

Purpose purposeOf(DWORD flags) {
    switch (flags & ~capi::CRYPT_SILENT) {
    case 0:
        return Purpose::Open;
    case capi::CRYPT_NEWKEYSET:
        return Purpose::Create;
    case capi::CRYPT_DELETEKEYSET:
        return Purpose::Delete;
    case capi::CRYPT_VERIFYCONTEXT:
        return Purpose::Verify;
    default:
        fail(capi::NTE_BAD_FLAGS);
    }
}

std::shared_ptr<ProviderContext> contextOfContainer(const ProviderRecord& provider, const ContainerId& id,
                                                    Purpose purpose) {
    if (purpose == Purpose::Open) {
        return std::make_shared<ProviderContext>(provider, Container::open(id));
    }
    auto made = std::make_shared<ProviderContext>(provider, std::make_unique<NewContainer>(id));
    makers().add(id, made);
    return made;
}

} // namespace

unsigned long acquireContext(std::wstring_view container, std::wstring_view provider, DWORD type, DWORD flags) {
    const Purpose purpose = purposeOf(flags);
    const ProviderRecord& row = findProvider(provider, type);
    if (purpose == Purpose::Verify) {
        if (!container.empty()) {
            fail(capi::NTE_BAD_KEYSET_PARAM);
        }
        return contexts().add(std::make_shared<ProviderContext>(row));
    }
    if (container.empty()) { // there is no default container to open
        fail(purpose == Purpose::Open ? capi::NTE_BAD_KEYSET : capi::NTE_BAD_KEYSET_PARAM);
    }
    const ContainerId id = parseContainerName(container, type);
    for (const auto& maker : makers().of(id)) { // what this process is making is there for whoever names it
        maker->settle();
    }
    if (purpose == Purpose::Delete) {
        deleteContainer(id);
        return 0;
    }
    return contexts().add(contextOfContainer(row, id, purpose));
}

void releaseContext(unsigned long hProv) {
    const auto context = contexts().get(hProv);
    if (context->removeReference()) {
        contexts().remove(hProv);
        context->close();
    }
}

void addContextReference(unsigned long hProv) {
    contexts().get(hProv)->addReference();
}

std::shared_ptr<ProviderContext> providerContext(unsigned long hProv) {
    return contexts().get(hProv);
}

std::shared_ptr<SigningContext> signingContext(unsigned long hProv) {
    return providerContext(hProv);
}

void settleAll() {
    for (const auto& maker : makers().all()) {
        try {
            maker->settle();
        } catch (const ApiError&) { // its own release tells
        }
    }
}

} // namespace klunortredi::csp
