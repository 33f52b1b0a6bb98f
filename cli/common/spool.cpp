#include "spool.hpp"

#include "failure.hpp"
#include "write_all.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

namespace klunortredi::cli {

namespace {

constexpr std::size_t pieceSize = std::size_t{256} * 1024;

std::string temporaryFolder() {
    const char* named = ::secure_getenv("TMPDIR");
    return named != nullptr && *named != '\0' ? named : "/tmp";
}

/// For file systems without files that have no name.
int openAndUnlink(const std::string& folder) {
    std::string name = folder + "/klunortredi.XXXXXX";
    const int fd = ::mkostemp(name.data(), O_CLOEXEC);
    if (fd >= 0) {
        ::unlink(name.c_str());
    }
    return fd;
}

} // namespace

Spool::Spool(std::string what) : what_(std::move(what)), folder_(temporaryFolder()) {
    constexpr int ownerOnly = 0600;
    fd_ = ::open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, ownerOnly);
    if (fd_ < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
        fd_ = openAndUnlink(folder_);
    }
    if (fd_ < 0) {
        fail(errno);
    }
}

Spool::~Spool() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

std::string Spool::path() const {
    return "/proc/self/fd/" + std::to_string(fd_);
}

void Spool::write(std::string_view octets) {
    if (const int error = writeAll(fd_, octets); error != 0) {
        fail(error);
    }
}

void Spool::rewind() const {
    if (::lseek(fd_, 0, SEEK_SET) != 0) {
        fail(errno);
    }
}

std::string_view Spool::next() {
    buffer_.resize(pieceSize);
    ssize_t got = 0;
    do {
        got = ::read(fd_, buffer_.data(), buffer_.size());
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        fail(errno);
    }
    return {buffer_.data(), static_cast<std::size_t>(got)};
}

void Spool::fail(int error) const {
    throw fileFailure("cannot keep " + what_ + " in " + folder_, error);
}

} // namespace klunortredi::cli
