#include "in_child.hpp"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <limits>

namespace klunortredi::test {

namespace {

#if defined(KLUNORTREDI_SANITIZED)
constexpr bool judged = false;
#else
constexpr bool judged = true;
#endif
constexpr int tooMuch = 0xFF;

} // namespace

int inChild(long allowedMib, const std::function<bool()>& work) {
    const long allowedKib = judged ? allowedMib * 1024 : std::numeric_limits<long>::max();
    const pid_t child = fork();
    if (child == 0) {
        const bool ok = work();
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        std::fprintf(stderr, "peak %ld KiB\n", usage.ru_maxrss);
        _exit(!ok ? 1 : usage.ru_maxrss <= allowedKib ? 0 : tooMuch);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace klunortredi::test
