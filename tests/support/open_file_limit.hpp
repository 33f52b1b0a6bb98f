#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <stdexcept>

namespace test_support {

/// Leaves the process so many file descriptors beyond those it has open, until destroyed.
class OpenFileLimit {
public:
    explicit OpenFileLimit(rlim_t more) {
        const int next = ::dup(0);
        ::close(next);
        if (next < 0 || ::getrlimit(RLIMIT_NOFILE, &before_) != 0) {
            throw std::runtime_error("cannot tell the number of open files");
        }
        const rlimit limit{static_cast<rlim_t>(next) + more, before_.rlim_max};
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            throw std::runtime_error("cannot limit the number of open files");
        }
    }
    OpenFileLimit(const OpenFileLimit&) = delete;
    OpenFileLimit& operator=(const OpenFileLimit&) = delete;
    ~OpenFileLimit() { ::setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{};
};

} // namespace test_support
