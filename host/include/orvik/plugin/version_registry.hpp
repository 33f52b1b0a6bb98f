#pragma once

#include "orvik/plugin/export.hpp"

#include <string>

namespace orvik::plugin {

class ORVIK_EXPORT VersionRegistry {
public:
    /// Name and version of the operating system, UTF-8 (for example "Linux 6.1.0").
    static std::string os();
    /// Version of this software ("0.1.0").
    static std::string product();
};

} // namespace orvik::plugin
