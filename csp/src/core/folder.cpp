#include "core/folder.hpp"

#include "capi/constants.hpp"
#include "capi/skipped_entries.hpp"
#include "core/error.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <memory>
#include <string_view>

namespace klunortredi::csp::files {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t nanosecondsOfSecond = 1'000'000'000;
/// The kernel stamps files with the time of its last tick, at most 10 ms ago; five times that.
constexpr std::int64_t tick = 50'000'000;
/// Some file systems keep whole seconds, or even ones (FAT).
constexpr std::int64_t coarseTick = 2 * nanosecondsOfSecond;

std::int64_t nanoseconds(const timespec& time) {
    return time.tv_sec * nanosecondsOfSecond + time.tv_nsec;
}

struct CloseFolder {
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

DIR* openFolder(const fs::path& folder) {
    DIR* opened = ::opendir(folder.c_str());
    while (opened == nullptr && errno == EINTR) {
        opened = ::opendir(folder.c_str());
    }
    return opened;
}

/// Null at the end. A read that a signal interrupted is repeated.
const dirent* nextEntry(DIR* folder) {
    while (true) {
        errno = 0;
        const dirent* const entry = ::readdir(folder); // NOLINT(concurrency-mt-unsafe): the stream is this call's own
        if (entry != nullptr || errno == 0) {
            return entry;
        }
        if (errno != EINTR) {
            fail(readErrorCode(errno));
        }
    }
}

} // namespace

DWORD readErrorCode(int errnoValue) noexcept {
    switch (errnoValue) {
    case EMFILE:
    case ENFILE:
        return capi::ERROR_TOO_MANY_OPEN_FILES;
    case ENOMEM:
        return capi::ERROR_NOT_ENOUGH_MEMORY;
    case EACCES:
    case EPERM:
        return capi::ERROR_ACCESS_DENIED;
    case ENOENT:
        return capi::ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
        return capi::ERROR_PATH_NOT_FOUND;
    default:
        return capi::ERROR_READ_FAULT;
    }
}

std::vector<std::string> names(const fs::path& folder) {
    const std::unique_ptr<DIR, CloseFolder> opened(openFolder(folder));
    if (!opened) {
        if (errno == ENOENT) {
            return {};
        }
        fail(readErrorCode(errno));
    }
    std::vector<std::string> found;
    while (const dirent* const entry = nextEntry(opened.get())) {
        const std::string_view name(entry->d_name);
        if (name != "." && name != "..") {
            found.emplace_back(name);
        }
    }
    return found;
}

std::optional<Stamp> stampOf(const fs::path& file) {
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        fail(readErrorCode(errno));
    }
    return Stamp{status.st_dev, status.st_ino, nanoseconds(status.st_mtim), nanoseconds(status.st_ctim)};
}

std::optional<Stamp> advanceStamp(const fs::path& folder, const Stamp& before) {
    const auto now = stampOf(folder);
    if (!now) {
        return now;
    }
    const std::int64_t later = std::max(now->modified, before.modified) + 1;
    const timespec modified{static_cast<std::time_t>(later / nanosecondsOfSecond), later % nanosecondsOfSecond};
    const timespec times[]{{0, UTIME_OMIT}, modified};
    // Refused, for example on a file system without times: then `mayChangeUnseen` makes every user look again.
    static_cast<void>(!::utimensat(AT_FDCWD, folder.c_str(), times, 0));
    return stampOf(folder);
}

bool mayChangeUnseen(const Stamp& stamp) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t latest = std::max(stamp.modified, stamp.changed);
    const bool coarse = stamp.modified % nanosecondsOfSecond == 0;
    return nanoseconds(now) - latest < (coarse ? coarseTick : tick);
}

} // namespace klunortredi::csp::files
