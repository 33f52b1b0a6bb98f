#pragma once

#include <string>

namespace klunortredi::net {

/// What decides about a connection; libcurl reads the rest.
struct Url {
    bool secure = false; ///< https
    std::string host;    ///< in small letters; IPv6 addresses in brackets
    std::string port;    ///< empty: the scheme's own
};

/// Reads an absolute http or https URL (RFC 3986). Stricter than the RFC, so that no two readers find different hosts
/// in it: printable ASCII without blanks, quotes, braces and backslashes; no user name; a host of letters, digits,
/// dots, hyphens and underscores, or an address in brackets. Throws NetworkError of kind request.
Url readUrl(const std::string& url);

} // namespace klunortredi::net
