#pragma once

#include "support/servers/connection.hpp"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace test_servers {

struct Request {
    std::string method;
    std::string target; ///< path and query
    std::string head;   ///< request line and header fields as they came
    std::string body;
};

/// An answer, and how it is sent. Every way of misbehaving is a member.
struct Reply {
    std::string type = "application/octet-stream"; ///< empty: no Content-Type
    std::string body{};
    std::string status = "200 OK";
    std::vector<std::string> fields{};          ///< more header lines, without their ends
    std::optional<std::string> claimedLength{}; ///< in place of the right Content-Length; empty: none is sent
    std::optional<std::size_t> cutAfter{};      ///< the connection is closed after so many octets of the body
    std::chrono::milliseconds delay{0};         ///< before the answer
    std::chrono::milliseconds pause{0};         ///< after every octet of the body
    bool endless = false;                       ///< the body is repeated until the client goes away
    std::string raw{};                          ///< the whole answer, instead of all other members
};

using Handler = std::function<Reply(const Request&)>;

/// An HTTP/1.1 server on 127.0.0.1 with a port that the system chooses. Every connection has one request and a thread
/// of its own; one above 4 MiB is cut off. With a TLS context (connection.hpp) it speaks HTTPS. Destroying the server
/// ends everything at once, slow answers too.
class HttpServer {
public:
    explicit HttpServer(Handler handler, std::shared_ptr<ssl_ctx_st> tls = {});
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;
    ~HttpServer();

    /// "http://127.0.0.1:PORT" (or https) followed by `path`.
    [[nodiscard]] std::string url(const std::string& path = "/") const;
    [[nodiscard]] int port() const noexcept { return port_; }
    /// What came until now.
    [[nodiscard]] std::vector<Request> requests() const;
    /// Octets of bodies sent until now.
    [[nodiscard]] std::size_t sent() const noexcept { return sent_; }

private:
    void serve();
    void answer(int socket);
    void send(Connection& connection, const Reply& reply);
    bool sendBody(Connection& connection, const Reply& reply);
    void wait(std::chrono::milliseconds time) const;

    Handler handler_;
    std::shared_ptr<ssl_ctx_st> tls_;
    int socket_ = -1;
    int port_ = 0;
    std::atomic<bool> ended_{false};
    std::atomic<std::size_t> sent_{0};
    mutable std::mutex mutex_;
    std::vector<Request> requests_;
    struct Served {
        std::atomic<bool> done{false};
        std::thread thread;
    };
    std::list<Served> connections_;
    std::thread thread_;
};

/// Answers with the same reply each time.
Handler always(Reply reply);
/// A redirect there, to be combined with status "303 See Other" and the like.
Reply redirect(const std::string& location, const std::string& status = "302 Found");

} // namespace test_servers
