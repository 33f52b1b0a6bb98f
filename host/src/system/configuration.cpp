#include "configuration.hpp"

#include <boost/algorithm/string/trim.hpp>
#include <boost/filesystem/fstream.hpp>

#include <cstdlib>
#include <locale>
#include <string>

namespace orvik::plugin::internal {

namespace {

namespace fs = boost::filesystem;

fs::path fromEnvironment(const char* variable) {
    const char* value = ::secure_getenv(variable);
    return value == nullptr ? fs::path() : fs::path(value);
}

/// By the XDG base directory rules, which have relative paths ignored.
fs::path configurationFile() {
    auto base = fromEnvironment("XDG_CONFIG_HOME");
    if (!base.is_absolute()) {
        base = fromEnvironment("HOME") / ".config";
    }
    return base.is_absolute() ? base / "klunortredi" / "config" : fs::path();
}

std::string trimmed(const std::string& text) {
    return boost::algorithm::trim_copy(text, std::locale::classic());
}

} // namespace

boost::optional<fs::path> configuredPath(std::string_view key) {
    boost::optional<fs::path> found;
    fs::ifstream file(configurationFile());
    for (std::string line; std::getline(file, line);) {
        const auto separator = line.find('=');
        if (separator != std::string::npos && trimmed(line).front() != '#' &&
            trimmed(line.substr(0, separator)) == key) {
            found = fs::path(trimmed(line.substr(separator + 1)));
        }
    }
    return found;
}

} // namespace orvik::plugin::internal
