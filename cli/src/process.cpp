#include "process.hpp"

#include "failure.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

namespace klunortredi::cli {

namespace {

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& overlay) {
    std::vector<std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        if (!overlay.contains(std::string(text.substr(0, text.find('='))))) {
            merged.emplace_back(text);
        }
    }
    for (const auto& [name, value] : overlay) {
        merged.push_back(name + "=" + value);
    }
    return merged;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

} // namespace

ProcessResult runProcess(const std::vector<std::string>& command,
                         const std::map<std::string, std::string>& environment) {
    std::array<int, 2> pipe{};
    if (::pipe2(pipe.data(), O_CLOEXEC) != 0) {
        throw fileFailure("cannot run " + command.front(), errno);
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, pipe[1], STDERR_FILENO);

    std::vector<std::string> arguments = command;
    std::vector<std::string> variables = mergedEnvironment(environment);
    pid_t child = 0;
    const int error = ::posix_spawnp(&child, arguments.front().c_str(), &actions, nullptr, pointers(arguments).data(),
                                     pointers(variables).data());
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(pipe[1]);
    if (error != 0) {
        ::close(pipe[0]);
        throw fileFailure("cannot run " + command.front(), error);
    }
    ProcessResult result;
    std::array<char, 4096> buffer{};
    for (ssize_t got = 0; (got = ::read(pipe[0], buffer.data(), buffer.size())) > 0;) {
        result.output.append(buffer.data(), static_cast<std::size_t>(got));
    }
    ::close(pipe[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    result.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

} // namespace klunortredi::cli
