#pragma once

#include <string>
#include <string_view>

namespace klunortredi::cli {

/// A text of somebody else's (a name in a certificate, a file's name) as a part of a line for a person: control
/// characters, line separators and those that turn the direction of writing are shown as "\x1B" and "\u202E". Raw they
/// would move the cursor, or write lines that look like ours.
std::string printable(std::string_view text);

} // namespace klunortredi::cli
