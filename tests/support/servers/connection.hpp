#pragma once

#include <atomic>
#include <memory>
#include <string>

struct ssl_st;
struct ssl_ctx_st;

namespace test_servers {

/// One accepted connection, with TLS or without. Ends when `ended` is set or the client goes away.
class Connection {
public:
    /// `tls` null: none. Takes the descriptor over.
    Connection(int socket, ssl_ctx_st* tls, const std::atomic<bool>& ended);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    /// What has come next; empty at the end.
    std::string read();
    bool write(const std::string& octets);

private:
    [[nodiscard]] bool ready(short events) const;
    /// Whether the TLS operation with this result can be tried again; waits until then.
    [[nodiscard]] bool again(int result) const;

    int socket_;
    const std::atomic<bool>& ended_;
    std::unique_ptr<ssl_st, void (*)(ssl_st*)> tls_;
};

/// TLS context of a server with this certificate and key (PEM); to be released with SSL_CTX_free.
std::shared_ptr<ssl_ctx_st> tlsServer(const std::string& certificatePem, const std::string& keyPem);

} // namespace test_servers
