// Providers and their contexts.

#include "dispatch.hpp"
#include "model.hpp"

#include "capi/constants.hpp"

#include <algorithm>

namespace service_double {

std::vector<Provider>& installedProviders(const std::string& library) {
    auto& all = service().providers;
    const auto found = all.find(library);
    return found == all.end() ? all[""] : found->second;
}

Provider* providerOf(unsigned long context) {
    const auto* object = state().contexts.find(context);
    if (object == nullptr) {
        return nullptr;
    }
    auto& installed = installedProviders(object->library);
    const auto found =
        std::find_if(installed.begin(), installed.end(), [&](const Provider& p) { return p.name == object->provider; });
    return found == installed.end() ? nullptr : &*found;
}

namespace {

bool answersTo(const Container& container, const std::wstring& name) {
    return name == container.name || name == container.uniqueName || name == container.qualifiedName;
}

Container* findContainer(Provider& provider, const std::wstring& name) {
    const auto found = std::find_if(provider.containers.begin(), provider.containers.end(),
                                    [&](const Container& container) { return answersTo(container, name); });
    return found == provider.containers.end() ? nullptr : &*found;
}

Provider* findProvider(const wchar_t* name, DWORD type) {
    auto& installed = installedProviders(currentLibrary());
    const auto found = std::find_if(installed.begin(), installed.end(), [&](const Provider& provider) {
        return provider.type == type && (name == nullptr || provider.name == toUtf8(name));
    });
    return found == installed.end() ? nullptr : &*found;
}

BOOL open(unsigned long* handle, const Provider& provider, std::optional<std::wstring> container) {
    *handle = state().contexts.add({currentLibrary(), provider.name, std::move(container)});
    return 1;
}

BOOL create(unsigned long* handle, Provider& provider, const std::wstring& name) {
    if (findContainer(provider, name) != nullptr) {
        return fail(capi::NTE_EXISTS);
    }
    Container container;
    container.name = name;
    container.keySpecs.clear();
    provider.containers.push_back(container);
    return open(handle, provider, name);
}

BOOL openExisting(unsigned long* handle, Provider& provider, const std::wstring& name, DWORD flags) {
    const bool byDefault = name.empty() && !provider.containers.empty();
    const auto* container = byDefault ? &provider.containers.front() : findContainer(provider, name);
    if (container == nullptr) {
        return fail(capi::NTE_BAD_KEYSET);
    }
    if (container->needsDialogue && (flags & capi::CRYPT_SILENT) != 0) {
        return fail(capi::NTE_SILENT_CONTEXT);
    }
    if ((flags & capi::CRYPT_DELETEKEYSET) != 0) {
        provider.containers.erase(provider.containers.begin() + (container - provider.containers.data()));
        *handle = 0;
        return 1;
    }
    return open(handle, provider, container->name);
}

} // namespace

Container* containerOf(unsigned long context) {
    auto* provider = providerOf(context);
    if (provider == nullptr) {
        return nullptr;
    }
    const auto& name = state().contexts.find(context)->container;
    return name ? findContainer(*provider, *name) : nullptr;
}

BOOL acquire(unsigned long* handle, const wchar_t* container, const wchar_t* provider, DWORD type, DWORD flags) {
    auto* found = findProvider(provider, type);
    if (found == nullptr) {
        return fail(capi::NTE_KEYSET_NOT_DEF);
    }
    if ((flags & capi::CRYPT_VERIFYCONTEXT) == capi::CRYPT_VERIFYCONTEXT) {
        return open(handle, *found, std::nullopt);
    }
    const std::wstring name = container == nullptr ? L"" : container;
    return (flags & capi::CRYPT_NEWKEYSET) != 0 ? create(handle, *found, name)
                                                : openExisting(handle, *found, name, flags);
}

BOOL Defaults::CryptAcquireContextW(unsigned long* handle, const wchar_t* container, const wchar_t* provider,
                                    DWORD type, DWORD flags) {
    const Lock lock(stateMutex());
    return acquire(handle, container, provider, type, flags);
}

BOOL Defaults::CryptReleaseContext(unsigned long handle, DWORD /*flags*/) {
    const Lock lock(stateMutex());
    auto* context = state().contexts.find(handle);
    if (context == nullptr || context->references == context->ownedByService) {
        return misuse("CryptReleaseContext: a context that is not held", capi::ERROR_INVALID_PARAMETER);
    }
    if (--context->references == 0) {
        state().contexts.erase(handle);
    }
    return 1;
}

BOOL Defaults::CryptContextAddRef(unsigned long handle, DWORD* /*reserved*/, DWORD /*flags*/) {
    const Lock lock(stateMutex());
    auto* context = state().contexts.find(handle);
    if (context == nullptr) {
        return fail(capi::ERROR_INVALID_PARAMETER);
    }
    ++context->references;
    return 1;
}

BOOL Defaults::CryptEnumProviders(DWORD index, DWORD* /*reserved*/, DWORD /*flags*/, DWORD* type, char* name,
                                  DWORD* size) {
    const Lock lock(stateMutex());
    const auto& installed = installedProviders(currentLibrary());
    if (index >= installed.size()) {
        return fail(capi::ERROR_NO_MORE_ITEMS);
    }
    *type = installed[index].type;
    return give(installed[index].name + '\0', name, size);
}

} // namespace service_double
