#include "support/watched_child.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

namespace test_support {

namespace {

constexpr int syscallStop = SIGTRAP | 0x80; // what PTRACE_O_TRACESYSGOOD makes of a stop at a system call

void check(long result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void report(pid_t thread, CallWatcher& watcher) {
    __ptrace_syscall_info call{};
    check(::ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof(call), &call), "PTRACE_GET_SYSCALL_INFO");
    if (call.op == PTRACE_SYSCALL_INFO_ENTRY) {
        watcher.before(thread, call);
    } else if (call.op == PTRACE_SYSCALL_INFO_EXIT) {
        watcher.after(thread);
    }
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

int watch(pid_t child, CallWatcher& watcher) {
    int status = 0;
    check(::waitpid(child, &status, 0), "waitpid");
    if (!WIFSTOPPED(status)) {
        throw std::runtime_error("the program cannot be watched");
    }
    constexpr long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL | PTRACE_O_TRACECLONE;
    check(::ptrace(PTRACE_SETOPTIONS, child, 0, options), "PTRACE_SETOPTIONS");
    pid_t thread = child;
    while (true) {
        if (WIFSTOPPED(status)) {
            if (WSTOPSIG(status) == syscallStop) {
                report(thread, watcher);
            }
            // The thread may be gone by now, killed with its process; the wait reports that.
            ::ptrace(PTRACE_SYSCALL, thread, 0, static_cast<long>(signalOf(status)));
        } else if (thread == child) {
            return status;
        }
        thread = ::waitpid(-1, &status, __WALL | __WNOTHREAD);
        check(thread, "waitpid");
    }
}

} // namespace test_support
