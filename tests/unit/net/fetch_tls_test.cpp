#include "broken_pipe.hpp"
#include "environment.hpp"
#include "net/fetch.hpp"
#include "support/servers/http_server.hpp"
#include "support/servers/pki.hpp"
#include "support/temp_folder.hpp"

#include <gmock/gmock.h>
#include <openssl/obj_mac.h>

#include <unistd.h>

#include <cerrno>

namespace {

using namespace std::chrono_literals;
using klunortredi::net::BrokenPipeGuard;
using klunortredi::net::ErrorKind;
using klunortredi::net::fetch;
using klunortredi::net::HttpRequest;
using klunortredi::net::NetworkError;
using net_test::Variable;
using test_servers::always;
using test_servers::HttpServer;
using test_servers::KeyKind;
using test_servers::redirect;
using test_servers::Reply;
using testing::HasSubstr;

class FetchTls : public testing::Test {
protected:
    FetchTls() { folder_.write("root.pem", test_servers::toPem(root_.certificate)); }

    static test_servers::Identity made(const test_servers::CertificateDraft& draft,
                                       const test_servers::Identity* issuer) {
        const auto key = test_servers::makeKey(KeyKind::ec);
        return {test_servers::makeCertificate(draft, key, issuer, KeyKind::ec), key};
    }

    /// A TLS context of a server with that subject alternative name.
    [[nodiscard]] std::shared_ptr<ssl_ctx_st> server(const std::string& name, int lastDay = 10) const {
        const auto identity = made({"server", 2, -100, lastDay, {{NID_subject_alt_name, name}}}, &root_);
        return test_servers::tlsServer(test_servers::toPem(identity.certificate), test_servers::toPem(identity.key));
    }

    static HttpRequest named(const std::string& url) {
        HttpRequest request;
        request.url = url;
        request.privateAddressesAllowed = true;
        request.limits.totalTimeout = 2s;
        return request;
    }

    static NetworkError errorOf(const HttpRequest& request) {
        try {
            fetch(request);
        } catch (const NetworkError& e) {
            return e;
        }
        ADD_FAILURE() << "the answer was taken";
        return {ErrorKind::protocol, "", ""};
    }

    test_support::TempFolder folder_;
    test_servers::Identity root_ = made({"root", 1, -100, 100, {{NID_basic_constraints, "critical,CA:TRUE"}}}, nullptr);
    Variable authorities_{"SSL_CERT_FILE", folder_ / "root.pem"};
};

TEST_F(FetchTls, TakesAnAnswerOfATrustedServer) {
    const HttpServer https(always({"a/b", "x"}), server("IP:127.0.0.1"));
    EXPECT_EQ(fetch(named(https.url())).body, "x");
}

TEST_F(FetchTls, RefusesServersThatAreNotTrusted) {
    const HttpServer otherName(always({"a/b", "x"}), server("DNS:example.org"));
    EXPECT_EQ(errorOf(named(otherName.url())).kind(), ErrorKind::tls);
    const HttpServer expired(always({"a/b", "x"}), server("IP:127.0.0.1", -1));
    EXPECT_EQ(errorOf(named(expired.url())).kind(), ErrorKind::tls);
    const Variable none("SSL_CERT_FILE", "/etc/ssl/certs/ca-certificates.crt");
    const HttpServer stranger(always({"a/b", "x"}), server("IP:127.0.0.1"));
    EXPECT_EQ(errorOf(named(stranger.url())).kind(), ErrorKind::tls);
}

TEST_F(FetchTls, AServerThatGoesAwayDoesNotEndTheProcess) {
    const HttpServer https(always({.body = "x"}), server("IP:127.0.0.1"));
    auto request = named(https.url());
    request.method = "POST";
    request.contentType = "a/b";
    request.body.assign(std::size_t{8} << 20, 'x'); // the server closes the connection in the middle
    EXPECT_NE(errorOf(request).kind(), ErrorKind::tls);
}

TEST(BrokenPipe, IsAnErrorOfTheThreadWhileGuarded) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    ::close(ends[0]);
    {
        const BrokenPipeGuard guard;
        EXPECT_EQ(::write(ends[1], "x", 1), -1);
        EXPECT_EQ(errno, EPIPE);
    }
    sigset_t pending;
    ::sigpending(&pending);
    EXPECT_EQ(::sigismember(&pending, SIGPIPE), 0);
    EXPECT_EXIT(static_cast<void>(::write(ends[1], "x", 1)), testing::KilledBySignal(SIGPIPE), "") << "as before";
    ::close(ends[1]);
}

TEST_F(FetchTls, IsNotLeftByARedirect) {
    const HttpServer plain(always({"a/b", "x"}));
    const HttpServer https(always(redirect(plain.url())), server("IP:127.0.0.1"));
    const auto error = errorOf(named(https.url()));
    EXPECT_EQ(error.kind(), ErrorKind::redirect);
    EXPECT_THAT(error.what(), HasSubstr("the redirect leaves https"));
    EXPECT_TRUE(plain.requests().empty());
    const HttpServer target(always({"a/b", "x"}), server("IP:127.0.0.1"));
    const HttpServer upwards(always(redirect(target.url())));
    EXPECT_EQ(fetch(named(upwards.url())).body, "x");
    const HttpServer back(always(redirect(https.url())));
    EXPECT_EQ(errorOf(named(back.url())).kind(), ErrorKind::redirect) << "http, https, http";
}

TEST_F(FetchTls, GoesThroughAProxyByItsTunnel) {
    const HttpServer proxy(always({"text/html", "no", "403 Forbidden"}));
    const Variable variable("https_proxy", proxy.url(""));
    HttpRequest request;
    request.url = "https://name.example/x";
    EXPECT_THAT(errorOf(request).what(), HasSubstr("403"));
    EXPECT_EQ(proxy.requests().front().method, "CONNECT");
    EXPECT_EQ(proxy.requests().front().target, "name.example:443");
}

} // namespace
