#pragma once

/// Where containers lie, and what is left there by processes that were killed.

#include "core/files.hpp"
#include "keys/container_name.hpp"

#include <filesystem>

namespace klunortredi::csp {

std::filesystem::path containersDirectory();
std::filesystem::path containerDirectory(const ContainerId& id);
/// Where the container is built before it is renamed into place.
std::filesystem::path draftDirectory(const ContainerId& id);
/// A name that nothing has, for a container on its way out. Nothing is made: a full disk must not keep it.
std::filesystem::path newGrave();

/// Held while a name is looked up and reserved, and while a container comes under its name: whoever looks sees one of
/// the two. The folder must be there.
files::Lock lockNames();

/// Call with the lock on names held. Removes drafts that nobody is making any more, and deleted containers of which
/// something is left.
void sweepContainers();

} // namespace klunortredi::csp
