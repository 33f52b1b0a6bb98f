#include "transport.hpp"

#include "orvik/plugin/exception/application_exception.hpp"

#include <boost/algorithm/string/predicate.hpp>
#include <curl/curl.h>

#include <array>
#include <locale>
#include <memory>
#include <mutex>
#include <new>

namespace orvik::plugin::ssl::internal {

namespace {

using plugin::exception::ApplicationException;

constexpr std::size_t maxResponse = std::size_t{1} << 20; // a token with its certificates is some kilobytes
constexpr long connectSeconds = 10;
constexpr long totalSeconds = 60;
constexpr long maxRedirects = 3;
constexpr long httpOk = 200;
constexpr const char* schemes = "http,https"; // no file: or the like, by whatever redirect
constexpr const char* replyType = "application/timestamp-reply";

struct EasyRelease {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
struct ListRelease {
    void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};

[[noreturn]] void fail(const std::string& authority, const std::string& why) {
    plugin::exception::raise(ApplicationException(ApplicationException::Code::timestampRefused)
                                 << plugin::exception::Message_("time-stamp authority " + authority + ": " + why),
                             {"transport", "exchangeTimestamp"});
}

std::size_t collect(const char* data, std::size_t size, std::size_t count, void* target) {
    auto& body = *static_cast<std::string*>(target);
    if (size * count > maxResponse - body.size()) {
        return 0; // tells libcurl to give up
    }
    body.append(data, size * count);
    return size * count;
}

std::unique_ptr<CURL, EasyRelease> newHandle() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    std::unique_ptr<CURL, EasyRelease> handle(curl_easy_init());
    if (!handle) {
        throw std::bad_alloc();
    }
    return handle;
}

void setLimits(CURL* handle) {
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L); // the process has threads of its own
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, schemes);
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, schemes);
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, maxRedirects);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, connectSeconds);
    curl_easy_setopt(handle, CURLOPT_TIMEOUT, totalSeconds);
}

void requireReply(CURL* handle, const std::string& authority) {
    long status = 0;
    const char* type = nullptr;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(handle, CURLINFO_CONTENT_TYPE, &type);
    if (status != httpOk) {
        fail(authority, "HTTP status " + std::to_string(status));
    }
    if (type == nullptr || !boost::algorithm::istarts_with(type, replyType, std::locale::classic())) {
        fail(authority, "the answer is not a time-stamp reply");
    }
}

} // namespace

std::string exchangeTimestamp(const std::string& authority, const std::string& request) {
    const auto handle = newHandle();
    const std::unique_ptr<curl_slist, ListRelease> headers(
        curl_slist_append(nullptr, "Content-Type: application/timestamp-query"));
    std::array<char, CURL_ERROR_SIZE> error{};
    std::string body;
    setLimits(handle.get());
    curl_easy_setopt(handle.get(), CURLOPT_URL, authority.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(handle.get(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.size()));
    curl_easy_setopt(handle.get(), CURLOPT_POSTFIELDS, request.data());
    curl_easy_setopt(handle.get(), CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(handle.get(), CURLOPT_WRITEDATA, &body);
    curl_easy_setopt(handle.get(), CURLOPT_ERRORBUFFER, error.data());
    const CURLcode result = curl_easy_perform(handle.get());
    if (result != CURLE_OK) {
        fail(authority, error.front() != '\0' ? error.data() : curl_easy_strerror(result));
    }
    requireReply(handle.get(), authority);
    return body;
}

} // namespace orvik::plugin::ssl::internal
