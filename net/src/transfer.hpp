#pragma once

#include "curl_library.hpp"
#include "net/address.hpp"
#include "net/fetch.hpp"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace klunortredi::net {

/// What is the same for all redirects of one request.
struct Exchange {
    const HttpRequest& request;
    const CurlLibrary& curl;
    AddressRules rules;
    std::chrono::steady_clock::time_point deadline;
    std::size_t headerOctets = 0;
    std::vector<Address> namedAddresses{}; ///< not public; connected to because the user named the host
};

/// One answer: either the body, or the place of the redirect.
struct Answer {
    HttpResponse response;
    std::string location; ///< absolute URL; empty: not a redirect
};

/// Sends the request to `url`. `first`: this is the URL of the request, not of a redirect. Throws NetworkError.
Answer transfer(Exchange& exchange, const std::string& url, bool first);

} // namespace klunortredi::net
