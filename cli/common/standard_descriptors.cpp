#include "standard_descriptors.hpp"

#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace klunortredi::cli {

namespace {
bool outputWasClosed = false; // set once, before there are other threads
} // namespace

void openStandardDescriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) >= 0 || errno != EBADF) {
            continue;
        }
        outputWasClosed = outputWasClosed || fd == STDOUT_FILENO;
        if (::open("/dev/null", O_RDWR) != fd) { // the lowest number that is free
            std::abort();
        }
    }
}

bool standardOutputWasClosed() {
    return outputWasClosed;
}

} // namespace klunortredi::cli
