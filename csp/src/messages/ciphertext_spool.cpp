#include "messages/ciphertext_spool.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <utility>

namespace klunortredi::csp {

namespace {

constexpr std::size_t chunk = 256U << 10U;

/// A file without a name in `folder`; an empty descriptor and errno when that fails.
files::Descriptor unnamedFile(const std::string& folder) {
    constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): the interface of the system
    files::Descriptor file(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC | O_EXCL, ownerOnly));
    if (file || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) {
        return file;
    }
    std::string name = folder + "/klunortredi-XXXXXX"; // a file system without unnamed files
    files::Descriptor named(::mkostemp(name.data(), O_CLOEXEC));
    if (named) {
        ::unlink(name.c_str());
    }
    return named;
}

/// The folder that the user names; /var/tmp, which is on a disk where /tmp may be memory; /tmp.
files::Descriptor openSpoolFile() {
    const char* const chosen = ::secure_getenv("TMPDIR");
    int firstError = 0;
    for (const char* const folder : std::array{chosen, "/var/tmp", "/tmp"}) {
        if (folder == nullptr || *folder == '\0') {
            continue;
        }
        files::Descriptor file = unnamedFile(folder);
        if (file) {
            return file;
        }
        firstError = firstError == 0 ? errno : firstError;
    }
    fail(files::errorCode(firstError));
}

} // namespace

void CiphertextSpool::append(ByteView piece) {
    if (!file_ && piece.size() > memoryLimit - memory_.size()) {
        moveToFile();
    }
    if (!file_) {
        memory_.insert(memory_.end(), piece.begin(), piece.end());
        return;
    }
    if (memory_.size() + piece.size() >= chunk) { // small pieces are gathered
        write(memory_);
        memory_.clear();
    }
    if (piece.size() >= chunk) {
        write(piece);
    } else {
        memory_.insert(memory_.end(), piece.begin(), piece.end());
    }
}

void CiphertextSpool::moveToFile() {
    file_ = openSpoolFile();
    write(memory_);
    memory_.clear();
    memory_.shrink_to_fit();
    memory_.reserve(chunk);
}

void CiphertextSpool::write(ByteView piece) {
    while (!piece.empty()) {
        const ssize_t written = ::pwrite(file_.get(), piece.data(), piece.size(), static_cast<off_t>(fileSize_));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            fail(files::errorCode(written == 0 ? ENOSPC : errno));
        }
        fileSize_ += static_cast<std::uint64_t>(written);
        piece = piece.subspan(static_cast<std::size_t>(written));
    }
}

void CiphertextSpool::replay(const std::function<void(ByteView)>& sink) const {
    Bytes buffer(fileSize_ == 0 ? 0 : chunk);
    for (std::uint64_t at = 0; at < fileSize_;) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), fileSize_ - at));
        const ssize_t got = ::pread(file_.get(), buffer.data(), wanted, static_cast<off_t>(at));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            fail(files::errorCode(got == 0 ? EIO : errno));
        }
        sink(ByteView(buffer).first(static_cast<std::size_t>(got)));
        at += static_cast<std::uint64_t>(got);
    }
    for (ByteView rest = memory_; !rest.empty();) {
        const ByteView piece = rest.first(std::min(rest.size(), chunk));
        sink(piece);
        rest = rest.subspan(piece.size());
    }
}

void CiphertextSpool::clear() noexcept {
    memory_ = Bytes{};
    file_ = files::Descriptor();
    fileSize_ = 0;
}

} // namespace klunortredi::csp
