#include "http_authority.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <utility>

namespace host_test {

namespace {

void require(bool done, const char* what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

/// Whether head and body are there.
bool complete(const std::string& request) {
    constexpr const char* field = "Content-Length: ";
    const auto end = request.find("\r\n\r\n");
    if (end == std::string::npos) {
        return false;
    }
    const auto length = request.find(field);
    const auto size = length < end ? std::stoul(request.substr(length + std::char_traits<char>::length(field))) : 0;
    return request.size() >= end + 4 + size;
}

std::string readRequest(int connection) {
    std::string request;
    std::array<char, 4096> buffer{};
    while (!complete(request)) {
        const auto count = ::read(connection, buffer.data(), buffer.size());
        if (count <= 0) {
            break;
        }
        request.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return request;
}

void writeAll(int connection, const std::string& text) {
    std::size_t sent = 0;
    while (sent < text.size()) {
        const auto count = ::send(connection, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return; // the client has heard enough
        }
        sent += static_cast<std::size_t>(count);
    }
}

} // namespace

HttpAuthority::HttpAuthority(std::vector<std::string> answers) : answers_(std::move(answers)) {
    socket_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    require(socket_ >= 0 && ::bind(socket_, reinterpret_cast<sockaddr*>(&address), size) == 0, "bind");
    require(::listen(socket_, 4) == 0, "listen");
    require(::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size) == 0, "getsockname");
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

HttpAuthority::~HttpAuthority() {
    ::shutdown(socket_, SHUT_RDWR); // wakes a server that still waits for somebody
    if (thread_.joinable()) {
        thread_.join();
    }
    ::close(socket_);
}

std::string HttpAuthority::url() const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/tsa";
}

const std::vector<std::string>& HttpAuthority::requests() {
    if (thread_.joinable()) {
        thread_.join();
    }
    return requests_;
}

void HttpAuthority::serve() {
    for (const auto& answer : answers_) {
        const int connection = ::accept(socket_, nullptr, nullptr);
        if (connection < 0) {
            return;
        }
        requests_.push_back(readRequest(connection));
        writeAll(connection, answer);
        ::close(connection);
    }
}

std::string response(const std::string& body, const std::string& type, const std::string& status) {
    return "HTTP/1.1 " + status + "\r\nContent-Type: " + type + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nConnection: close\r\n\r\n" + body;
}

} // namespace host_test
