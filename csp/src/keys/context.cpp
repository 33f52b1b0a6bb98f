#include "keys/context.hpp"

#include "core/error.hpp"
#include "core/immortal.hpp"
#include "keys/provider_context.hpp"

namespace klunortredi::csp {

namespace {

HandleTable<ProviderContext, HandleKind::Context>& contexts() {
    // Never destroyed: what a host leaves open would be freed after OpenSSL has cleaned up at exit.
    static Immortal<HandleTable<ProviderContext, HandleKind::Context>> table(capi::ERROR_INVALID_HANDLE);
    return *table;
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
    return std::make_shared<ProviderContext>(provider, std::make_unique<NewContainer>(id));
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

} // namespace klunortredi::csp
