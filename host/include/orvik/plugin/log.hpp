#pragma once

/// Log records of the framework: Boost.Log's trivial logger behind a function, so that a caller pays for a string and
/// not for the logger's headers. Records go nowhere until the application asks for them: with setSink(), or with
/// setLevel(), after which Boost.Log's core has them with its sinks (standard output when it has none).

#include "orvik/plugin/export.hpp"

#include <functional>
#include <string>
#include <string_view>

namespace orvik::plugin::log {

enum class Severity { trace, debug, info, warning, error };

/// Writes one record at `severity` through the trivial logger, when it was asked for. Thread-safe. Never throws.
ORVIK_EXPORT void write(Severity severity, std::string_view text) noexcept;

inline void trace(std::string_view text) noexcept {
    write(Severity::trace, text);
}
inline void debug(std::string_view text) noexcept {
    write(Severity::debug, text);
}
inline void info(std::string_view text) noexcept {
    write(Severity::info, text);
}
inline void warning(std::string_view text) noexcept {
    write(Severity::warning, text);
}
inline void error(std::string_view text) noexcept {
    write(Severity::error, text);
}

/// Asks for records, and drops every one below `least`, the application's own trivial records too. For an application
/// that leaves its logging to the framework; Boost.Log's core keeps the setting.
ORVIK_EXPORT void setLevel(Severity least);

/// Takes a record; called by one thread at a time.
using Sink = std::function<void(Severity severity, std::string_view text)>;
/// Sends the records to `sink`; an empty `sink` takes the last one away.
ORVIK_EXPORT void setSink(Sink sink);

/// `text` between double quotes, with backslash before quotes and backslashes (std::quoted's form).
ORVIK_EXPORT std::string quoted(std::string_view text);

} // namespace orvik::plugin::log
