#include "failure.hpp"

#include <array>
#include <cstdio>
#include <cstring>
#include <utility>

namespace klunortredi::cli {

namespace {

std::string numbered(std::uint32_t code) {
    // CryptoAPI codes are known by their hexadecimal form, the others by their decimal one.
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), code >= 0x80000000U ? "0x%08X" : "%u", code);
    return text.data();
}

} // namespace

Failure::Failure(ExitCode exit, std::string what, std::string why, std::string next, std::uint32_t code)
    : exit_(exit), code_(code), line_(std::move(what)) {
    line_ += ": " + std::move(why);
    if (code != 0) {
        line_ += " (" + numbered(code) + ")";
    }
    if (!next.empty()) {
        line_ += "; " + std::move(next);
    }
}

const char* Failure::kind() const noexcept {
    switch (exit_) {
    case ExitCode::usage:
        return "usage";
    case ExitCode::cancelled:
        return "cancelled";
    case ExitCode::no:
    case ExitCode::input:
        return "input";
    default:
        return "service";
    }
}

Failure fileFailure(const std::string& what, int error) {
    return {ExitCode::input, what, std::strerror(error), {}, static_cast<std::uint32_t>(error)};
}

} // namespace klunortredi::cli
