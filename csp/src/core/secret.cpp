#include "core/secret.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <new>

namespace klunortredi::csp {

namespace {

/// Neither locks nor advice nest: pages that two secrets shared would be swapped and dumped again with the first of
/// them.
std::size_t wholePages(std::size_t octets) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    if (octets > SIZE_MAX - page) {
        throw std::bad_alloc();
    }
    return (octets + page - 1) / page * page;
}

} // namespace

void* takeSecretMemory(std::size_t octets) {
    const std::size_t size = wholePages(octets);
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) { // NOLINT(*-int-to-ptr,*-cstyle-cast): the system's macro
        throw std::bad_alloc();
    }
    static_cast<void>(mlock(memory, size));
    static_cast<void>(madvise(memory, size, MADV_DONTDUMP));
    return memory;
}

void giveSecretMemory(void* memory, std::size_t octets) noexcept {
    OPENSSL_cleanse(memory, octets);
    munmap(memory, wholePages(octets));
}

} // namespace klunortredi::csp
