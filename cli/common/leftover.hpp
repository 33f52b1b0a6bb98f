#pragma once

/// Files under a temporary name, which a killed process leaves behind.

#include <cstddef>
#include <optional>
#include <string>

namespace klunortredi::cli {

/// A file under a temporary name whose process is gone. Whoever writes such a file holds flock(2) on it meanwhile, so
/// that it can be told from one that is still being written.
class Leftover {
public:
    /// Looks for one under that name. Throws Failure (exit 3) while a living process writes it, when it cannot be
    /// looked at, and for what this user's commands do not leave: another user's file, a link, a folder, a pipe or a
    /// device.
    static std::optional<Leftover> find(const std::string& name);

    Leftover(Leftover&& other) noexcept;
    Leftover(const Leftover&) = delete;
    Leftover& operator=(const Leftover&) = delete;
    Leftover& operator=(Leftover&&) = delete;
    ~Leftover();

    /// Whether the file has got its real name too: its process was killed after that.
    [[nodiscard]] bool published() const;
    /// What was written, at most `limit` octets of it; empty when it cannot be read.
    [[nodiscard]] std::string content(std::size_t limit) const;
    /// Takes the temporary name away.
    void remove() const;

private:
    Leftover(std::string name, int fd) : name_(std::move(name)), fd_(fd) {}

    std::string name_;
    int fd_;
};

/// Takes the lock of a file that is being written; false when another process has it. Where the file system knows no
/// locks there is none to be had, and nobody else has it either.
bool lockFile(int fd);

} // namespace klunortredi::cli
