#include "write_all.hpp"

#include <unistd.h>

#include <cerrno>

namespace klunortredi::cli {

int writeAll(int fd, std::string_view octets) {
    while (!octets.empty()) {
        const ssize_t written = ::write(fd, octets.data(), octets.size());
        if (written >= 0) {
            octets.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

} // namespace klunortredi::cli
