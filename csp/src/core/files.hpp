#pragma once

/// Files that are there complete or not at all, also after a crash, a full disk or a power cut.

#include "core/bytes.hpp"
#include "core/error.hpp"

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace klunortredi::csp::files {

/// The CryptoAPI code of an errno value: ENOSPC and EDQUOT are ERROR_DISK_FULL, EACCES and its like
/// ERROR_ACCESS_DENIED, ENOENT ERROR_FILE_NOT_FOUND, ENOTDIR ERROR_PATH_NOT_FOUND, anything else ERROR_WRITE_FAULT.
DWORD errorCode(int errnoValue) noexcept;

/// Whether a code of `errorCode`, `readErrorCode` or of a lock says that the disk, the rights or the limits of the
/// process were in the way: it says nothing about what a file holds.
bool isAccessError(DWORD code) noexcept;

/// Owner of a file descriptor.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();

    [[nodiscard]] int get() const noexcept { return fd_; }
    [[nodiscard]] explicit operator bool() const noexcept { return fd_ >= 0; }

private:
    int fd_;
};

/// A directory opened before a change of its entries, so that the change is refused where it could not be made to last.
class Directory {
public:
    /// Throws ApiError.
    explicit Directory(const std::filesystem::path& path);
    /// Makes the directory's entries last through a power cut. False, with errno, when the disk reports an error; a
    /// file system that cannot synchronise directories has nothing to report.
    [[nodiscard]] bool sync() const noexcept;
    /// Whether `path` names this very directory, however it was renamed since. While this object lives, no other one
    /// can be taken for it.
    [[nodiscard]] bool isAt(const std::filesystem::path& path) const noexcept;

private:
    Descriptor fd_;
};

/// Creates the directory and its missing parents, the new ones with mode 0700 and on disk.
void makeDirectories(const std::filesystem::path& directory);

/// The contents; nullopt when there is no such file. What is above `limit` octets or not a file (a FIFO, a device) is
/// refused with ERROR_INVALID_DATA, a failed read with the code of folder.hpp's `readErrorCode`.
inline constexpr std::size_t readLimit = 16U << 20U; // far above any key, certificate or list kept here
std::optional<Bytes> read(const std::filesystem::path& file, std::size_t limit = readLimit);

/// Replaces or creates `file` (mode 0600): written under a temporary name in the same directory, synchronised, renamed,
/// the directory synchronised. On failure the old contents stand and the temporary file is gone. False when the disk
/// fails in the last step: the new contents are there, and a power cut may bring the old ones back.
[[nodiscard]] bool replaceAtomically(const std::filesystem::path& file, ByteView contents);
/// The same, with ApiError instead of false: for changes that may be made again.
void writeAtomically(const std::filesystem::path& file, ByteView contents);

/// Removes a file and synchronises its directory. False when it was not there. Throws ApiError; after a failure of the
/// synchronising alone the file is gone, and a power cut may bring it back.
bool removeDurably(const std::filesystem::path& file);

/// Paths of the directory's entries; none when it is not there. Throws ApiError when it cannot be read.
std::vector<std::filesystem::path> entries(const std::filesystem::path& directory);

/// Whether a name is of a file that is being written, or was left by a killed writer.
bool isTemporary(const std::string& name);

/// Removes what killed writers left in `directory`. Call with the lock held that the writers hold.
void removeStaleTemporaries(const std::filesystem::path& directory);

/// Removes the directory's entries that are `unwanted`, as far as that goes: it is never worth a failure.
void removeFiles(const std::filesystem::path& directory,
                 const std::function<bool(const std::filesystem::path&)>& unwanted);

/// Far above what any holder needs on a loaded machine: a PIN takes a second or two, and several may wait in line.
inline constexpr std::chrono::milliseconds lockTimeLimit{120'000};

/// Advisory exclusive lock (flock) on a file or directory, across processes and threads, until destroyed. A process
/// forked meanwhile does not hold it any longer than that.
class Lock {
public:
    /// Waits for the lock. Throws ApiError: ERROR_FILE_NOT_FOUND when `path` is not there, or goes while waiting;
    /// ERROR_BUSY when another holder keeps it longer than `limit`, with a warning that names the process.
    explicit Lock(const std::filesystem::path& path, std::chrono::milliseconds limit = lockTimeLimit);
    Lock(Lock&&) noexcept = default;
    Lock& operator=(Lock&& other) noexcept;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock();
    /// Nothing when somebody else holds it.
    static std::optional<Lock> tryTake(const std::filesystem::path& path);

private:
    explicit Lock(Descriptor fd) noexcept;
    Descriptor fd_;
    pid_t owner_;
};

/// A mark that this process works with a directory, visible to other processes until it is destroyed or the process
/// dies. Any number may be there at a time; nothing is written. Where the file system has no such locks, none is seen.
class Presence {
public:
    /// Throws ApiError when the directory cannot be opened.
    explicit Presence(const std::filesystem::path& directory);
    Presence(Presence&&) noexcept = default;
    Presence& operator=(Presence&&) = delete;
    Presence(const Presence&) = delete;
    Presence& operator=(const Presence&) = delete;
    ~Presence();
    /// Whether the directory has one. Throws ApiError when it cannot be opened.
    static bool any(const std::filesystem::path& directory);

private:
    Descriptor fd_;
    pid_t owner_;
};

} // namespace klunortredi::csp::files
