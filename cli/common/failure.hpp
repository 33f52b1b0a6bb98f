#pragma once

/// Everything that can go wrong, as one line for a person and one record for a program.

#include "exit_code.hpp"

#include <cstdint>
#include <exception>
#include <string>

namespace klunortredi::cli {

/// A command that cannot go on. Printed as "klunortredi: <what>: <why> (<code>); <next>".
class Failure : public std::exception {
public:
    Failure(ExitCode exit, std::string what, std::string why, std::string next = {}, std::uint32_t code = 0);

    [[nodiscard]] ExitCode exit() const noexcept { return exit_; }
    /// The number behind the failure: a CryptoAPI or framework code, an errno, or 0.
    [[nodiscard]] std::uint32_t code() const noexcept { return code_; }
    /// "input", "service", "cancelled" or "usage".
    [[nodiscard]] const char* kind() const noexcept;
    /// The whole line without the program's name.
    [[nodiscard]] const char* what() const noexcept override { return line_.c_str(); }

private:
    ExitCode exit_;
    std::uint32_t code_;
    std::string line_;
};

/// A failed system call on a file: errno's text; exit 3.
Failure fileFailure(const std::string& what, int error);

} // namespace klunortredi::cli
