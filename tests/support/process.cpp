#include "support/process.hpp"

#include "support/fail_at_call.hpp"
#include "support/kill_at_change.hpp"
#include "support/watched_child.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <thread>

namespace test_support {

namespace {

struct Pipe {
    Pipe() {
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("pipe");
        }
    }
    std::array<int, 2> ends{};
};

[[noreturn]] void becomeProgram(const std::vector<std::string>& command, const RunOptions& options, const Pipe& in,
                                const Pipe& out, const Pipe& err) {
    ::dup2(in.ends[0], STDIN_FILENO);
    ::dup2(out.ends[1], STDOUT_FILENO);
    ::dup2(err.ends[1], STDERR_FILENO);
    if (options.withoutTerminal) {
        ::setsid();
    }
    if (options.fileSizeLimit > 0) {
        const rlimit limit{static_cast<rlim_t>(options.fileSizeLimit), static_cast<rlim_t>(options.fileSizeLimit)};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, SIG_IGN); // writing past the limit fails with EFBIG instead of killing
    }
    if (options.cpuLimit > 0) {
        const rlimit limit{static_cast<rlim_t>(options.cpuLimit), static_cast<rlim_t>(options.cpuLimit)};
        ::setrlimit(RLIMIT_CPU, &limit);
    }
    if (options.fault.call > 0 || options.killAtChange > 0) {
        ::setenv("LSAN_OPTIONS", "detect_leaks=0",
                 1); // a watched program cannot be watched by the leak checker as well
    }
    for (const auto& [name, value] : options.environment) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    if (!options.folder.empty() && ::chdir(options.folder.c_str()) != 0) {
        ::_exit(126);
    }
    if (options.killAtChange > 0 || options.fault.call > 0) {
        allowWatching();
    }
    std::vector<std::string> words = command;
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    ::execvp(arguments.front(), arguments.data());
    ::_exit(127);
}

/// Feeds `input` and collects both outputs until the program has closed them.
void exchange(int in, int out, int err, std::string input, Outcome& result) {
    std::array<pollfd, 3> ends{pollfd{in, POLLOUT, 0}, pollfd{out, POLLIN, 0}, pollfd{err, POLLIN, 0}};
    if (input.empty()) {
        ::close(in);
        ends[0].fd = -1;
    }
    std::array<char, 65536> buffer{};
    while (ends[1].fd >= 0 || ends[2].fd >= 0) {
        ::poll(ends.data(), ends.size(), -1);
        if (ends[0].fd >= 0 && ends[0].revents != 0) {
            const ssize_t written = ::write(in, input.data(), input.size());
            input.erase(0, written > 0 ? static_cast<std::size_t>(written) : input.size());
            if (input.empty()) {
                ::close(in);
                ends[0].fd = -1;
            }
        }
        for (std::size_t i = 1; i < ends.size(); ++i) {
            if (ends[i].fd < 0 || ends[i].revents == 0) {
                continue;
            }
            const ssize_t got = ::read(ends[i].fd, buffer.data(), buffer.size());
            if (got > 0) {
                (i == 1 ? result.out : result.err).append(buffer.data(), static_cast<std::size_t>(got));
            } else {
                ::close(ends[i].fd);
                ends[i].fd = -1;
            }
        }
    }
    if (ends[0].fd >= 0) {
        ::close(ends[0].fd);
    }
}

} // namespace

namespace {

/// A test may look at the exit code alone; whoever reads its output must see that the leak checker died, not the
/// program.
void reportLeakChecker(const std::string& err) {
    const auto at = err.find("LeakSanitizer has encountered a fatal error");
    if (at != std::string::npos) {
        std::cerr << err.substr(at, err.find('\n', at) - at) << std::endl;
    }
}

} // namespace

Outcome run(const std::vector<std::string>& command, const RunOptions& options) {
    const Pipe in;
    const Pipe out;
    const Pipe err;
    const pid_t child = ::fork();
    if (child == 0) {
        becomeProgram(command, options, in, out, err);
    }
    ::close(in.ends[0]);
    ::close(out.ends[1]);
    ::close(err.ends[1]);
    Outcome result;
    std::signal(SIGPIPE, SIG_IGN);
    std::thread reader([&] { exchange(in.ends[1], out.ends[0], err.ends[0], options.input, result); });
    int status = 0;
    rusage usage{};
    if (options.killAtChange > 0) {
        status = killAtChange(child, options.killAtChange);
    } else if (options.fault.call > 0) {
        status = failAtCall(child, options.fault, result.failedCall);
    } else {
        ::wait4(child, &status, 0, &usage);
    }
    reader.join();
    result.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.peakKiB = usage.ru_maxrss;
    reportLeakChecker(result.err);
    return result;
}

} // namespace test_support
