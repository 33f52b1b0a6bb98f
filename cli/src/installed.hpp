#pragma once

/// The providers of the installed service, and their key containers.

#include "orvik/plugin/crypto/i_provider.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <optional>
#include <string>
#include <vector>

namespace klunortredi::cli {

using ProviderPtr = boost::shared_ptr<orvik::plugin::crypto::IProvider>;

/// Every installed provider. Throws Failure (exit 4) when no service is installed.
std::vector<ProviderPtr> installedProviders();

/// The provider that `name` means (its name, a part of it, or the type number); with an empty name the first that makes
/// GOST R 34.10-2012 keys of 256 bits, else the first. Throws Failure: none (exit 4), several (exit 2).
ProviderPtr chooseProvider(const std::string& name);

/// A key container and what it holds.
struct Container {
    std::string name; ///< plain name
    std::string path; ///< fully qualified name
    ProviderPtr provider;
};

/// The containers of the given providers.
std::vector<Container> containersOf(const std::vector<ProviderPtr>& providers);

/// The one container of that plain or fully qualified name. Throws Failure: none (exit 1), one in each of several
/// providers (exit 2).
Container findContainer(const std::vector<ProviderPtr>& providers, const std::string& name);

/// PIN attempts left before the container locks; none when the service does not tell.
std::optional<unsigned> pinTriesLeft(const orvik::plugin::crypto::IProvider& provider, const std::wstring& container);

} // namespace klunortredi::cli
