#pragma once

/// A program whose system calls the test watches.

#include <sys/ptrace.h>
#include <sys/types.h>

namespace test_support {

/// To be called by the child between fork and exec: lets its parent watch its system calls.
void allowWatching();

/// What is done at the system calls of a watched program.
class CallWatcher {
public:
    CallWatcher() = default;
    CallWatcher(const CallWatcher&) = delete;
    CallWatcher& operator=(const CallWatcher&) = delete;
    virtual ~CallWatcher() = default;
    /// The stopped thread is about to make the call.
    virtual void before(pid_t thread, const __ptrace_syscall_info& call) = 0;
    /// The stopped thread has made its call.
    virtual void after(pid_t thread) = 0;
};

/// Lets a child that called allowWatching() run to its end. Returns its status, as waitpid returns it. To be called by
/// the thread that made the child. Throws std::runtime_error where the kernel does not allow watching.
int watch(pid_t child, CallWatcher& watcher);

} // namespace test_support
