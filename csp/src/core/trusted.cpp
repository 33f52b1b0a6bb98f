#include "core/trusted.hpp"

#include "core/error.hpp"
#include "core/warning.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace klunortredi::csp::files {

namespace {

[[noreturn]] void refuse(const std::string& why) {
    notice(why);
    fail(capi::ERROR_ACCESS_DENIED);
}

bool writableByOthers(const struct stat& status) {
    const bool privateGroup = status.st_gid == status.st_uid;
    return (status.st_mode & S_IWOTH) != 0 || ((status.st_mode & S_IWGRP) != 0 && !privateGroup);
}

} // namespace

void requireTrusted(const std::filesystem::path& path) {
    constexpr uid_t root = 0;
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return;
    }
    if (status.st_uid != geteuid() && status.st_uid != root) {
        refuse("refused: " + path.string() + " belongs to another user (number " + std::to_string(status.st_uid) +
               "); give it to yourself with chown, or name another folder in KLUNORTREDI_HOME");
    }
    if (writableByOthers(status)) {
        refuse("refused: other users may write " + path.string() + "; see who changed it, then run chmod go-w " +
               path.string());
    }
}

} // namespace klunortredi::csp::files
