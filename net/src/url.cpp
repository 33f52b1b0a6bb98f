#include "url.hpp"

#include "net/error.hpp"

#include <algorithm>
#include <string_view>

namespace klunortredi::net {

namespace {

constexpr std::size_t longestUrl = 4096; // an OCSP request in a GET has some hundred octets
constexpr std::string_view refusedCharacters = "\"<>\\^`{|}";
constexpr std::string_view digits = "0123456789";
constexpr std::string_view nameCharacters = "abcdefghijklmnopqrstuvwxyz0123456789.-_";
constexpr std::string_view addressCharacters = "0123456789abcdef:.";
constexpr unsigned long largestPort = 65535;

[[noreturn]] void refuse(const std::string& url, const char* why) {
    throw NetworkError(ErrorKind::request, url, why);
}

char small(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool consistsOf(std::string_view text, std::string_view characters) {
    return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

bool isHost(std::string_view host) {
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        return consistsOf(host.substr(1, host.size() - 2), addressCharacters);
    }
    return consistsOf(host, nameCharacters);
}

bool isPort(const std::string& port) {
    return consistsOf(port, digits) && port.size() <= 5 && std::stoul(port) <= largestPort && std::stoul(port) > 0;
}

} // namespace

Url readUrl(const std::string& url) {
    if (url.size() > longestUrl) {
        refuse(url, "the URL is too long");
    }
    if (std::ranges::any_of(
            url, [](char c) { return c <= ' ' || c > '~' || refusedCharacters.find(c) != std::string_view::npos; })) {
        refuse(url, "the URL contains a character that URLs do not have");
    }
    std::string head = url.substr(0, url.find("://"));
    std::ranges::transform(head, head.begin(), small);
    if (head != "http" && head != "https") {
        refuse(url, "the URL does not begin with http:// or https://");
    }
    const auto begin = head.size() + 3;
    const auto end = std::min(url.find_first_of("/?#", begin), url.size());
    std::string authority = url.substr(begin, end - begin);
    std::ranges::transform(authority, authority.begin(), small);
    if (authority.find('@') != std::string::npos) {
        refuse(url, "the URL contains a user name");
    }
    const auto bracket = authority.rfind(']');
    const auto colon = authority.find(':', bracket == std::string::npos ? 0 : bracket);
    Url read{head == "https", authority.substr(0, colon), {}};
    if (colon != std::string::npos) {
        read.port = authority.substr(colon + 1);
    }
    if (!isHost(read.host)) {
        refuse(url, "the URL has no proper host");
    }
    if (colon != std::string::npos && !isPort(read.port)) {
        refuse(url, "the URL has no proper port");
    }
    return read;
}

} // namespace klunortredi::net
