#pragma once

/// The containers of the embedded service, as the command speaks of them.

#include "core/error.hpp"
#include "core/secret.hpp"
#include "keys/container.hpp"
#include "keys/providers.hpp"
#include "pin_source.hpp"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace klunortredi::admin {

/// All containers, by provider in its order and by name; `provider` (part of a name, or a type number) chooses. Throws
/// cli::Failure (exit 4) when none matches.
std::vector<csp::ContainerId> allContainers(const std::string& provider);

/// The one container of that plain or qualified name. Throws cli::Failure: none (exit 1), one in each of several
/// providers (exit 2).
csp::ContainerId findContainer(const std::string& name, const std::string& provider);

const csp::ProviderRecord& providerOf(const csp::ContainerId& id);

/// The fields by which every document of the command names a container.
nlohmann::ordered_json describe(const csp::ContainerId& id);

/// Whether a container that could not be read is damaged: not when it was deleted meanwhile, may not be read, or the
/// machine lacks something.
bool isDamage(const csp::ApiError& error);

/// "exchange" and "signature".
std::vector<std::string> keyNames(const csp::Container& container);
/// SHA-1 of a certificate in hexadecimal.
std::string certificateThumbprint(csp::ByteView certificate);
/// SHA-1 of the certificate beside a key in hexadecimal; empty when there is none.
std::string certificateThumbprint(const csp::Container& container);

/// Asks for the PIN that a container is to have. Throws cli::Failure: as PinSource::askNew, or a PIN that no login
/// could give (exit 2).
csp::Secret askNewPin(cli::PinSource& pin, const csp::ContainerId& id);

/// Asks for the PIN, where the container has one, and opens it. Throws cli::Failure (exit 6 for a PIN that is wrong,
/// with the tries left, or locked).
csp::UnlockedKeys unlock(csp::Container& container, cli::PinSource& pin, const std::string& what);

} // namespace klunortredi::admin
