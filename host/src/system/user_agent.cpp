#include "orvik/plugin/user_agent.hpp"

#include "utf8.hpp"

#include <array>
#include <cerrno> // program_invocation_short_name
#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace orvik::plugin {

namespace {

std::string machineName() {
    utsname system{};
    return uname(&system) == 0 ? system.nodename : "";
}

/// The account's name, or its number where the system keeps no name for it.
std::string userName() {
    const uid_t id = geteuid();
    std::array<char, 4096> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    return getpwuid_r(id, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr ? found->pw_name
                                                                                                 : std::to_string(id);
}

} // namespace

UserAgent::UserAgent()
    : machine(internal::asUtf8(machineName())), user(internal::asUtf8(userName())),
      process(internal::asUtf8(program_invocation_short_name)) {}

} // namespace orvik::plugin
