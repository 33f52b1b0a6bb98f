#pragma once

#include "core/bytes.hpp"
#include "keys/container_name.hpp"

namespace klunortredi::admin {

/// Puts the certificate into store "my", linked to the container's exchange key as an installation links it. One of the
/// same issuer and serial number is replaced.
void linkInStoreMy(csp::ByteView certificate, const csp::ContainerId& id);

} // namespace klunortredi::admin
