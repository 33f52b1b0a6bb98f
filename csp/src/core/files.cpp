#include "core/files.hpp"

#include "capi/skipped_entries.hpp"
#include "core/folder.hpp"
#include "core/warning.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

namespace klunortredi::csp::files {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view temporaryMark = ".tmp-";
constexpr mode_t directoryMode = 0700;

[[noreturn]] void failErrno() {
    fail(errorCode(errno));
}

template <class Call>
auto retried(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// A file that goes again unless it is renamed.
class Temporary {
public:
    explicit Temporary(const fs::path& target)
        : path_((target.parent_path() / (std::string(temporaryMark) + "XXXXXX")).string()),
          fd_(mkostemp(path_.data(), O_CLOEXEC)) {
        if (!fd_) {
            failErrno();
        }
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
    ~Temporary() {
        if (!path_.empty()) {
            unlink(path_.c_str());
        }
    }

    void write(ByteView contents) const {
        while (!contents.empty()) {
            const ssize_t written = retried([&] { return ::write(fd_.get(), contents.data(), contents.size()); });
            if (written < 0) {
                failErrno();
            }
            contents = contents.subspan(static_cast<std::size_t>(written));
        }
        if (fsync(fd_.get()) != 0) {
            failErrno();
        }
    }

    void renameTo(const fs::path& target) {
        if (rename(path_.c_str(), target.c_str()) != 0) {
            failErrno();
        }
        path_.clear();
    }

private:
    std::string path_;
    Descriptor fd_;
};

Descriptor openForReading(const fs::path& path) {
    // Without O_NONBLOCK a FIFO of that name would hold the caller for ever; files do not heed it.
    return Descriptor(retried([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
}

/// Whether `path` still names what was opened; a file renamed or removed meanwhile is no longer the one to lock.
bool stillNames(const fs::path& path, int fd) {
    struct stat opened {};
    struct stat named {};
    return fstat(fd, &opened) == 0 && stat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

constexpr std::chrono::milliseconds lockPollInterval{5};

/// Number of the process that holds the flock on the open file, from the kernel's list; "?" when that does not say.
std::string holderOf(int fd) {
    struct stat status {};
    std::ifstream locks("/proc/locks");
    if (fstat(fd, &status) != 0) {
        return "?";
    }
    // 1: FLOCK  ADVISORY  WRITE 1234 08:01:567 0 EOF
    const std::string inode = ':' + std::to_string(status.st_ino);
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number;
        std::string kind;
        std::string mode;
        std::string access;
        std::string process;
        std::string file;
        if (words >> number >> kind >> mode >> access >> process >> file && kind == "FLOCK" && file.ends_with(inode)) {
            return process;
        }
    }
    return "?";
}

/// The process with the name of its command, where that can be read: "1234 (klunortredi)".
std::string named(const std::string& process) {
    std::string command;
    if (process != "?" && std::getline(std::ifstream("/proc/" + process + "/comm"), command) && !command.empty()) {
        return process + " (" + command + ')';
    }
    return process;
}

} // namespace

DWORD errorCode(int errnoValue) noexcept {
    switch (errnoValue) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG: // a size limit of the user
        return capi::ERROR_DISK_FULL;
    case EACCES:
    case EPERM:
    case EROFS:
        return capi::ERROR_ACCESS_DENIED;
    case ENOENT:
        return capi::ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
        return capi::ERROR_PATH_NOT_FOUND;
    default:
        return capi::ERROR_WRITE_FAULT;
    }
}

bool isAccessError(DWORD code) noexcept {
    switch (code) {
    case capi::ERROR_DISK_FULL:
    case capi::ERROR_ACCESS_DENIED:
    case capi::ERROR_FILE_NOT_FOUND:
    case capi::ERROR_PATH_NOT_FOUND:
    case capi::ERROR_WRITE_FAULT:
    case capi::ERROR_READ_FAULT:
    case capi::ERROR_TOO_MANY_OPEN_FILES:
    case capi::ERROR_BUSY:
        return true;
    default:
        return false;
    }
}

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
}

Descriptor::~Descriptor() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

Directory::Directory(const fs::path& path) : fd_(openForReading(path.empty() ? fs::path(".") : path)) {
    if (!fd_) {
        failErrno();
    }
}

bool Directory::sync() const noexcept {
    return fsync(fd_.get()) == 0 || errno == EINVAL || errno == ENOTSUP || errno == EROFS;
}

bool Directory::isAt(const fs::path& path) const noexcept {
    return stillNames(path, fd_.get());
}

void makeDirectories(const fs::path& directory) {
    if (mkdir(directory.c_str(), directoryMode) != 0) {
        if (errno == EEXIST) {
            return;
        }
        if (errno != ENOENT || !directory.has_relative_path() || directory.parent_path() == directory) {
            failErrno();
        }
        makeDirectories(directory.parent_path());
        if (mkdir(directory.c_str(), directoryMode) != 0 && errno != EEXIST) {
            failErrno();
        }
    }
    if (!Directory(directory.parent_path()).sync()) {
        failErrno();
    }
}

std::optional<Bytes> read(const fs::path& file, std::size_t limit) {
    const Descriptor fd = openForReading(file);
    if (!fd) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        fail(readErrorCode(errno));
    }
    struct stat status {};
    if (fstat(fd.get(), &status) != 0) {
        fail(readErrorCode(errno));
    }
    if (!S_ISREG(status.st_mode) || static_cast<std::size_t>(status.st_size) > limit) {
        fail(capi::ERROR_INVALID_DATA);
    }
    Bytes contents(static_cast<std::size_t>(status.st_size));
    std::size_t filled = 0;
    while (filled < contents.size()) {
        const ssize_t count =
            retried([&] { return ::read(fd.get(), contents.data() + filled, contents.size() - filled); });
        if (count < 0) {
            fail(readErrorCode(errno));
        }
        if (count == 0) {
            break;
        }
        filled += static_cast<std::size_t>(count);
    }
    contents.resize(filled);
    return contents;
}

bool replaceAtomically(const fs::path& file, ByteView contents) {
    const Directory directory(file.parent_path());
    Temporary temporary(file);
    temporary.write(contents);
    temporary.renameTo(file);
    return directory.sync();
}

void writeAtomically(const fs::path& file, ByteView contents) {
    if (!replaceAtomically(file, contents)) {
        failErrno();
    }
}

bool removeDurably(const fs::path& file) {
    const Directory directory(file.parent_path());
    if (unlink(file.c_str()) != 0) {
        if (errno == ENOENT) {
            return false;
        }
        failErrno();
    }
    if (!directory.sync()) {
        failErrno();
    }
    return true;
}

std::vector<fs::path> entries(const fs::path& directory) {
    std::vector<fs::path> found;
    for (const std::string& name : names(directory)) {
        found.push_back(directory / name);
    }
    return found;
}

bool isTemporary(const std::string& name) {
    return name.starts_with(temporaryMark);
}

void removeStaleTemporaries(const fs::path& directory) {
    removeFiles(directory, [](const fs::path& file) { return isTemporary(file.filename().string()); });
}

void removeFiles(const fs::path& directory, const std::function<bool(const fs::path&)>& unwanted) {
    try {
        std::error_code ignored;
        for (const fs::path& entry : entries(directory)) {
            if (unwanted(entry)) {
                fs::remove(entry, ignored);
            }
        }
    } catch (const ApiError&) { // what cannot be seen stays
    }
}

Lock::Lock(const fs::path& path, std::chrono::milliseconds limit) : owner_(getpid()) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    do {
        fd_ = openForReading(path);
        if (!fd_) {
            failErrno();
        }
        while (retried([&] { return flock(fd_.get(), LOCK_EX | LOCK_NB); }) != 0) {
            if (errno != EWOULDBLOCK) {
                failErrno();
            }
            if (std::chrono::steady_clock::now() >= deadline) {
                notice("process " + named(holderOf(fd_.get())) + " keeps the lock on " + path.string());
                fail(capi::ERROR_BUSY);
            }
            std::this_thread::sleep_for(lockPollInterval);
        }
    } while (!stillNames(path, fd_.get()));
}

Lock::Lock(Descriptor fd) noexcept : fd_(std::move(fd)), owner_(getpid()) {}

Lock& Lock::operator=(Lock&& other) noexcept {
    std::swap(fd_, other.fd_);
    std::swap(owner_, other.owner_);
    return *this;
}

// Closing is not enough: a child forked meanwhile has the file open as well, and would hold the lock until it ends. The
// child's own copy must not take the lock from its parent.
Lock::~Lock() {
    if (fd_ && owner_ == getpid()) {
        flock(fd_.get(), LOCK_UN);
    }
}

std::optional<Lock> Lock::tryTake(const fs::path& path) {
    Descriptor fd = openForReading(path);
    if (!fd) {
        failErrno();
    }
    if (retried([&] { return flock(fd.get(), LOCK_EX | LOCK_NB); }) != 0 || !stillNames(path, fd.get())) {
        return std::nullopt;
    }
    return Lock(std::move(fd));
}

// Locks of the open file (not of the process, which would lose them with any other descriptor of the directory). They
// are apart from flock's, so that a mark does not hinder who changes the container.
Presence::Presence(const fs::path& directory) : fd_(openForReading(directory)), owner_(getpid()) {
    if (!fd_) {
        failErrno();
    }
    struct flock mark {};
    mark.l_type = F_RDLCK;
    static_cast<void>(fcntl(fd_.get(), F_OFD_SETLK, &mark));
}

// As with Lock: a child forked meanwhile has the file open as well.
Presence::~Presence() {
    if (fd_ && owner_ == getpid()) {
        struct flock mark {};
        mark.l_type = F_UNLCK;
        static_cast<void>(fcntl(fd_.get(), F_OFD_SETLK, &mark));
    }
}

bool Presence::any(const fs::path& directory) {
    const Descriptor fd = openForReading(directory);
    if (!fd) {
        failErrno();
    }
    struct flock mark {};
    mark.l_type = F_WRLCK; // only asked for: a mark stands in its way
    return fcntl(fd.get(), F_OFD_GETLK, &mark) == 0 && mark.l_type != F_UNLCK;
}

} // namespace klunortredi::csp::files
