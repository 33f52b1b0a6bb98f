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
///  - Of two or three octets with a NUL or control character among them: wide; otherwise octets. Two wide characters
///    the first of which looks like two octets of text (some from U+2020 up, ideographs above all: never Latin, Greek
///    or Cyrillic letters) are thus taken for octets, and mostly refused.
///  - Of one octet, those behind it are looked at, if it begins an aligned machine word: such a word is always
///  readable,
///    and a wide character always is one. An ASCII character with a zero octet next, as behind any terminated string,
///    is that character; otherwise what is a wide character as a word is that one. (An unterminated ASCII character
///    followed by any other octet and two zeros is so taken for wide.)
///
/// Errors: CRYPT_E_BAD_ENCODE for text that is well-formed in no reading, ERROR_INVALID_PARAMETER for a null pointer
/// with a size.
std::string utf8Argument(const CRYPTOAPI_BLOB& value);

/// The same where cbData always counts octets, as in the attributes of a name: wide characters, terminated or not, when
/// the octets are whole groups of four of which each ends in 00..10 00; otherwise UTF-8. Nothing outside the cbData
/// octets is read. Errors as above.
std::string utf8ArgumentInOctets(const CRYPTOAPI_BLOB& value);

} // namespace klunortredi::csp
