#include "transport.hpp"

#include "net/fetch.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

namespace orvik::plugin::ssl::internal {

namespace {

using plugin::exception::ApplicationException;

constexpr std::size_t maxResponse = std::size_t{1} << 20; // a token with its certificates is some kilobytes
constexpr std::chrono::seconds connectTime{10};
constexpr std::chrono::seconds totalTime{60}; // authorities sign on slow hardware
constexpr const char* queryType = "application/timestamp-query";
constexpr const char* replyType = "application/timestamp-reply";

[[noreturn]] void fail(const std::string& authority, const klunortredi::net::NetworkError& error) {
    const std::string reason = error.url() == authority ? error.reason() : std::string("redirected to ") + error.what();
    plugin::exception::raise(ApplicationException(ApplicationException::Code::timestampRefused)
                                 << plugin::exception::Message_("time-stamp authority " + authority + ": " + reason),
                             {"transport", "exchangeTimestamp"});
}

std::string ask(const std::string& authority, const std::string& request) {
    klunortredi::net::HttpRequest post;
    post.url = authority;
    post.method = "POST";
    post.body = request;
    post.contentType = queryType;
    post.acceptTypes = {replyType};
    post.mediaTypeRequired = true;
    post.limits.connectTimeout = connectTime;
    post.limits.totalTimeout = totalTime;
    post.limits.maxOctets = maxResponse;
    post.privateAddressesAllowed = true;
    return klunortredi::net::fetch(post).body;
}

} // namespace

std::string exchangeTimestamp(const std::string& authority, const std::string& request) {
    try {
        return ask(authority, request);
    } catch (const klunortredi::net::NetworkError& e) {
        fail(authority, e);
    }
}

} // namespace orvik::plugin::ssl::internal
