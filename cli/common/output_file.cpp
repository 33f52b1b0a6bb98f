#include "output_file.hpp"

#include "failure.hpp"
#include "leftover.hpp"
#include "same_file.hpp"
#include "standard_descriptors.hpp"
#include "write_all.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace klunortredi::cli {

namespace {

std::string folderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

/// A name of a pipe, a device or a terminal. A file is not written to directly, even when standard output goes there.
bool isStream(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

/// What the name of an unfinished file ends with, where it must have one.
constexpr const char* meanwhile = ".unfinished";

/// Octets after which the disk is set to work, so that little is left to wait for at the end.
constexpr std::uint64_t writeBackStep = 8U << 20U;

} // namespace

OutputFile::OutputFile(std::string path, bool force, Readers readers)
    : path_(std::move(path)), readers_(readers), force_(force) {
    if (isStream(path_) && isStandardOutput(path_)) {
        path_ = "-";
    }
    if (path_ == "-") {
        if (standardOutputWasClosed()) {
            fail(EBADF);
        }
        fd_ = STDOUT_FILENO;
        direct_ = true;
        return;
    }
    inspectTarget();
    if (direct_) {
        openStream();
        return;
    }
    open();
}

void OutputFile::openStream() {
    fd_ = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    struct stat status {};
    if (fd_ < 0 || ::fstat(fd_, &status) != 0) {
        fail(errno);
    }
    if (S_ISREG(status.st_mode)) { // put there since it was looked at: its octets are somebody's
        ::close(fd_);
        fail(EEXIST);
    }
}

void OutputFile::inspectTarget() {
    struct stat status {};
    const bool there = ::stat(path_.c_str(), &status) == 0;
    if (there && S_ISDIR(status.st_mode)) {
        fail(EISDIR);
    }
    direct_ = there && !S_ISREG(status.st_mode);
    struct stat named {};
    if (!direct_ && ::lstat(path_.c_str(), &named) == 0 && S_ISLNK(named.st_mode)) {
        // Replacing the link leaves the old file where the user looks for the new one; following it writes a file that
        // whoever made the link chose.
        throw Failure(ExitCode::input, "cannot write " + path_, "it is a symbolic link",
                      "name the file that it leads to", EEXIST);
    }
    if (there && !direct_ && !force_) {
        throw Failure(ExitCode::input, "cannot write " + path_, "it is there already", "--force replaces it", EEXIST);
    }
}

OutputFile::~OutputFile() {
    if (!temporary_.empty()) {
        ::unlink(temporary_.c_str()); // while the lock is held: afterwards the name may be another process's
    }
    if (fd_ >= 0 && fd_ != STDOUT_FILENO) {
        ::close(fd_);
    }
}

void OutputFile::write(std::string_view octets) {
    if (const int error = writeAll(fd_, octets); error != 0) {
        fail(error);
    }
    size_ += octets.size();
    if (!direct_ && size_ - writtenBack_ >= writeBackStep) {
        // A hint: what comes of it is seen by the final fsync.
        ::sync_file_range(fd_, static_cast<off64_t>(writtenBack_), static_cast<off64_t>(size_ - writtenBack_),
                          SYNC_FILE_RANGE_WRITE);
        writtenBack_ = size_;
    }
}

void OutputFile::commit() {
    if (!direct_ && ::fsync(fd_) != 0) {
        fail(errno);
    }
    publish();
    syncFolder();
}

void OutputFile::syncFolder() const {
    if (direct_) {
        return;
    }
    const int folder = ::open(folderOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // A folder with write permission and without read permission cannot be opened: its file system can be synchronised.
    const bool lasts = folder < 0 ? ::syncfs(fd_) == 0 : ::fsync(folder) == 0 || errno == EINVAL || errno == ENOTSUP;
    const int error = errno;
    if (folder >= 0) {
        ::close(folder);
    }
    if (lasts) {
        return;
    }
    if (!force_) {
        ::unlink(path_.c_str());
    }
    fail(error);
}

void OutputFile::syncFileSystem() const {
    if (!direct_ && ::syncfs(fd_) != 0) {
        fail(errno);
    }
}

std::uint64_t OutputFile::fileSystem() const {
    struct stat status {};
    if (direct_) {
        return 0;
    }
    if (::fstat(fd_, &status) != 0) {
        fail(errno);
    }
    return status.st_dev;
}

void OutputFile::nameMeanwhile(const std::string& name) {
    if (direct_) {
        return;
    }
    if (const auto left = Leftover::find(name)) {
        left->remove();
    }
    if (temporary_.empty()) {
        const std::string link = "/proc/self/fd/" + std::to_string(fd_);
        if (::linkat(AT_FDCWD, link.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0) {
            fail(errno);
        }
    } else if (std::rename(temporary_.c_str(), name.c_str()) != 0) {
        fail(errno);
    }
    temporary_ = name;
}

void OutputFile::open() {
    const mode_t mode = readers_ == Readers::ownerOnly ? 0600 : 0666;
    // A file without a name leaves nothing behind, whatever ends the process.
    fd_ = ::open(folderOf(path_).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, mode);
    if (fd_ < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
        const std::string name = path_ + meanwhile;
        if (const auto left = Leftover::find(name)) {
            left->remove();
        }
        fd_ = ::open(name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, mode);
        temporary_ = fd_ < 0 ? std::string{} : name;
    }
    if (fd_ < 0 || !lockFile(fd_)) {
        fail(errno);
    }
}

void OutputFile::publish() {
    if (direct_) {
        return;
    }
    if (temporary_.empty()) {
        const std::string link = "/proc/self/fd/" + std::to_string(fd_);
        if (::linkat(AT_FDCWD, link.c_str(), AT_FDCWD, path_.c_str(), AT_SYMLINK_FOLLOW) == 0) {
            return;
        }
        if (errno != EEXIST || !force_) {
            fail(errno);
        }
        // A link cannot replace a file, a rename can.
        nameMeanwhile(path_ + meanwhile);
    }
    rename();
    temporary_.clear();
}

void OutputFile::rename() const {
    if (force_) {
        if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
            fail(errno);
        }
        return;
    }
    if (::renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, path_.c_str(), RENAME_NOREPLACE) == 0) {
        return;
    }
    // Not every file system can do that in one step.
    if (errno != EINVAL || ::link(temporary_.c_str(), path_.c_str()) != 0) {
        fail(errno);
    }
    ::unlink(temporary_.c_str());
}

void OutputFile::fail(int error) const {
    throw fileFailure("cannot write " + (path_ == "-" ? std::string("standard output") : path_), error);
}

} // namespace klunortredi::cli
