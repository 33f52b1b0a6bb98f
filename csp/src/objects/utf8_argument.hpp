#pragma once

/// The text of a value of type CERT_RDN_UTF8_STRING, whichever way its caller measures it.

#include "capi/types.h"

#include <string>

namespace klunortredi::csp {

/// UTF-8 of `value`. Three kinds of caller use one structure, and nothing in it tells them apart but the text itself:
///
///  (a) wide characters, cbData their number;
///  (b) octets of UTF-8, cbData their number;
///  (c) wide characters and a terminating zero, cbData the octets of the characters without the zero.
///
/// No octet is read that one of the possible readings does not own, with one exception told below. The first cbData
/// octets belong to the caller in every reading, and they decide, because text has no NUL and no control characters
/// other than TAB, LF and CR, and because each wide character ends in a zero octet:
///
///  - Of four octets or more, each complete group of four ends in 00..10 00: wide; otherwise octets. A zero character
///    at the place where (c) has its terminator makes it (c).
///  - Of one to three octets that are not such text in UTF-8: wide, when the first character bears it out.
///  - Of two or three octets that are: octets. A wide string of two characters from U+2020 up whose first one looks
///    like two letters (some ideographs: never Latin, Cyrillic, Greek or punctuation) is thus taken for two letters.
///  - Of one octet that is an ASCII character, the octets behind it are looked at, if they lie in the same aligned
///    machine word (which is always readable, and where a wide character always lies): a zero octet next, as behind any
///    terminated string, means that character; a wide character there means that one. An unterminated octet followed
///    by another one and two zeros is taken for wide.
///
/// Errors: CRYPT_E_BAD_ENCODE for text that is well-formed in no reading, ERROR_INVALID_PARAMETER for a null pointer
/// with a size.
std::string utf8Argument(const CRYPTOAPI_BLOB& value);

} // namespace klunortredi::csp
