#include "support/fail_at_call.hpp"

#include "support/watched_child.hpp"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <set>
#include <stdexcept>

namespace test_support {

namespace {

constexpr int none = -1;

/// Where a system call names its files: the arguments' numbers. A path is relative to the descriptor before it, when
/// there is one.
struct Call {
    long number;
    const char* name;
    int descriptor;
    int path;
    int secondPath;
};

enum : int { first, second, third, fourth };

constexpr auto calls = std::to_array<Call>({
#ifdef SYS_open // the older forms, which only older architectures have
    {SYS_open, "open", none, first, none},
    {SYS_stat, "stat", none, first, none},
    {SYS_lstat, "lstat", none, first, none},
    {SYS_access, "access", none, first, none},
    {SYS_mkdir, "mkdir", none, first, none},
    {SYS_rmdir, "rmdir", none, first, none},
    {SYS_rename, "rename", none, first, second},
    {SYS_link, "link", none, first, second},
    {SYS_unlink, "unlink", none, first, none},
    {SYS_chmod, "chmod", none, first, none},
#endif
    {SYS_openat, "openat", first, second, none},
    {SYS_newfstatat, "newfstatat", first, second, none},
    {SYS_statx, "statx", first, second, none},
    {SYS_faccessat, "faccessat", first, second, none},
    {SYS_mkdirat, "mkdirat", first, second, none},
    {SYS_renameat, "renameat", first, second, fourth},
    {SYS_renameat2, "renameat2", first, second, fourth},
    {SYS_linkat, "linkat", first, second, fourth},
    {SYS_unlinkat, "unlinkat", first, second, none},
    {SYS_fchmodat, "fchmodat", first, second, none},
    {SYS_read, "read", first, none, none},
    {SYS_pread64, "pread64", first, none, none},
    {SYS_write, "write", first, none, none},
    {SYS_writev, "writev", first, none, none},
    {SYS_pwrite64, "pwrite64", first, none, none},
    {SYS_fsync, "fsync", first, none, none},
    {SYS_fdatasync, "fdatasync", first, none, none},
    {SYS_ftruncate, "ftruncate", first, none, none},
    {SYS_getdents64, "getdents64", first, none, none},
    {SYS_flock, "flock", first, none, none},
    {SYS_fstat, "fstat", first, none, none},
    {SYS_fchmod, "fchmod", first, none, none},
});

bool isOneOf(long number, std::initializer_list<long> numbers) {
    return std::ranges::find(numbers, number) != numbers.end();
}

/// Whether a call fails with that error in practice.
bool canFailWith(long number, std::uint64_t flags, int error) {
    const bool opens = number == SYS_openat
#ifdef SYS_open
                       || number == SYS_open
#endif
        ;
    switch (error) {
    case EMFILE:
        return opens;
    case EINTR:
        return opens || isOneOf(number, {SYS_read, SYS_write, SYS_flock, SYS_fsync});
    case ENOSPC: // what needs room
        return opens ? (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE
                     : !isOneOf(number, {SYS_read, SYS_pread64, SYS_getdents64, SYS_flock, SYS_fstat, SYS_newfstatat,
                                         SYS_statx, SYS_faccessat, SYS_unlinkat,
#ifdef SYS_open
                                         SYS_stat, SYS_lstat, SYS_access, SYS_unlink, SYS_rmdir
#endif
                                        });
    case EACCES: // decided when a file is opened
        return !isOneOf(number, {SYS_read, SYS_pread64, SYS_write, SYS_writev, SYS_pwrite64, SYS_fsync, SYS_fdatasync,
                                 SYS_ftruncate, SYS_getdents64, SYS_flock, SYS_fstat});
    default:
        return true;
    }
}

std::string linkTarget(const std::string& link) {
    std::array<char, 4096> target{};
    const ssize_t size = ::readlink(link.c_str(), target.data(), target.size());
    return {target.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

std::string pathOfDescriptor(pid_t thread, std::uint64_t descriptor) {
    const std::string process = "/proc/" + std::to_string(thread);
    const int number = static_cast<int>(descriptor);
    return linkTarget(number == AT_FDCWD ? process + "/cwd" : process + "/fd/" + std::to_string(number));
}

/// The text at an address of the program; read octet by octet, because a page may end after it.
std::string textAt(pid_t thread, std::uint64_t address) {
    std::string text;
    for (char c = 0; text.size() < 4096; text += c) {
        const iovec here{&c, 1};
        const iovec there{reinterpret_cast<void*>(address + text.size()), 1}; // NOLINT(performance-no-int-to-ptr)
        if (::process_vm_readv(thread, &here, 1, &there, 1, 0) != 1 || c == '\0') {
            break;
        }
    }
    return text;
}

#ifdef __x86_64__

constexpr bool registersAreKnown = true;

template <class Change>
void changeRegisters(pid_t thread, Change change) {
    user_regs_struct registers{};
    if (::ptrace(PTRACE_GETREGS, thread, nullptr, &registers) == 0) {
        change(registers);
        ::ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
    }
}

/// Makes a call of it that does not exist, which changes nothing.
void drop(pid_t thread) {
    changeRegisters(thread, [](user_regs_struct& registers) { registers.orig_rax = ~0ULL; });
}

void answer(pid_t thread, int error) {
    changeRegisters(thread, [error](user_regs_struct& registers) {
        registers.rax = static_cast<unsigned long long>(-static_cast<long long>(error));
    });
}

#else

constexpr bool registersAreKnown = false;
void drop(pid_t) {}
void answer(pid_t, int) {}

#endif

class Failing : public CallWatcher {
public:
    Failing(const Fault& fault, std::string& failed) : fault_(fault), failed_(failed) {}

    void before(pid_t thread, const __ptrace_syscall_info& made) override {
        const auto call = std::ranges::find(calls, static_cast<long>(made.entry.nr), &Call::number);
        if (call == calls.end()) {
            return;
        }
        const std::string file = fileOf(thread, *call, made.entry.args);
        const std::uint64_t flags = made.entry.args[call->descriptor == none ? second : third];
        if (file.empty() || !canFailWith(call->number, flags, fault_.error)) {
            return;
        }
        ++count_;
        if (count_ < fault_.call || (count_ > fault_.call && !fault_.lasting)) {
            return;
        }
        if (failed_.empty()) {
            failed_ = std::string(call->name) + ' ' + file;
        }
        drop(thread);
        dropped_.insert(thread);
    }

    void after(pid_t thread) override {
        if (dropped_.erase(thread) != 0) {
            answer(thread, fault_.error);
        }
    }

private:
    [[nodiscard]] bool isMeant(const std::string& path) const {
        return std::ranges::any_of(fault_.folders, [&path](const std::string& folder) {
            return path == folder || path.starts_with(folder + '/');
        });
    }

    /// The file of the call that is in the folders; empty when none is.
    [[nodiscard]] std::string fileOf(pid_t thread, const Call& call, const std::uint64_t* arguments) const {
        const auto path = [&](int base, int argument) -> std::string {
            std::string text = argument == none ? "" : textAt(thread, arguments[argument]);
            if (text.starts_with('/')) {
                return text;
            }
            const auto descriptor =
                base == none ? static_cast<std::uint64_t>(AT_FDCWD) : static_cast<std::uint64_t>(arguments[base]);
            return pathOfDescriptor(thread, descriptor) + (text.empty() ? "" : '/' + text);
        };
        const std::string one = path(call.descriptor, call.path);
        if (isMeant(one) || call.secondPath == none) {
            return isMeant(one) ? one : "";
        }
        const std::string other = path(call.descriptor == none ? none : call.secondPath - 1, call.secondPath);
        return isMeant(other) ? other : "";
    }

    const Fault& fault_;
    std::string& failed_;
    int count_ = 0;
    std::set<pid_t> dropped_;
};

} // namespace

bool canFailCalls() {
    return registersAreKnown;
}

int failAtCall(pid_t child, const Fault& fault, std::string& failed) {
    Failing failing(fault, failed);
    return watch(child, failing);
}

} // namespace test_support
