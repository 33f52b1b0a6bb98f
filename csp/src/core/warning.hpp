#pragma once

/// What the service passes over and has no error code for.

#include <string_view>

namespace klunortredi::csp {

/// Writes "klunortredi: <text>" as one line to standard error when the environment variable KLUNORTREDI_TRACE is set
/// and not empty. The service is a guest in its process: it writes nothing unasked. Control characters, which a file's
/// name may have, become '?'.
void warn(std::string_view text) noexcept;

/// The same for what the user of a command has to know to go on, such as the process that holds a lock: written also
/// when KLUNORTREDI_NOTICES is set and not empty, as the commands set it for themselves.
void notice(std::string_view text) noexcept;

} // namespace klunortredi::csp
