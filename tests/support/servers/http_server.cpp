#include "support/servers/http_server.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>

namespace test_servers {

namespace {

constexpr std::size_t largestRequest = std::size_t{4} << 20;
constexpr std::chrono::milliseconds step{10}; // how soon an ended server is noticed

void require(bool done, const char* what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

std::size_t contentLength(const std::string& head) {
    constexpr const char* field = "Content-Length: ";
    const auto place = head.find(field);
    return place == std::string::npos ? 0 : std::stoul(head.substr(place + std::char_traits<char>::length(field)));
}

Request parse(const std::string& head) {
    const auto first = head.find(' ');
    const auto second = head.find(' ', first + 1);
    return {head.substr(0, first), head.substr(first + 1, second - first - 1), head, {}};
}

std::optional<Request> readRequest(Connection& connection) {
    std::string octets;
    std::optional<Request> request;
    std::size_t size = 0;
    while (octets.size() < largestRequest) {
        const auto end = octets.find("\r\n\r\n");
        if (!request && end != std::string::npos) {
            request = parse(octets.substr(0, end + 4));
            size = end + 4 + contentLength(request->head);
        }
        if (request && octets.size() >= size) {
            request->body = octets.substr(request->head.size());
            return request;
        }
        const std::string more = connection.read();
        if (more.empty()) {
            break;
        }
        octets += more;
    }
    return std::nullopt;
}

std::string headOf(const Reply& reply) {
    std::string head = "HTTP/1.1 " + reply.status + "\r\n";
    if (!reply.type.empty()) {
        head += "Content-Type: " + reply.type + "\r\n";
    }
    const std::string length = reply.claimedLength.value_or(reply.endless ? "" : std::to_string(reply.body.size()));
    if (!length.empty()) {
        head += "Content-Length: " + length + "\r\n";
    }
    for (const auto& field : reply.fields) {
        head += field + "\r\n";
    }
    return head + "Connection: close\r\n\r\n";
}

} // namespace

HttpServer::HttpServer(Handler handler, std::shared_ptr<ssl_ctx_st> tls)
    : handler_(std::move(handler)), tls_(std::move(tls)) {
    socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    require(socket_ >= 0 && ::bind(socket_, reinterpret_cast<sockaddr*>(&address), size) == 0, "bind");
    require(::listen(socket_, 64) == 0, "listen");
    require(::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size) == 0, "getsockname");
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

HttpServer::~HttpServer() {
    ended_ = true;
    ::shutdown(socket_, SHUT_RDWR);
    thread_.join();
    for (auto& connection : connections_) {
        connection.thread.join();
    }
    ::close(socket_);
}

std::string HttpServer::url(const std::string& path) const {
    return (tls_ ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(port_) + path;
}

std::vector<Request> HttpServer::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

void HttpServer::serve() {
    while (!ended_) {
        const int connection = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
        connections_.remove_if([](Served& served) { // their stacks would be kept otherwise
            return served.done && (served.thread.join(), true);
        });
        if (connection >= 0) {
            Served& served = connections_.emplace_back();
            served.thread = std::thread([this, connection, &served] {
                answer(connection);
                served.done = true;
            });
        }
    }
}

void HttpServer::answer(int socket) {
    sigset_t pipe; // TLS writes without MSG_NOSIGNAL
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    Connection connection(socket, tls_.get(), ended_);
    if (auto request = readRequest(connection)) {
        {
            const std::lock_guard lock(mutex_);
            requests_.push_back(*request);
        }
        send(connection, handler_(*request));
    }
}

void HttpServer::send(Connection& connection, const Reply& reply) {
    wait(reply.delay);
    if (!reply.raw.empty()) {
        connection.write(reply.raw);
    } else if (connection.write(headOf(reply))) {
        while (sendBody(connection, reply) && reply.endless) {
        }
    }
}

bool HttpServer::sendBody(Connection& connection, const Reply& reply) {
    const std::string body = reply.body.substr(0, reply.cutAfter.value_or(reply.body.size()));
    if (reply.pause.count() == 0) {
        sent_ += body.size();
        return connection.write(body);
    }
    for (const char octet : body) {
        if (!connection.write(std::string(1, octet))) {
            return false;
        }
        ++sent_;
        wait(reply.pause);
    }
    return true;
}

void HttpServer::wait(std::chrono::milliseconds time) const {
    const auto end = std::chrono::steady_clock::now() + time;
    while (!ended_ && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::min(step, time));
    }
}

Handler always(Reply reply) {
    return [reply = std::move(reply)](const Request&) { return reply; };
}

Reply redirect(const std::string& location, const std::string& status) {
    Reply reply;
    reply.status = status;
    reply.fields = {"Location: " + location};
    return reply;
}

} // namespace test_servers
