#pragma once

/// Kills a program at an exact place: before its n-th system call that changes something outside the process.

#include <sys/types.h>

namespace test_support {

/// Lets a child that called allowWatching() run, and sends SIGKILL before its `n`-th change (n from 1) is made:
/// creating, writing, renaming, linking or removing a file or folder; the end of the process counts as the last one.
/// With fewer changes the child runs to its end. Returns the status of the child, as waitpid returns it.
/// To be called by the thread that made the child. Throws std::runtime_error where the kernel does not allow watching.
int killAtChange(pid_t child, int n);

} // namespace test_support
