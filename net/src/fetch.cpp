#include "net/fetch.hpp"

#include "transfer.hpp"
#include "url.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace klunortredi::net {

namespace {

constexpr double longestTimeout = 86400; // seconds; also keeps the arithmetic of times in range

bool isHeaderValue(const std::string& text) {
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

void check(const HttpRequest& request) {
    const bool method = request.method == "GET" ? request.body.empty() : request.method == "POST";
    const bool types = isHeaderValue(request.contentType) && std::ranges::all_of(request.acceptTypes, isHeaderValue);
    if (!method || !types) {
        throw NetworkError(ErrorKind::request, request.url, "the request has a wrong method or media type");
    }
}

const CurlLibrary& library(const std::string& url) {
    try {
        return CurlLibrary::instance();
    } catch (const std::runtime_error& e) {
        throw NetworkError(ErrorKind::library, url, e.what());
    }
}

AddressRules rules(const std::string& url) {
    try {
        return AddressRules::fromEnvironment();
    } catch (const std::invalid_argument& e) {
        throw NetworkError(ErrorKind::address, url, std::string(privateAddressesVariable) + ": " + e.what());
    }
}

/// The user's own limit, in place of the request's.
std::chrono::milliseconds totalTimeout(const HttpRequest& request) {
    const char* const text = ::secure_getenv(timeoutVariable);
    if (text == nullptr || *text == '\0') {
        return request.limits.totalTimeout;
    }
    double seconds = 0;
    const char* const end = text + std::strlen(text);
    const auto read = std::from_chars(text, end, seconds, std::chars_format::fixed);
    if (read.ec != std::errc() || read.ptr != end || !(seconds > 0 && seconds <= longestTimeout)) {
        throw NetworkError(ErrorKind::request, request.url,
                           std::string(timeoutVariable) + " is not a number of seconds: " + printable(text, 40));
    }
    return std::chrono::milliseconds(std::max<long>(1, std::lround(seconds * 1000)));
}

} // namespace

HttpResponse fetch(const HttpRequest& request) {
    check(request);
    bool secure = readUrl(request.url).secure;
    Exchange exchange{request, library(request.url), rules(request.url),
                      std::chrono::steady_clock::now() + totalTimeout(request)};
    std::string url = request.url;
    for (int redirects = 0;; ++redirects) {
        Answer answer = transfer(exchange, url, redirects == 0);
        if (answer.location.empty()) {
            return std::move(answer.response);
        }
        const long status = answer.response.status;
        if (redirects == request.limits.maxRedirects) {
            throw NetworkError(ErrorKind::redirect, url, "too many redirects", status);
        }
        try {
            const bool next = readUrl(answer.location).secure;
            if (secure && !next) {
                throw NetworkError(ErrorKind::redirect, url, "the redirect leaves https", status);
            }
            secure = next;
        } catch (const NetworkError& e) {
            if (e.kind() != ErrorKind::request) {
                throw;
            }
            throw NetworkError(ErrorKind::redirect, url,
                               "the redirect to " + printable(answer.location, 100) + " is not allowed: " + e.reason(),
                               status);
        }
        url = answer.location;
    }
}

} // namespace klunortredi::net
