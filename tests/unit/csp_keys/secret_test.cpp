// Where secrets lie in memory.

#include "core/secret.hpp"

#include <gmock/gmock.h>

#include <sys/resource.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

namespace csp_keys {

using klunortredi::csp::Secret;
using klunortredi::csp::secretOf;

namespace {

/// The line of flags (VmFlags) of the mapping that holds the address, from the kernel's list; empty when there is none.
std::string flagsAt(const void* address) {
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    std::ifstream maps("/proc/self/smaps");
    bool inside = false;
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t first = 0;
        std::uintptr_t end = 0;
        char dash = 0;
        std::istringstream head(line);
        if (line.find('-') < line.find(' ') && head >> std::hex >> first >> dash >> end) {
            inside = first <= wanted && wanted < end;
        } else if (inside && line.starts_with("VmFlags:")) {
            return line + ' ';
        }
    }
    return {};
}

} // namespace

TEST(Secrets, AreLeftOutOfCoreDumpsAndLockedInMemory) {
    const Secret pin = secretOf("1234");
    const std::string flags = flagsAt(pin.data());
    ASSERT_FALSE(flags.empty());
    EXPECT_THAT(flags, testing::HasSubstr(" dd ")) << "not dumped";
#ifndef KLUNORTREDI_SANITIZED // the sanitizers leave out mlock
    rlimit limit{};
    ::getrlimit(RLIMIT_MEMLOCK, &limit);
    if (limit.rlim_cur >= 65536) {
        EXPECT_THAT(flags, testing::HasSubstr(" lo ")) << "not swapped";
    }
#endif
}

TEST(Secrets, ThatCannotBeLockedAreThereAllTheSame) {
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_MEMLOCK, &before), 0);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_MEMLOCK, &none), 0);
    Secret pin = secretOf("1234");
    pin.resize(10'000, 'x');
    ::setrlimit(RLIMIT_MEMLOCK, &before);
    EXPECT_EQ(std::string_view(pin.data(), 5), "1234x");
    EXPECT_TRUE(Secret().empty());
}

} // namespace csp_keys
