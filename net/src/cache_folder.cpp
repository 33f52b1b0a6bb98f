#include "cache_folder.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace klunortredi::net {

namespace {

constexpr std::string_view temporaryPrefix = "new-";
constexpr std::string_view lockPrefix = "lock-";
constexpr std::time_t staleSeconds = 3600;     // no writer takes so long
constexpr std::size_t mostFilesSeen = 100'000; // of a folder that others have filled
constexpr std::chrono::milliseconds lockPause{20};

bool isOurs(int fd) {
    struct stat status {};
    return ::fstat(fd, &status) == 0 && status.st_uid == ::geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool writeAll(int fd, const std::string& octets) {
    std::size_t done = 0;
    while (done < octets.size()) {
        const auto count = ::write(fd, octets.data() + done, octets.size() - done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(count);
    }
    return ::fsync(fd) == 0;
}

std::string temporaryName() {
    static std::atomic<unsigned> counter{0};
    return std::string(temporaryPrefix) + std::to_string(::getpid()) + "-" + std::to_string(counter++) + "-" +
           std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
}

struct File {
    std::string name;
    std::time_t written;
    std::size_t octets;
};

/// Regular files of the folder, except locks.
std::vector<File> files(int folder) {
    std::vector<File> found;
    const int copy = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(copy < 0 ? nullptr : ::fdopendir(copy), ::closedir);
    if (!directory) {
        if (copy >= 0) {
            ::close(copy);
        }
        return found;
    }
    for (std::size_t seen = 0; seen < mostFilesSeen; ++seen) {
        const dirent* const entry = ::readdir(directory.get());
        if (entry == nullptr) {
            break;
        }
        const std::string name = entry->d_name;
        struct stat status {};
        if (!name.starts_with(lockPrefix) && ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(status.st_mode)) {
            found.push_back({name, status.st_mtime, static_cast<std::size_t>(status.st_size)});
        }
    }
    return found;
}

} // namespace

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Descriptor::~Descriptor() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

FolderLock::FolderLock(Descriptor file) noexcept : file_(std::move(file)), owner_(::getpid()) {}

FolderLock::~FolderLock() {
    if (file_ && owner_ == ::getpid()) { // a forked child shares the lock, and does not end it
        ::flock(file_.get(), LOCK_UN);
    }
}

std::optional<CacheFolder> CacheFolder::open(const std::filesystem::path& path) {
    std::error_code error;
    if (path.empty()) {
        return std::nullopt;
    }
    if (!std::filesystem::exists(path, error)) {
        std::filesystem::create_directories(path.parent_path(), error);
        ::mkdir(path.c_str(), S_IRWXU); // another process may have been first
    }
    Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder || !isOurs(folder.get())) {
        return std::nullopt;
    }
    return CacheFolder(std::move(folder));
}

std::optional<std::string> CacheFolder::read(const std::string& name, std::size_t limit) const {
    const Descriptor file(::openat(folder_.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || !isOurs(file.get()) ||
        static_cast<std::size_t>(status.st_size) > limit) {
        return std::nullopt;
    }
    std::string octets(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t done = 0;
    while (done < octets.size()) {
        const auto count = ::read(file.get(), octets.data() + done, octets.size() - done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return std::nullopt;
        }
        done += static_cast<std::size_t>(count);
    }
    return octets;
}

void CacheFolder::write(const std::string& name, const std::string& octets) const {
    const std::string temporary = temporaryName();
    bool done = false;
    {
        const Descriptor file(
            ::openat(folder_.get(), temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
        if (!file) {
            return;
        }
        done = writeAll(file.get(), octets);
    }
    if (!done || ::renameat(folder_.get(), temporary.c_str(), folder_.get(), name.c_str()) != 0) {
        ::unlinkat(folder_.get(), temporary.c_str(), 0);
    }
}

void CacheFolder::evict(std::size_t entries, std::size_t octets) const {
    auto kept = files(folder_.get());
    const std::time_t now = std::time(nullptr);
    std::erase_if(kept, [&](const File& file) {
        const bool temporary = file.name.starts_with(temporaryPrefix);
        if (temporary && file.written < now - staleSeconds) {
            ::unlinkat(folder_.get(), file.name.c_str(), 0);
        }
        return temporary;
    });
    std::ranges::sort(kept, {}, &File::written);
    std::size_t total = 0;
    for (const auto& file : kept) {
        total += file.octets;
    }
    for (std::size_t i = 0; i < kept.size() && (kept.size() - i > entries || total > octets); ++i) {
        ::unlinkat(folder_.get(), kept[i].name.c_str(), 0);
        total -= kept[i].octets;
    }
}

std::optional<FolderLock> CacheFolder::lock(const std::string& name, std::chrono::milliseconds timeout) const {
    const std::string file = std::string(lockPrefix) + name;
    Descriptor opened(
        ::openat(folder_.get(), file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (opened) {
        if (::flock(opened.get(), LOCK_EX | LOCK_NB) == 0) {
            return FolderLock(std::move(opened));
        }
        if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() >= deadline) {
            break;
        }
        std::this_thread::sleep_for(lockPause);
    }
    return std::nullopt;
}

} // namespace klunortredi::net
