#include "orvik/plugin/version_registry.hpp"

#include "utf8.hpp"

#include <array>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <sys/utsname.h>

namespace orvik::plugin {

namespace {

// os-release(5): the first that can be read.
constexpr std::array releaseFiles = {"/etc/os-release", "/usr/lib/os-release"};
constexpr std::string_view prettyName = "PRETTY_NAME=";

/// Name and version of the distribution; empty when the system does not tell.
std::string distribution() {
    for (const char* name : releaseFiles) {
        std::ifstream file(name);
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with(prettyName)) {
                std::istringstream quoted(line.substr(prettyName.size()));
                std::string value;
                quoted >> std::quoted(value);
                return value;
            }
        }
    }
    return {};
}

} // namespace

std::string VersionRegistry::os() {
    utsname kernel{};
    if (uname(&kernel) != 0) {
        return internal::asUtf8(distribution());
    }
    const std::string release = distribution();
    return internal::asUtf8((release.empty() ? "" : release + ", ") + kernel.sysname + " " + kernel.release);
}

std::string VersionRegistry::product() {
    return KLUNORTREDI_VERSION;
}

} // namespace orvik::plugin
