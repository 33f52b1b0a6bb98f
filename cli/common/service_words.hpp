#pragma once

/// The service's error codes in plain words, with the exit code and the next step that go with them.

#include "failure.hpp"

#include <cstdint>
#include <string>

namespace klunortredi::cli {

/// A number and what it means to the person at the terminal.
struct Meaning {
    std::uint32_t code;
    ExitCode exit;
    const char* why;
    const char* next;
};

/// Null for a code without words of its own.
const Meaning* serviceMeaning(std::uint32_t code);

/// Why the code was given; empty for a code without words of its own.
std::string serviceReason(std::uint32_t code);

/// Why a file of a store was skipped, by its code in the list of PP_SKIPPED_ENTRIES.
std::string skippingReason(std::uint32_t code);

/// Whether the code tells what the machine lacks, which says nothing about a signature or a PIN.
bool isOfTheMachine(std::uint32_t code);

} // namespace klunortredi::cli
