#pragma once

#include <csignal>
#include <ctime>

namespace klunortredi::net {

/// While it lives, writing to a closed connection is an error in this thread and not the end of the process: TLS
/// libraries write without MSG_NOSIGNAL, and CURLOPT_NOSIGNAL keeps libcurl from doing this itself. Handlers and other
/// threads are left alone.
class BrokenPipeGuard {
public:
    BrokenPipeGuard() noexcept {
        sigset_t pending;
        ::sigpending(&pending);
        wasPending_ = ::sigismember(&pending, SIGPIPE) == 1;
        ::sigemptyset(&pipe_);
        ::sigaddset(&pipe_, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;
    ~BrokenPipeGuard() {
        constexpr timespec atOnce{};
        if (!wasPending_) {
            ::sigtimedwait(&pipe_, nullptr, &atOnce); // what came meanwhile
        }
        ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

private:
    sigset_t pipe_{};
    sigset_t before_{};
    bool wasPending_ = false;
};

} // namespace klunortredi::net
