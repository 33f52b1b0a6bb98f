#pragma once

#include <boost/filesystem/path.hpp>

namespace orvik::plugin::internal {

/// The library of the embedded service, looked for around this library; empty when it is not installed.
boost::filesystem::path embeddedService();

} // namespace orvik::plugin::internal
