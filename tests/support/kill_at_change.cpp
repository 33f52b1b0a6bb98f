#include "support/kill_at_change.hpp"

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <system_error>

namespace test_support {

namespace {

constexpr int syscallStop = SIGTRAP | 0x80; // what PTRACE_O_TRACESYSGOOD makes of a stop at a system call

bool opensForChange(std::uint64_t flags) {
    return (flags & (O_CREAT | O_TRUNC)) != 0;
}

/// Sanitizers write to pipes at any time; only files stay.
bool isFile(pid_t thread, std::uint64_t fd) {
    struct stat status {};
    const std::string name = "/proc/" + std::to_string(thread) + "/fd/" + std::to_string(fd);
    return ::stat(name.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool isChange(pid_t thread, const __ptrace_syscall_info& call) {
    switch (call.entry.nr) {
#ifdef SYS_open // the older forms, which only older architectures have
    case SYS_open:
        return opensForChange(call.entry.args[1]);
    case SYS_mkdir:
    case SYS_rmdir:
    case SYS_rename:
    case SYS_link:
    case SYS_unlink:
#endif
    case SYS_mkdirat:
    case SYS_renameat:
    case SYS_renameat2:
    case SYS_linkat:
    case SYS_unlinkat:
    case SYS_ftruncate:
    case SYS_exit_group:
        return true;
    case SYS_openat:
        return opensForChange(call.entry.args[2]);
    case SYS_write:
        return isFile(thread, call.entry.args[0]);
    default:
        return false;
    }
}

void check(long result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/// Whether the stopped thread is about to make a change.
bool atChange(pid_t thread) {
    __ptrace_syscall_info call{};
    check(::ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof(call), &call), "PTRACE_GET_SYSCALL_INFO");
    return call.op == PTRACE_SYSCALL_INFO_ENTRY && isChange(thread, call);
}

/// The signal that a stop would deliver; 0 for stops that are the tracing's own: system calls, exec, new threads.
int signalOf(int status) {
    const int signal = WSTOPSIG(status);
    const bool own = signal == syscallStop || signal == SIGTRAP || signal == SIGSTOP;
    return own ? 0 : signal;
}

} // namespace

void allowWatching() {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        ::_exit(125);
    }
}

int killAtChange(pid_t child, int n) {
    int status = 0;
    check(::waitpid(child, &status, 0), "waitpid");
    if (!WIFSTOPPED(status)) {
        throw std::runtime_error("the program cannot be watched");
    }
    constexpr long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL | PTRACE_O_TRACECLONE;
    check(::ptrace(PTRACE_SETOPTIONS, child, 0, options), "PTRACE_SETOPTIONS");
    int changes = 0;
    pid_t thread = child;
    while (true) {
        if (WIFSTOPPED(status)) {
            if (WSTOPSIG(status) == syscallStop && atChange(thread) && ++changes == n) {
                ::kill(child, SIGKILL);
            } else {
                // The thread may be gone by now, killed with its process; the wait tells.
                ::ptrace(PTRACE_SYSCALL, thread, 0, static_cast<long>(signalOf(status)));
            }
        } else if (thread == child) {
            return status;
        }
        thread = ::waitpid(-1, &status, __WALL | __WNOTHREAD);
        check(thread, "waitpid");
    }
}

} // namespace test_support
