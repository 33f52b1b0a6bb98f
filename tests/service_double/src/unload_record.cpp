// A library that leaves a line in the file of KLUNORTREDI_UNLOAD_RECORD when it is unloaded.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

[[gnu::destructor]] void recordUnload() {
    const char* const path = std::getenv("KLUNORTREDI_UNLOAD_RECORD");
    if (path == nullptr) {
        return;
    }
    constexpr const char* line = SERVICE_DOUBLE_LIBRARY "\n";
    const int file = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    static_cast<void>(::write(file, line, std::strlen(line)) < 0);
    ::close(file);
}

} // namespace
