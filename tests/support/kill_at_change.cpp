#include "support/kill_at_change.hpp"

#include "support/watched_child.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <csignal>
#include <cstdint>
#include <string>

namespace test_support {

namespace {

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

/// Kills the child before its n-th change.
class Killer : public CallWatcher {
public:
    Killer(pid_t child, int n) : child_(child), left_(n) {}

    void before(pid_t thread, const __ptrace_syscall_info& call) override {
        if (isChange(thread, call) && --left_ == 0) {
            ::kill(child_, SIGKILL);
        }
    }

    void after(pid_t /*thread*/) override {}

private:
    pid_t child_;
    int left_;
};

} // namespace

int killAtChange(pid_t child, int n) {
    Killer killer(child, n);
    return watch(child, killer);
}

} // namespace test_support
