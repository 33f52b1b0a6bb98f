// CryptGetProvParam, CryptSetProvParam, CryptGenRandom.

#include "model.hpp"

#include "capi/constants.hpp"

#include <algorithm>
#include <numeric>
#include <optional>

namespace service_double {

namespace {

template <class T>
std::string octetsOf(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

std::string onTheWire(const Provider& provider, const std::wstring& text) {
    const bool cp1251 = provider.type == capi::PROV_GOST_2012_256 || provider.type == capi::PROV_GOST_2012_512;
    return (cp1251 ? toCp1251(text) : toUtf8(text)) + '\0';
}

std::string enumeratedName(const Container& container) {
    return toUtf8(container.qualifiedName.empty() ? container.name : container.qualifiedName) + '\0';
}

/// A parameter with one value; nothing for one that the service does not know.
std::optional<std::string> plainParameter(unsigned long context, const Provider& provider, DWORD parameter) {
    const auto* container = containerOf(context);
    switch (parameter) {
    case capi::PP_NAME:
        return provider.name + '\0';
    case capi::PP_PROVTYPE:
        return octetsOf(provider.type);
    case capi::PP_VERSION:
        return octetsOf(provider.version);
    case capi::PP_CONTAINER:
        return container == nullptr ? std::nullopt : std::optional(onTheWire(provider, container->name));
    case capi::PP_UNIQUE_CONTAINER:
        return container == nullptr || container->uniqueName.empty()
                   ? std::nullopt
                   : std::optional(onTheWire(provider, container->uniqueName));
    default:
        return std::nullopt;
    }
}

BOOL nextContainer(ContextObject& context, const Provider& provider, void* buffer, DWORD* size, DWORD flags) {
    if ((flags & capi::CRYPT_FIRST) != 0) {
        context.nextContainer = 0;
    }
    if (context.nextContainer >= provider.containers.size()) {
        return fail(capi::ERROR_NO_MORE_ITEMS);
    }
    if (buffer == nullptr) { // the size that fits every name
        std::size_t longest = 0;
        for (const auto& container : provider.containers) {
            longest = std::max(longest, enumeratedName(container).size());
        }
        *size = static_cast<DWORD>(longest);
        return 1;
    }
    if (!give(enumeratedName(provider.containers[context.nextContainer]), buffer, size)) {
        return 0;
    }
    ++context.nextContainer;
    return 1;
}

BOOL nextAlgorithm(ContextObject& context, const Provider& provider, void* buffer, DWORD* size, DWORD flags) {
    if ((flags & capi::CRYPT_FIRST) != 0) {
        context.nextAlgorithm = 0;
    }
    if (context.nextAlgorithm >= provider.algorithms.size()) {
        return fail(capi::ERROR_NO_MORE_ITEMS);
    }
    if (!give(octetsOf(provider.algorithms[context.nextAlgorithm]), buffer, size)) {
        return 0;
    }
    if (buffer != nullptr) {
        ++context.nextAlgorithm;
    }
    return 1;
}

bool isText(DWORD parameter) {
    switch (parameter) {
    case capi::PP_KEYEXCHANGE_PIN:
    case capi::PP_SIGNATURE_PIN:
    case capi::PP_SIGNATURE_ALGORITHM_OID:
    case capi::PP_EXCHANGE_ALGORITHM_OID:
        return true;
    default:
        return false;
    }
}

BOOL usePin(Container& container, const std::string& pin, DWORD flags) {
    switch (flags) {
    case capi::PIN_VERIFY:
        return pin == container.pin ? 1 : fail(capi::SCARD_W_WRONG_CHV);
    case capi::PIN_SET_NEW:
        container.pin = pin;
        return 1;
    default:
        return 1;
    }
}

} // namespace

BOOL Defaults::CryptGetProvParam(unsigned long handle, DWORD parameter, BYTE* buffer, DWORD* size, DWORD flags) {
    const Lock lock(stateMutex());
    const auto* provider = providerOf(handle);
    if (provider == nullptr) {
        return fail(capi::NTE_BAD_UID);
    }
    auto& context = *state().contexts.find(handle);
    if (parameter == capi::PP_ENUMCONTAINERS) {
        return nextContainer(context, *provider, buffer, size, flags);
    }
    if (parameter == capi::PP_ENUMALGS) {
        return nextAlgorithm(context, *provider, buffer, size, flags);
    }
    const auto scripted = provider->parameters.find(parameter);
    const auto value = scripted != provider->parameters.end() ? std::optional(scripted->second)
                                                              : plainParameter(handle, *provider, parameter);
    return value ? give(*value, buffer, size) : fail(capi::NTE_BAD_TYPE);
}

BOOL Defaults::CryptSetProvParam(unsigned long handle, DWORD parameter, const BYTE* data, DWORD flags) {
    const Lock lock(stateMutex());
    if (providerOf(handle) == nullptr) {
        return fail(capi::NTE_BAD_UID);
    }
    const std::string value =
        data != nullptr && isText(parameter) ? reinterpret_cast<const char*>(data) : std::string();
    service().parametersSet.push_back({parameter, value, flags});
    auto* container = containerOf(handle);
    const bool pin = parameter == capi::PP_KEYEXCHANGE_PIN || parameter == capi::PP_SIGNATURE_PIN;
    return pin && container != nullptr ? usePin(*container, value, flags) : 1;
}

/// 0, 1, 2 ...: octets that a test can foretell.
BOOL Defaults::CryptGenRandom(unsigned long handle, DWORD length, BYTE* buffer) {
    const Lock lock(stateMutex());
    if (providerOf(handle) == nullptr) {
        return fail(capi::NTE_BAD_UID);
    }
    std::iota(buffer, buffer + length, BYTE{0});
    return 1;
}

} // namespace service_double
