#pragma once

/// Where containers lie, and what is left there by processes that were killed.

#include "keys/container_name.hpp"

#include <filesystem>

namespace klunortredi::csp {

std::filesystem::path containersDirectory();
std::filesystem::path containerDirectory(const ContainerId& id);
/// Where the container is built before it is renamed into place.
std::filesystem::path draftDirectory(const ContainerId& id);
/// A new empty directory for a container on its way out.
std::filesystem::path newGraveDirectory();

/// Removes drafts that nobody is making any more, and deleted containers of which something is left.
void sweepContainers();

} // namespace klunortredi::csp
