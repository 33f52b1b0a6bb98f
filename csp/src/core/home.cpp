#include "core/home.hpp"

#include "core/error.hpp"
#include "core/trusted.hpp"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <optional>

namespace klunortredi::csp {

namespace {

std::optional<std::filesystem::path> fromEnvironment(const char* name) {
    const char* const value = ::secure_getenv(name);
    return value == nullptr || *value == '\0' ? std::nullopt : std::optional<std::filesystem::path>(value);
}

std::filesystem::path homeOfUser() {
    if (const auto home = fromEnvironment("HOME")) {
        return *home;
    }
    constexpr std::size_t recordSize = 16384; // generous for a line of the user database
    std::array<char, recordSize> buffer{};
    passwd record{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &record, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
        fail(capi::ERROR_FILE_NOT_FOUND);
    }
    return record.pw_dir;
}

std::filesystem::path namedDirectory() {
    if (const auto own = fromEnvironment("KLUNORTREDI_HOME")) {
        return std::filesystem::absolute(*own); // what is open stays open when the process changes its directory
    }
    // XDG directories are absolute by definition; a relative one is to be ignored.
    if (const auto data = fromEnvironment("XDG_DATA_HOME"); data && data->is_absolute()) {
        return *data / "klunortredi";
    }
    return homeOfUser() / ".local" / "share" / "klunortredi";
}

} // namespace

std::filesystem::path dataDirectory() {
    std::filesystem::path directory = namedDirectory();
    files::requireTrusted(directory);
    return directory;
}

} // namespace klunortredi::csp
