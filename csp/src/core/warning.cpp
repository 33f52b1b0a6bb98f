#include "core/warning.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

namespace klunortredi::csp {

namespace {

bool asked(const char* variable) noexcept {
    const char* const value = std::getenv(variable); // NOLINT(concurrency-mt-unsafe): nothing sets it here
    return value != nullptr && *value != '\0';
}

void write(std::string_view text) noexcept {
    try {
        std::string line = "klunortredi: " + std::string(text);
        constexpr unsigned char firstPrintable = 0x20;
        constexpr unsigned char erase = 0x7F;
        std::ranges::replace_if(
            line, [](unsigned char octet) { return octet < firstPrintable || octet == erase; }, '?');
        line += '\n';
        static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
    } catch (const std::exception&) { // a warning is never worth a failure
        return;
    }
}

} // namespace

void warn(std::string_view text) noexcept {
    if (asked("KLUNORTREDI_TRACE")) {
        write(text);
    }
}

void notice(std::string_view text) noexcept {
    if (asked("KLUNORTREDI_NOTICES") || asked("KLUNORTREDI_TRACE")) {
        write(text);
    }
}

} // namespace klunortredi::csp
