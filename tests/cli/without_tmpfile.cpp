// A file system that does not offer files without names: `open` as it is there. Each refusal leaves the file that
// WITHOUT_TMPFILE_SEEN names.

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>

namespace {

int openBy(const char* symbol, const char* path, int flags, unsigned mode) {
    if ((flags & O_TMPFILE) == O_TMPFILE) {
        if (const char* const seen = std::getenv("WITHOUT_TMPFILE_SEEN"); seen != nullptr) {
            close(creat(seen, 0600));
        }
        errno = EOPNOTSUPP;
        return -1;
    }
    using Function = int(const char*, int, ...);
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol))(path, flags, mode);
}

unsigned modeOf(int flags, std::va_list arguments) {
    return (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0U;
}

} // namespace

extern "C" __attribute__((visibility("default"))) int open(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = modeOf(flags, arguments);
    va_end(arguments);
    return openBy("open", path, flags, mode);
}

extern "C" __attribute__((visibility("default"))) int open64(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = modeOf(flags, arguments);
    va_end(arguments);
    return openBy("open64", path, flags, mode);
}
