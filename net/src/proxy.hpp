#pragma once

#include "url.hpp"

#include <string>

namespace klunortredi::net {

/// The proxy that the environment names for this URL; empty: none. http_proxy (small letters only: a web server sets
/// HTTP_PROXY from what a client sends), https_proxy or HTTPS_PROXY, all_proxy or ALL_PROXY; no_proxy or NO_PROXY
/// lists hosts, domains and addresses that are reached without one, or "*".
std::string proxyFor(const Url& url);

} // namespace klunortredi::net
