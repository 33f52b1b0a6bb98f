#include "transfer.hpp"

#include "broken_pipe.hpp"
#include "proxy.hpp"
#include "url.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace klunortredi::net {

namespace {

using std::chrono::milliseconds;

constexpr long slowOctets = 16;  // a second; a server that sends less for
constexpr long slowSeconds = 20; // so long does not serve
constexpr long firstFinalStatus = 200;
constexpr long httpOk = 200;
constexpr std::array<long, 5> redirectStatuses{301, 302, 303, 307, 308};
constexpr const char* schemes = "http,https";
constexpr const char* userAgent = "klunortredi";

/// What the callbacks of one transfer share.
struct State {
    Exchange& exchange;
    const std::string& url;
    bool first;
    bool proxied;
    CURL* easy = nullptr;
    bool statusLine = false;
    bool headerEnded = false;
    bool bodyBegan = false;
    std::string body{};
    std::string location{};
    std::string encoding{};
    std::optional<Address> refused{};
    bool headerTooLarge = false;
    bool bodyTooLarge = false;
};

struct Handle {
    Handle(const CurlLibrary& library, const std::string& target)
        : curl(library), url(target), easy(library.easyInit()) {
        if (easy == nullptr) {
            throw std::bad_alloc();
        }
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        curl.easyCleanup(easy);
        curl.listFree(headers);
    }

    template <class Value>
    void set(CURLoption option, Value value) {
        if (curl.setOption(easy, option, value) != CURLE_OK) {
            throw NetworkError(ErrorKind::library, url, "libcurl is too old: option " + std::to_string(option));
        }
    }
    void addHeader(const std::string& line) {
        curl_slist* const longer = curl.listAppend(headers, line.c_str());
        if (longer == nullptr) {
            throw std::bad_alloc();
        }
        headers = longer;
    }

    const CurlLibrary& curl;
    const std::string& url;
    CURL* easy;
    curl_slist* headers = nullptr;
};

bool isAllowed(State& state, const Address& address) {
    auto& exchange = state.exchange;
    if (exchange.rules.allows(address)) {
        return true;
    }
    if (state.first && exchange.request.privateAddressesAllowed) {
        exchange.namedAddresses.push_back(address);
        return true;
    }
    return std::ranges::find(exchange.namedAddresses, address) != exchange.namedAddresses.end();
}

/// The address that is really connected to decides, whatever the name meant before (DNS rebinding). That of a proxy
/// is the user's choice.
curl_socket_t openSocket(void* data, curlsocktype /*purpose*/, curl_sockaddr* target) {
    auto& state = *static_cast<State*>(data);
    if (!state.proxied) {
        const auto address = addressOf(target->addr);
        if (!address || !isAllowed(state, *address)) {
            state.refused = address;
            return CURL_SOCKET_BAD;
        }
    }
    return ::socket(target->family, target->socktype | SOCK_CLOEXEC, target->protocol);
}

/// The value of the header line when it is of that field; the name is in small letters.
std::optional<std::string> fieldValue(std::string_view line, std::string_view name) {
    const auto matches = [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; };
    if (line.size() <= name.size() || line[name.size()] != ':' ||
        !std::equal(name.begin(), name.end(), line.begin(), [&](char b, char a) { return matches(a, b); })) {
        return std::nullopt;
    }
    const auto begin = line.find_first_not_of(" \t", name.size() + 1);
    const auto end = line.find_last_not_of(" \t\r\n");
    return begin == std::string_view::npos || end < begin ? "" : std::string(line.substr(begin, end - begin + 1));
}

/// The media type without its parameters, in small letters (RFC 9110, 8.3.1).
std::string essence(std::string type) {
    type = type.substr(0, type.find(';'));
    type.erase(type.find_last_not_of(" \t") + 1);
    std::ranges::transform(type, type.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return type;
}

bool isOther(const std::string& coding, const char* usual) {
    return essence(coding) != usual;
}

std::size_t takeHeader(const char* data, std::size_t size, std::size_t count, void* target) {
    auto& state = *static_cast<State*>(target);
    const std::string_view line(data, size * count);
    auto& octets = state.exchange.headerOctets;
    if (line.size() > state.exchange.request.limits.maxHeaderOctets - octets) {
        state.headerTooLarge = true;
        return 0; // libcurl ends the transfer
    }
    octets += line.size();
    if (state.bodyBegan) {
        return line.size(); // a trailer
    }
    state.headerEnded = line == "\r\n" || line == "\n";
    if (line.starts_with("HTTP/1.")) { // of the final answer, after interim ones
        state.statusLine = true;
        state.location.clear();
        state.encoding.clear();
    } else if (const auto location = fieldValue(line, "location"); location && state.location.empty()) {
        state.location = *location;
    } else if (const auto encoding = fieldValue(line, "content-encoding"); encoding && isOther(*encoding, "identity")) {
        state.encoding = *encoding;
    } else if (const auto transfer = fieldValue(line, "transfer-encoding"); transfer && isOther(*transfer, "chunked")) {
        state.encoding = *transfer;
    }
    return line.size();
}

/// Of the final answer; 0 when there is none.
long statusOf(const CurlLibrary& curl, CURL* easy) {
    long status = 0;
    curl.getInfo(easy, CURLINFO_RESPONSE_CODE, &status);
    return status < firstFinalStatus ? 0 : status;
}

std::size_t takeBody(const char* data, std::size_t size, std::size_t count, void* target) {
    auto& state = *static_cast<State*>(target);
    state.bodyBegan = true;
    if (statusOf(state.exchange.curl, state.easy) != httpOk) {
        return 0; // nobody reads the page that comes with an error
    }
    const std::size_t octets = size * count;
    if (octets > state.exchange.request.limits.maxOctets - state.body.size()) {
        state.bodyTooLarge = true;
        return 0;
    }
    state.body.append(data, octets);
    return octets;
}

void setLimits(Handle& handle, const Exchange& exchange) {
    const auto left = std::chrono::duration_cast<milliseconds>(exchange.deadline - std::chrono::steady_clock::now());
    const auto total = std::max<long>(left.count(), 1); // 0 is no limit
    const auto connect = std::clamp<long>(exchange.request.limits.connectTimeout.count(), 1, total);
    handle.set(CURLOPT_TIMEOUT_MS, total);
    handle.set(CURLOPT_CONNECTTIMEOUT_MS, connect);
    handle.set(CURLOPT_LOW_SPEED_LIMIT, slowOctets);
    handle.set(CURLOPT_LOW_SPEED_TIME, slowSeconds);
    handle.set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(exchange.request.limits.maxOctets));
    handle.set(CURLOPT_NOSIGNAL, 1L);   // the process has threads and signal handlers of its own
    handle.set(CURLOPT_QUICK_EXIT, 1L); // a name server that does not answer holds nobody up
}

void setSecurity(Handle& handle) {
    handle.set(CURLOPT_PROTOCOLS_STR, schemes);
    handle.set(CURLOPT_FOLLOWLOCATION, 0L); // each redirect is checked like a first URL
    handle.set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
    handle.set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
    handle.set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    handle.set(CURLOPT_HTTP09_ALLOWED, 0L);
    handle.set(CURLOPT_HTTP_CONTENT_DECODING, 0L); // no compression, so no decompression
    handle.set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    handle.set(CURLOPT_SSL_VERIFYPEER, 1L);
    handle.set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (const char* const authorities = ::secure_getenv("SSL_CERT_FILE")) {
        handle.set(CURLOPT_CAINFO, authorities);
    }
}

void setProxy(Handle& handle, const std::string& url, const std::string& proxy) {
    handle.set(CURLOPT_URL, url.c_str());
    handle.set(CURLOPT_PROXY, proxy.c_str()); // empty: none, whatever the environment holds
    handle.set(CURLOPT_NOPROXY, "");          // the exceptions are applied already
    handle.set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
}

void setContent(Handle& handle, const HttpRequest& request) {
    handle.set(CURLOPT_USERAGENT, userAgent);
    if (!request.acceptTypes.empty()) {
        std::string accept = "Accept: " + request.acceptTypes.front();
        for (std::size_t i = 1; i < request.acceptTypes.size(); ++i) {
            accept += ", " + request.acceptTypes[i];
        }
        handle.addHeader(accept);
    }
    if (request.method == "POST") {
        handle.addHeader("Content-Type: " + request.contentType);
        handle.addHeader("Expect:"); // the body is sent at once
        handle.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        handle.set(CURLOPT_POSTFIELDS, request.body.data());
    }
    handle.set(CURLOPT_HTTPHEADER, handle.headers);
}

void setCallbacks(Handle& handle, State& state) {
    handle.set(CURLOPT_OPENSOCKETFUNCTION, openSocket);
    handle.set(CURLOPT_OPENSOCKETDATA, &state);
    handle.set(CURLOPT_HEADERFUNCTION, takeHeader);
    handle.set(CURLOPT_HEADERDATA, &state);
    handle.set(CURLOPT_WRITEFUNCTION, takeBody);
    handle.set(CURLOPT_WRITEDATA, &state);
}

constexpr std::array errorKinds{
    std::pair{CURLE_COULDNT_RESOLVE_HOST, ErrorKind::resolve},
    std::pair{CURLE_COULDNT_RESOLVE_PROXY, ErrorKind::resolve},
    std::pair{CURLE_COULDNT_CONNECT, ErrorKind::connect},
    std::pair{CURLE_OPERATION_TIMEDOUT, ErrorKind::timeout},
    std::pair{CURLE_SSL_CONNECT_ERROR, ErrorKind::tls},
    std::pair{CURLE_PEER_FAILED_VERIFICATION, ErrorKind::tls},
    std::pair{CURLE_SSL_CACERT_BADFILE, ErrorKind::tls},
    std::pair{CURLE_FILESIZE_EXCEEDED, ErrorKind::tooLarge},
    std::pair{CURLE_PARTIAL_FILE, ErrorKind::cutOff},
    std::pair{CURLE_GOT_NOTHING, ErrorKind::cutOff},
    std::pair{CURLE_RECV_ERROR, ErrorKind::cutOff},
    std::pair{CURLE_SEND_ERROR, ErrorKind::cutOff},
    std::pair{CURLE_URL_MALFORMAT, ErrorKind::request},
    std::pair{CURLE_UNSUPPORTED_PROTOCOL, ErrorKind::request},
};

ErrorKind kindOf(CURLcode code) {
    const auto row = std::ranges::find(errorKinds, code, [](const auto& pair) { return pair.first; });
    return row == errorKinds.end() ? ErrorKind::protocol : row->second;
}

struct Outcome {
    CURLcode code;
    std::string reason; ///< libcurl's own words
    long status;
    std::string mediaType;
};

Outcome perform(Handle& handle) {
    std::array<char, CURL_ERROR_SIZE> words{};
    handle.set(CURLOPT_ERRORBUFFER, words.data());
    const CURLcode code = handle.curl.perform(handle.easy);
    Outcome outcome{code,
                    words.front() != '\0' ? words.data() : handle.curl.errorText(code),
                    statusOf(handle.curl, handle.easy),
                    {}};
    const char* type = nullptr;
    handle.curl.getInfo(handle.easy, CURLINFO_CONTENT_TYPE, &type);
    outcome.mediaType = type == nullptr ? "" : type;
    return outcome;
}

[[noreturn]] void fail(const State& state, const Outcome& outcome, ErrorKind kind, const std::string& reason) {
    throw NetworkError(kind, state.url, reason, outcome.status, outcome.mediaType);
}

std::string described(const Outcome& outcome) {
    return "HTTP status " + std::to_string(outcome.status) +
           (outcome.mediaType.empty() ? "" : " (" + printable(outcome.mediaType, 100) + ")");
}

void requireUsable(const State& state, const Outcome& outcome) {
    const auto& request = state.exchange.request;
    if (!state.statusLine) {
        fail(state, outcome, ErrorKind::protocol, "the answer is not HTTP/1");
    }
    if (!state.headerEnded) {
        fail(state, outcome, ErrorKind::cutOff, "the header of the answer is cut off");
    }
    if (!state.encoding.empty()) {
        fail(state, outcome, ErrorKind::protocol, "the answer is compressed");
    }
    const auto accepts = [&](const std::string& type) { return essence(type) == essence(outcome.mediaType); };
    if (request.mediaTypeRequired && !request.acceptTypes.empty() &&
        std::ranges::none_of(request.acceptTypes, accepts)) {
        const std::string is =
            outcome.mediaType.empty() ? "has no media type" : "is of media type " + printable(outcome.mediaType, 100);
        fail(state, outcome, ErrorKind::mediaType, "the answer " + is + ", not " + request.acceptTypes.front());
    }
}

/// Throws for what ended the transfer, except a status other than 200.
void requireComplete(const State& state, const Outcome& outcome) {
    const auto& limits = state.exchange.request.limits;
    if (state.headerTooLarge) {
        fail(state, outcome, ErrorKind::tooLarge,
             "the header of the answer is larger than " + std::to_string(limits.maxHeaderOctets) + " octets");
    }
    if (outcome.code == CURLE_OK || (outcome.status != 0 && outcome.status != httpOk)) {
        return;
    }
    if (state.bodyTooLarge || outcome.code == CURLE_FILESIZE_EXCEEDED) {
        fail(state, outcome, ErrorKind::tooLarge,
             "the answer is larger than " + std::to_string(limits.maxOctets) + " octets");
    }
    if (outcome.code == CURLE_COULDNT_CONNECT && state.refused) {
        fail(state, outcome, ErrorKind::address,
             "the address " + toText(*state.refused) + " is not public, and not allowed by " +
                 privateAddressesVariable);
    }
    fail(state, outcome, kindOf(outcome.code), outcome.reason);
}

std::string resolved(const CurlLibrary& curl, const std::string& base, const std::string& reference) {
    const std::unique_ptr<CURLU, decltype(curl.urlCleanup)> url(curl.urlNew(), curl.urlCleanup);
    char* text = nullptr;
    if (!url || curl.urlSet(url.get(), CURLUPART_URL, base.c_str(), 0) != CURLUE_OK ||
        curl.urlSet(url.get(), CURLUPART_URL, reference.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK ||
        curl.urlGet(url.get(), CURLUPART_URL, &text, 0) != CURLUE_OK) {
        return reference;
    }
    const std::unique_ptr<char, decltype(curl.release)> owner(text, curl.release);
    return text;
}

/// A proxy connects wherever it is asked to: addresses and local names are judged before.
void requireAllowedThroughProxy(State& state, std::string host) {
    while (host.ends_with('.')) {
        host.pop_back();
    }
    const auto address = parseAddress(host);
    const bool local = host == "localhost" || host.ends_with(".localhost");
    const bool named = state.first && state.exchange.request.privateAddressesAllowed;
    if (address ? !isAllowed(state, *address) : local && !named) {
        throw NetworkError(ErrorKind::address, state.url, "the address " + host + " is not public");
    }
}

} // namespace

Answer transfer(Exchange& exchange, const std::string& url, bool first) {
    const Url parts = readUrl(url);
    const std::string proxy = proxyFor(parts);
    State state{exchange, url, first, !proxy.empty()};
    if (state.proxied) {
        requireAllowedThroughProxy(state, parts.host);
    }
    const BrokenPipeGuard guard; // also while the connection is closed
    Handle handle(exchange.curl, url);
    state.easy = handle.easy;
    setLimits(handle, exchange);
    setSecurity(handle);
    setProxy(handle, url, proxy);
    setContent(handle, exchange.request);
    setCallbacks(handle, state);
    const Outcome outcome = perform(handle);
    requireComplete(state, outcome);
    Answer answer{{outcome.status, outcome.mediaType, {}}, {}};
    if (std::ranges::find(redirectStatuses, outcome.status) != redirectStatuses.end() && !state.location.empty()) {
        answer.location = resolved(exchange.curl, url, state.location);
        return answer;
    }
    if (outcome.status != httpOk) {
        fail(state, outcome, ErrorKind::status, described(outcome));
    }
    requireUsable(state, outcome);
    answer.response.body = std::move(state.body);
    return answer;
}

} // namespace klunortredi::net
