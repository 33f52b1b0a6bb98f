#include "installed.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/provider.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "only_container.hpp"
#include "orvik/plugin/session.hpp"
#include "printable.hpp"
#include "text.hpp"

#include <algorithm>

namespace klunortredi::cli {

namespace {

using orvik::plugin::crypto::IProvider;
using orvik::plugin::wincrypt::Provider;

/// An empty list of containers is also what the library returns when the service could not list them. Returns whether
/// the service has some; throws Failure when it cannot list them.
bool serviceHasContainers(const IProvider& provider) {
    unsigned error = 0;
    const orvik::plugin::wincrypt::HCRYPTPROV context(provider, &error);
    DWORD length = 0;
    if (context.get() != 0) {
        if (orvik::plugin::wincrypt::CryptGetProvParam(context.get(), capi::PP_ENUMCONTAINERS, nullptr, &length,
                                                       capi::CRYPT_FIRST | capi::CRYPT_FQCN) != 0) {
            return true;
        }
        error = orvik::plugin::wincrypt::GetLastErrorEx();
    }
    checkEmptyList("cannot list the containers of " + text::utf8(provider.name()), error);
    return false;
}

} // namespace

std::vector<ProviderPtr> installedProviders() {
    // The first call of the library decides whether there is a service at all, and says so by throwing.
    orvik::plugin::wincrypt::CoInitializeEx(static_cast<unsigned>(IProvider::Family::cryptoPro));
    const Provider any(static_cast<IProvider::Type>(0), L"any");
    const auto set = any.providers(orvik::plugin::Session::instance());
    std::vector<ProviderPtr> result(set.begin(), set.end());
    if (result.empty()) {
        throw Failure(ExitCode::service, "no provider", "the service offers none", "see 'klunortredi info'");
    }
    return result;
}

ProviderPtr chooseProvider(const std::string& name) {
    const auto installed = installedProviders();
    if (name.empty()) {
        const auto gost = std::ranges::find_if(
            installed, [](const ProviderPtr& one) { return one->type() == IProvider::gost2012_256; });
        return gost == installed.end() ? installed.front() : *gost;
    }
    std::vector<ProviderPtr> found;
    for (const ProviderPtr& provider : installed) {
        const std::string own = text::lower(text::utf8(provider->name()));
        if (own == text::lower(name)) {
            return provider;
        }
        if (name == std::to_string(static_cast<unsigned>(provider->type())) ||
            own.find(text::lower(name)) != std::string::npos) {
            found.push_back(provider);
        }
    }
    if (found.empty()) {
        throw Failure(ExitCode::service, "no provider '" + printable(name) + "'", "none of the installed ones matches",
                      "see 'klunortredi providers'");
    }
    if (found.size() > 1) {
        std::vector<std::string> names(found.size());
        std::ranges::transform(found, names.begin(), [](const ProviderPtr& one) {
            return text::utf8(one->name()) + " (" + std::to_string(static_cast<unsigned>(one->type())) + ")";
        });
        throw Failure(ExitCode::usage, "cannot choose provider '" + printable(name) + "'",
                      "several match: " + text::joined(names), "give the type number or a longer part of the name");
    }
    return found.front();
}

std::vector<Container> containersOf(const std::vector<ProviderPtr>& providers) {
    std::vector<Container> result;
    for (const auto& provider : providers) {
        auto paths = provider->containers();
        if (paths.empty() && serviceHasContainers(*provider)) { // they came meanwhile, or reading failed once
            paths = provider->containers();
        }
        for (const std::wstring& path : paths) {
            const std::string full = text::utf8(path);
            result.push_back({full.substr(full.find_last_of("/\\") + 1), full, provider});
        }
    }
    return result;
}

Container findContainer(const std::vector<ProviderPtr>& providers, const std::string& name) {
    auto found = containersOf(providers);
    std::erase_if(found, [&](const Container& c) { return c.name != name && c.path != name; });
    return onlyContainer(std::move(found), name, "klunortredi containers");
}

std::optional<unsigned> pinTriesLeft(const IProvider& provider, const std::wstring& container) {
    unsigned error = 0;
    const orvik::plugin::wincrypt::HCRYPTPROV context(container, provider.name(), provider.type(), capi::CRYPT_SILENT,
                                                      &error);
    if (context.get() == 0) {
        return std::nullopt;
    }
    const auto left = orvik::plugin::wincrypt::tools::param(context.get(), capi::PP_PIN_TRIES_REMAINING);
    return left ? std::optional<unsigned>(*left) : std::nullopt;
}

} // namespace klunortredi::cli
