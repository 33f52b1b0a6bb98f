#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

#include <sys/types.h>

namespace klunortredi::net {

/// Owner of a file descriptor.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&&) = delete;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();
    [[nodiscard]] int get() const noexcept { return fd_; }
    [[nodiscard]] explicit operator bool() const noexcept { return fd_ >= 0; }

private:
    int fd_;
};

/// An exclusive lock across processes and threads, until destroyed.
class FolderLock {
public:
    explicit FolderLock(Descriptor file) noexcept;
    FolderLock(FolderLock&&) noexcept = default;
    FolderLock& operator=(FolderLock&&) = delete;
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;
    ~FolderLock();

private:
    Descriptor file_;
    pid_t owner_;
};

/// The files of a cache. Everything is done relative to the opened folder, and no symbolic link is followed.
class CacheFolder {
public:
    /// Opens the folder, creating it (mode 0700) with its missing parents. Returns nullopt when that fails, or when it
    /// belongs to another user or others can write into it.
    static std::optional<CacheFolder> open(const std::filesystem::path& path);

    /// The file's octets; nullopt when there is none, or one larger than `limit`.
    [[nodiscard]] std::optional<std::string> read(const std::string& name, std::size_t limit) const;
    /// Replaces the file: temporary file, synchronised, renamed. Does nothing when that fails.
    void write(const std::string& name, const std::string& octets) const;
    /// Removes the entries written first until no more than `entries` of `octets` together are left, and old temporary
    /// files.
    void evict(std::size_t entries, std::size_t octets) const;
    /// Takes the lock of that name. Returns nullopt when another holder keeps it longer than `timeout`, or when there
    /// cannot be a lock.
    [[nodiscard]] std::optional<FolderLock> lock(const std::string& name, std::chrono::milliseconds timeout) const;

private:
    explicit CacheFolder(Descriptor folder) noexcept : folder_(std::move(folder)) {}
    Descriptor folder_;
};

} // namespace klunortredi::net
