#include "support/servers/connection.hpp"

#include "support/servers/openssl_objects.hpp"

#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace test_servers {

namespace {

constexpr int stepMilliseconds = 10; // how soon an ended server is noticed

using Bio = Owned<BIO, BIO_free_all>;

Bio memory(const std::string& text) {
    return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

} // namespace

Connection::Connection(int socket, ssl_ctx_st* tls, const std::atomic<bool>& ended)
    : socket_(socket), ended_(ended), tls_(tls == nullptr ? nullptr : SSL_new(tls), SSL_free) {
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ::fcntl(socket, F_SETFL, O_NONBLOCK);
    if (tls_) {
        SSL_set_fd(tls_.get(), socket);
        SSL_set_accept_state(tls_.get());
    }
}

Connection::~Connection() {
    if (tls_) {
        SSL_shutdown(tls_.get());
    }
    ::close(socket_);
}

bool Connection::ready(short events) const {
    pollfd wanted{socket_, events, 0};
    while (!ended_) {
        if (::poll(&wanted, 1, stepMilliseconds) > 0) {
            return true;
        }
    }
    return false;
}

bool Connection::again(int result) const {
    const int reason = SSL_get_error(tls_.get(), result);
    return (reason == SSL_ERROR_WANT_READ && ready(POLLIN)) || (reason == SSL_ERROR_WANT_WRITE && ready(POLLOUT));
}

std::string Connection::read() {
    std::array<char, 4096> buffer{};
    if (!tls_) {
        const auto count = ready(POLLIN) ? ::recv(socket_, buffer.data(), buffer.size(), 0) : 0;
        return count <= 0 ? std::string() : std::string(buffer.data(), static_cast<std::size_t>(count));
    }
    for (;;) {
        const int count = SSL_read(tls_.get(), buffer.data(), static_cast<int>(buffer.size()));
        if (count > 0) {
            return {buffer.data(), static_cast<std::size_t>(count)};
        }
        if (!again(count)) {
            return {};
        }
    }
}

bool Connection::write(const std::string& octets) {
    std::size_t sent = 0;
    while (sent < octets.size()) {
        const char* const next = octets.data() + sent;
        const auto left = octets.size() - sent;
        if (tls_) {
            const int count = SSL_write(tls_.get(), next, static_cast<int>(left));
            if (count <= 0 && !again(count)) {
                return false;
            }
            sent += count > 0 ? static_cast<std::size_t>(count) : 0;
            continue;
        }
        const auto count = ready(POLLOUT) ? ::send(socket_, next, left, MSG_NOSIGNAL) : 0;
        if (count <= 0) {
            return false; // the client has gone away
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

std::shared_ptr<ssl_ctx_st> tlsServer(const std::string& certificatePem, const std::string& keyPem) {
    std::shared_ptr<SSL_CTX> made(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    const Owned<X509, X509_free> certificate(
        PEM_read_bio_X509(memory(certificatePem).get(), nullptr, nullptr, nullptr));
    const Owned<EVP_PKEY, EVP_PKEY_free> key(PEM_read_bio_PrivateKey(memory(keyPem).get(), nullptr, nullptr, nullptr));
    require(certificate && key && SSL_CTX_use_certificate(made.get(), certificate.get()) == 1 &&
                SSL_CTX_use_PrivateKey(made.get(), key.get()) == 1,
            "TLS");
    return made;
}

} // namespace test_servers
