#pragma once

/// Lets a system call on a file fail: a disk that breaks, is full or forbids, at an exact place of a program.

#include <sys/types.h>

#include <string>
#include <vector>

namespace test_support {

/// Which system call fails and how. Counted are the calls that open, read, write, sync, lock, list, rename, link,
/// look up or remove files in the folders, as far as they can fail with that error.
struct Fault {
    int call = 0;                     ///< the n-th of them fails, from 1; 0: none
    int error = 0;                    ///< its errno
    bool lasting = false;             ///< all that come after it fail as well
    std::vector<std::string> folders; ///< the files that are meant: those in these folders, and the folders themselves
};

/// Whether this machine can do that (the registers of a call are written, which is known for x86-64 only).
bool canFailCalls();

/// Lets a child that called allowWatching() run to its end with the fault. `failed` becomes the call that failed first.
/// Returns the status of the child, as waitpid returns it. To be called by the thread that made the child.
int failAtCall(pid_t child, const Fault& fault, std::string& failed);

} // namespace test_support
