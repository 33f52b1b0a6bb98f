#include "leftover.hpp"

#include "failure.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace klunortredi::cli {

namespace {

/// How many names the open file has: 0 once it was removed.
nlink_t names(int fd) {
    struct stat status {};
    return ::fstat(fd, &status) == 0 ? status.st_nlink : 0;
}

} // namespace

std::optional<Leftover> Leftover::find(const std::string& name) {
    // Without O_NONBLOCK a pipe of that name would wait for a writer.
    const int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0 && errno == ENOENT) {
        return std::nullopt;
    }
    if (fd < 0) {
        throw fileFailure("cannot look at " + name, errno);
    }
    Leftover found(name, fd);
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        throw fileFailure("cannot look at " + name, errno);
    }
    if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid()) {
        throw Failure(ExitCode::input, "cannot use " + name,
                      S_ISREG(status.st_mode) ? "it belongs to another user" : "it is not a regular file",
                      "remove it, or write to another folder", EEXIST);
    }
    if (!lockFile(fd)) {
        throw Failure(ExitCode::input, "cannot write " + name, "another process is writing it", "try again", EBUSY);
    }
    // Whoever had it may have finished since.
    return names(fd) == 0 ? std::nullopt : std::optional<Leftover>(std::move(found));
}

Leftover::Leftover(Leftover&& other) noexcept : name_(std::move(other.name_)), fd_(std::exchange(other.fd_, -1)) {}

Leftover::~Leftover() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

bool Leftover::published() const {
    return names(fd_) > 1;
}

std::string Leftover::content(std::size_t limit) const {
    std::string octets(limit, '\0');
    const ssize_t count = ::pread(fd_, octets.data(), octets.size(), 0);
    octets.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return octets;
}

void Leftover::remove() const {
    ::unlink(name_.c_str());
}

bool lockFile(int fd) {
    return ::flock(fd, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

} // namespace klunortredi::cli
