#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/optional.hpp>

#include <string_view>

namespace orvik::plugin::internal {

/// The value of `key` in the user's configuration file; nothing when file or key are not there. The last line wins.
boost::optional<boost::filesystem::path> configuredPath(std::string_view key);

} // namespace orvik::plugin::internal
