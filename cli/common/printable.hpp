#pragma once

#include <string>
#include <string_view>

namespace klunortredi::cli {

/// A text of somebody else's (a name in a certificate, a file's name) as a part of a line for a person. Control
/// characters, line separators, characters that turn the direction of writing, invisible ones and tag characters are
/// shown as "\x1B", "\u202E" and "\U000E0041"; an octet that is not of a UTF-8 character is shown as "\x9B". Raw they
/// would move the cursor, or write lines that look like ours.
std::string printable(std::string_view text);

/// The same for a name: a very long one is cut, and "..." marks where, so that it does not push the rest away.
std::string printableName(std::string_view name);

/// Whether the text is UTF-8 (RFC 3629).
bool isUtf8(std::string_view text);

/// The text as UTF-8: each octet that is not of a UTF-8 character is written as "\x9B", four characters.
std::string asUtf8(std::string_view text);

/// A JSON document with the same values, in which those characters are escaped ("\u202e", pairs of surrogates above
/// U+FFFF), so that it can be shown. `json` is a valid JSON text in UTF-8, whose characters beyond ASCII are all in
/// strings.
std::string printableJson(std::string_view json);

} // namespace klunortredi::cli
