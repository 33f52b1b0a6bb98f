#include "core/warning.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

namespace klunortredi::csp {

void warn(std::string_view text) noexcept {
    const char* const wanted = std::getenv("KLUNORTREDI_TRACE"); // NOLINT(concurrency-mt-unsafe): nothing sets it here
    if (wanted == nullptr || *wanted == '\0') {
        return;
    }
    try {
        std::string line = "klunortredi: " + std::string(text);
        constexpr unsigned char firstPrintable = 0x20;
        constexpr unsigned char erase = 0x7F;
        std::ranges::replace_if(
            line, [](unsigned char octet) { return octet < firstPrintable || octet == erase; }, '?');
        line += '\n';
        static_cast<void>(!write(STDERR_FILENO, line.data(), line.size()));
    } catch (const std::exception&) { // a warning is never worth a failure
        return;
    }
}

} // namespace klunortredi::csp
