#include "support/servers/http_server.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace test_servers {

namespace {

constexpr std::size_t largestRequest = std::size_t{16} << 20;
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

std::optional<Request> readRequest(int connection, const std::atomic<bool>& ended) {
    std::string octets;
    std::array<char, 4096> buffer{};
    std::optional<Request> request;
    std::size_t size = 0;
    while (!ended && octets.size() < largestRequest) {
        const auto end = octets.find("\r\n\r\n");
        if (!request && end != std::string::npos) {
            request = parse(octets.substr(0, end + 4));
            size = end + 4 + contentLength(request->head);
        }
        if (request && octets.size() >= size) {
            request->body = octets.substr(request->head.size());
            return request;
        }
        pollfd ready{connection, POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(step.count())) == 0) {
            continue;
        }
        const auto count = ::recv(connection, buffer.data(), buffer.size(), 0);
        if (count <= 0) {
            break;
        }
        octets.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return std::nullopt;
}

bool sendAll(int connection, const std::string& octets, const std::atomic<bool>& ended) {
    std::size_t sent = 0;
    while (sent < octets.size()) {
        pollfd ready{connection, POLLOUT, 0};
        if (ended) {
            return false;
        }
        if (::poll(&ready, 1, static_cast<int>(step.count())) == 0) {
            continue;
        }
        const auto count = ::send(connection, octets.data() + sent, octets.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count <= 0) {
            return false; // the client has gone away
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
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

HttpServer::HttpServer(Handler handler) : handler_(std::move(handler)) {
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
        connection.join();
    }
    ::close(socket_);
}

std::string HttpServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<Request> HttpServer::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

void HttpServer::serve() {
    while (!ended_) {
        const int connection = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0) {
            connections_.emplace_back([this, connection] { answer(connection); });
        }
    }
}

void HttpServer::answer(int connection) {
    const int on = 1;
    ::setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (auto request = readRequest(connection, ended_)) {
        {
            const std::lock_guard lock(mutex_);
            requests_.push_back(*request);
        }
        send(connection, handler_(*request));
    }
    ::close(connection);
}

void HttpServer::send(int connection, const Reply& reply) {
    wait(reply.delay);
    if (!reply.raw.empty()) {
        sendAll(connection, reply.raw, ended_);
    } else if (sendAll(connection, headOf(reply), ended_)) {
        while (sendBody(connection, reply) && reply.endless) {
        }
    }
}

bool HttpServer::sendBody(int connection, const Reply& reply) {
    const std::string body = reply.body.substr(0, reply.cutAfter.value_or(reply.body.size()));
    if (reply.pause.count() == 0) {
        sent_ += body.size();
        return sendAll(connection, body, ended_);
    }
    for (const char octet : body) {
        if (!sendAll(connection, std::string(1, octet), ended_)) {
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
