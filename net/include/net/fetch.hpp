#pragma once

#include "net/error.hpp"

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace klunortredi::net {

/// What a request may cost. The times are for all redirects together.
struct Limits {
    std::chrono::milliseconds connectTimeout{10'000};   ///< name lookup, TCP and TLS of one connection
    std::chrono::milliseconds totalTimeout{30'000};     ///< from the first lookup to the last octet
    std::size_t maxOctets = std::size_t{1} << 20;       ///< of the body
    std::size_t maxHeaderOctets = std::size_t{1} << 16; ///< of all header lines, interim answers included
    int maxRedirects = 3;
};

struct HttpRequest {
    std::string url;                      ///< http or https, printable ASCII, no user name
    std::string method = "GET";           ///< GET or POST
    std::string body;                     ///< of a POST
    std::string contentType;              ///< media type of the body
    std::vector<std::string> acceptTypes; ///< media types of the Accept header; empty: none is sent
    Limits limits;
    /// The user named this host himself: an address that is not public is allowed for the first connection, and
    /// redirects may lead to the same address. It allows nothing else.
    bool privateAddressesAllowed = false;
    /// An answer of another media type than acceptTypes is an error.
    bool mediaTypeRequired = false;
};

struct HttpResponse {
    long status = 0;         ///< always 200: other statuses are errors
    std::string contentType; ///< as the server sends it, with its parameters; empty when it sends none
    std::string body;
};

/// Sends the request over HTTP/1.1 and returns the answer (RFC 9110, RFC 9112). No cookies, no credentials, no
/// compression; TLS 1.2 or later with the system's authorities, or those of the file in SSL_CERT_FILE. The proxies
/// are those of http_proxy, https_proxy, all_proxy and no_proxy. Addresses that are not public are refused unless
/// KLUNORTREDI_PRIVATE_ADDRESSES or the request allows them (net/address.hpp). KLUNORTREDI_NETWORK_TIMEOUT, a number
/// of seconds, takes the place of Limits::totalTimeout. Can be called from any thread. Throws NetworkError.
HttpResponse fetch(const HttpRequest& request);

inline constexpr const char* timeoutVariable = "KLUNORTREDI_NETWORK_TIMEOUT";

} // namespace klunortredi::net
