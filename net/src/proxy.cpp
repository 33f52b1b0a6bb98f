#include "proxy.hpp"

#include "net/address.hpp"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <initializer_list>
#include <stdexcept>

namespace klunortredi::net {

namespace {

std::string firstOf(std::initializer_list<const char*> variables) {
    for (const char* variable : variables) {
        const char* const value = ::secure_getenv(variable);
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return {};
}

std::string bare(std::string host) {
    std::ranges::transform(host, host.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    while (!host.empty() && host.back() == '.') {
        host.pop_back();
    }
    return host.starts_with('.') ? host.substr(1) : host;
}

/// A list entry is a domain with all below it, an address, or a network.
bool covers(const std::string& entry, const std::string& host) {
    if (entry == "*") {
        return true;
    }
    if (const auto address = parseAddress(host)) {
        try {
            return *address == parseAddress(entry) || AddressRules(entry).lists(*address);
        } catch (const std::invalid_argument&) {
            return false; // a domain
        }
    }
    const std::string domain = bare(entry);
    return !domain.empty() && (host == domain || host.ends_with("." + domain));
}

bool isExcepted(const std::string& host) {
    constexpr const char* separators = ", \t";
    const std::string list = firstOf({"no_proxy", "NO_PROXY"});
    for (auto begin = list.find_first_not_of(separators); begin != std::string::npos;) {
        const auto end = list.find_first_of(separators, begin);
        if (covers(list.substr(begin, end - begin), host)) {
            return true;
        }
        begin = list.find_first_not_of(separators, end);
    }
    return false;
}

} // namespace

std::string proxyFor(const Url& url) {
    const std::string proxy = url.secure ? firstOf({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
                                         : firstOf({"http_proxy", "all_proxy", "ALL_PROXY"});
    return proxy.empty() || isExcepted(bare(url.host)) ? std::string() : proxy;
}

} // namespace klunortredi::net
