// Answers and URLs of an attacker.

#include "curl_library.hpp"
#include "environment.hpp"
#include "net/fetch.hpp"
#include "support/servers/http_server.hpp"

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <string>

namespace {

using namespace std::chrono_literals;
using klunortredi::net::CurlLibrary;
using klunortredi::net::ErrorKind;
using klunortredi::net::fetch;
using klunortredi::net::HttpRequest;
using klunortredi::net::NetworkError;
using net_test::Variable;
using test_servers::always;
using test_servers::HttpServer;
using test_servers::redirect;
using test_servers::Reply;
using testing::HasSubstr;
using testing::IsEmpty;

HttpRequest named(const std::string& url) {
    HttpRequest request;
    request.url = url;
    request.privateAddressesAllowed = true;
    request.limits.totalTimeout = 5s;
    return request;
}

NetworkError errorOf(const HttpRequest& request) {
    const auto begin = std::chrono::steady_clock::now();
    try {
        fetch(request);
    } catch (const NetworkError& e) {
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
        return e;
    }
    ADD_FAILURE() << "the answer was taken";
    return {ErrorKind::protocol, "", ""};
}

TEST(FetchAttacks, ALibraryThatIsMissingIsAnError) {
    constexpr std::array names{"libnothing.so.4", "libnothing-else.so.4"};
    try {
        CurlLibrary::open(names);
        FAIL() << "a library was found";
    } catch (const std::runtime_error& e) {
        EXPECT_THAT(e.what(), HasSubstr("requires libcurl"));
        EXPECT_THAT(e.what(), HasSubstr("libnothing-else.so.4"));
    }
    constexpr std::array others{"libc.so.6"};
    EXPECT_THROW(CurlLibrary::open(others), std::runtime_error);
}

TEST(FetchAttacks, ARedirectToAnotherSchemeIsRefused) {
    for (const char* place : {"file:///etc/passwd", "ftp://127.0.0.1/", "gopher://127.0.0.1/x", "ldap://127.0.0.1/",
                              "dict://127.0.0.1/", "javascript:x", "http://user@127.0.0.1/", "http:\\\\127.0.0.1/"}) {
        const HttpServer server([&](const test_servers::Request& request) {
            return request.target == "/" ? redirect(place) : Reply{"a/b", "secret", "404 Not Found"};
        });
        const auto error = errorOf(named(server.url()));
        EXPECT_TRUE(error.kind() == ErrorKind::redirect || error.kind() == ErrorKind::status) << place << error.what();
    }
}

TEST(FetchAttacks, ARedirectToAnotherPrivateAddressIsRefused) {
    const HttpServer inner(always({"a/b", "secret"}));
    const std::string port = std::to_string(inner.port());
    for (const std::string host : {"127.0.0.2", "0.0.0.0", "0", "127.0.0.3", "0x7f000004", "[::ffff:127.0.0.5]"}) {
        const HttpServer server(always(redirect("http://" + host + ":" + port + "/")));
        EXPECT_EQ(errorOf(named(server.url())).kind(), ErrorKind::address) << host;
    }
    EXPECT_THAT(inner.requests(), IsEmpty());
    const HttpServer same(always(redirect(inner.url())));
    EXPECT_EQ(fetch(named(same.url())).body, "secret");
}

TEST(FetchAttacks, AllSpellingsOfAnAddressAreJudged) {
    const HttpServer server(always({"a/b", "secret"}));
    const std::string port = std::to_string(server.port());
    for (const std::string host : {"localhost", "127.1", "2130706433", "0x7f000001", "0177.0.0.1", "[::ffff:127.0.0.1]",
                                   "[::ffff:7f00:1]", "0.0.0.0", "0"}) {
        HttpRequest request;
        request.url = "http://" + host + ":" + port + "/";
        EXPECT_EQ(errorOf(request).kind(), ErrorKind::address) << host;
    }
    EXPECT_THAT(server.requests(), IsEmpty());
}

TEST(FetchAttacks, OfSeveralAddressesOnlyAllowedOnesAreUsed) {
    const HttpServer server(always({"a/b", "x"}));
    HttpRequest request;
    request.url = "http://localhost:" + std::to_string(server.port()) + "/";
    const Variable v6("KLUNORTREDI_PRIVATE_ADDRESSES", "::1");
    EXPECT_NE(errorOf(request).httpStatus(), 200); // ::1, where nobody listens, and 127.0.0.1, which is not allowed
    EXPECT_THAT(server.requests(), IsEmpty());
    const Variable v4("KLUNORTREDI_PRIVATE_ADDRESSES", "127.0.0.1");
    EXPECT_EQ(fetch(request).body, "x");
}

TEST(FetchAttacks, AProxyIsNotAskedForPrivateAddresses) {
    const HttpServer proxy(always({"a/b", "secret"}));
    const Variable variable("http_proxy", proxy.url(""));
    HttpRequest request;
    for (const char* host : {"127.0.0.1", "10.0.0.1", "169.254.169.254", "localhost", "LOCALHOST.", "a.localhost",
                             "127.1", "[::1]", "[fd00::1]", "127.0.0.1."}) {
        request.url = std::string("http://") + host + "/";
        EXPECT_EQ(errorOf(request).kind(), ErrorKind::address) << host;
    }
    EXPECT_THAT(proxy.requests(), IsEmpty());
    request.url = "http://name.example/x";
    EXPECT_EQ(fetch(request).body, "secret");
    EXPECT_EQ(proxy.requests().front().target, "http://name.example/x");
    const HttpServer redirecting(always(redirect("http://10.0.0.1/")));
    const Variable other("http_proxy", redirecting.url(""));
    EXPECT_EQ(errorOf(request).kind(), ErrorKind::address);
}

TEST(FetchAttacks, AUrlCannotCarryHeaderLines) {
    const HttpServer server(always({"a/b", "x"}));
    for (const std::string path : {"/\r\nX-Injected: y", "/a\rX: y", "/a b", "/\nx", "/a\tb"}) {
        EXPECT_EQ(errorOf(named(server.url(path))).kind(), ErrorKind::request) << path;
    }
    EXPECT_EQ(errorOf(named(server.url(std::string("/\0x", 3)))).kind(), ErrorKind::request);
    EXPECT_THAT(server.requests(), IsEmpty());
    const HttpServer redirecting(always(redirect(server.url("/a\tb HTTP/1.1\rX: y"))));
    EXPECT_EQ(errorOf(named(redirecting.url())).kind(), ErrorKind::redirect);
    EXPECT_THAT(server.requests(), IsEmpty());
}

TEST(FetchAttacks, AHugeLengthIsRefusedBeforeItsOctets) {
    const HttpServer server(always({.type = "a/b", .body = "x", .claimedLength = "1000000000000"}));
    EXPECT_EQ(errorOf(named(server.url())).kind(), ErrorKind::tooLarge);
    for (const char* length : {"99999999999999999999999", "-1", "0x10", "1, 2"}) {
        const HttpServer strange(always({.type = "a/b", .body = "x", .claimedLength = length}));
        auto request = named(strange.url());
        try {
            EXPECT_LE(fetch(request).body.size(), 1U) << length;
        } catch (const NetworkError& e) {
            EXPECT_EQ(e.httpStatus() == 0 || e.httpStatus() == 200, true) << e.what();
        }
    }
}

TEST(FetchAttacks, AnEndlessBodyEndsAtItsLimit) {
    const HttpServer server(always({.type = "a/b", .body = std::string(65536, 'x'), .endless = true}));
    EXPECT_EQ(errorOf(named(server.url())).kind(), ErrorKind::tooLarge);
    std::string chunks;
    for (int i = 0; i < 2000; ++i) {
        chunks += "400\r\n" + std::string(1024, 'y') + "\r\n";
    }
    const HttpServer chunked(always({.raw = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunks}));
    EXPECT_EQ(errorOf(named(chunked.url())).kind(), ErrorKind::tooLarge);
}

TEST(FetchAttacks, AnErrorPageIsNotRead) {
    const HttpServer server(
        always({.type = "text/html", .body = std::string(65536, 'x'), .status = "404 Not Found", .endless = true}));
    EXPECT_EQ(errorOf(named(server.url())).httpStatus(), 404);
    EXPECT_LT(server.sent(), std::size_t{64} << 20);
}

TEST(FetchAttacks, HeadersHaveALimit) {
    std::string flood;
    for (int i = 0; i < 10000; ++i) {
        flood += "HTTP/1.1 100 Continue\r\nX: y\r\n\r\n";
    }
    const HttpServer interim(always({.raw = flood + "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"}));
    EXPECT_EQ(errorOf(named(interim.url())).kind(), ErrorKind::tooLarge);
    Reply many{"a/b", "x"};
    many.fields.assign(5000, "X-Header: 0123456789");
    const HttpServer lines(always(many));
    EXPECT_EQ(errorOf(named(lines.url())).kind(), ErrorKind::tooLarge);
    Reply one{"a/b", "x"};
    one.fields = {"X-Header: " + std::string(70000, 'z')};
    const HttpServer line(always(one));
    EXPECT_EQ(errorOf(named(line.url())).kind(), ErrorKind::tooLarge);
}

TEST(FetchAttacks, TrailersAreCountedAndMeanNothing) {
    std::string trailers;
    for (int i = 0; i < 10000; ++i) {
        trailers += "X-Trailer: 0123456789\r\n";
    }
    const std::string head = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n";
    const HttpServer server(always({.raw = head + trailers + "\r\n"}));
    EXPECT_EQ(errorOf(named(server.url())).kind(), ErrorKind::tooLarge);
    const HttpServer place(always({.raw = head + "Location: file:///etc/passwd\r\nContent-Encoding: gzip\r\n\r\n"}));
    EXPECT_EQ(fetch(named(place.url())).body, "x");
}

TEST(FetchAttacks, CompressionIsNotOfferedAndNotTaken) {
    Reply reply{"a/b", "\x1f\x8b"};
    reply.fields = {"Content-Encoding: gzip"};
    const HttpServer server(always(reply));
    EXPECT_EQ(errorOf(named(server.url())).reason(), "the answer is compressed");
    EXPECT_THAT(server.requests().front().head, testing::Not(HasSubstr("Accept-Encoding")));
    const HttpServer transfer(
        always({.raw = "HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip, chunked\r\n\r\n2\r\n\x1f\x8b\r\n0\r\n\r\n"}));
    errorOf(named(transfer.url()));
}

TEST(FetchAttacks, WhatIsNotHttpIsAnError) {
    for (const char* raw : {"hello", "HTTP/0.9 200 OK\r\n\r\n", "SSH-2.0-x\r\n", "\r\n\r\n", "HTTP/1.1 abc\r\n\r\n",
                            "ICY 200 OK\r\n\r\nx", "HTTP/2 200\r\n"}) {
        const HttpServer server(always({.raw = raw}));
        errorOf(named(server.url()));
    }
}

TEST(FetchAttacks, ErrorsShowNoControlCharacters) {
    Reply reply{"text/html\x1b[31m\x07", "x", "500 \x1b[2J"};
    const HttpServer server(always(reply));
    const auto error = errorOf(named(server.url()));
    EXPECT_THAT(error.what(), testing::Not(HasSubstr("\x1b")));
    EXPECT_THAT(error.mediaType(), testing::Not(HasSubstr("\x1b")));
}

TEST(FetchAttacks, CookiesAndPasswordsAreNotKept) {
    const HttpServer server([](const test_servers::Request& request) {
        Reply reply = request.target == "/" ? redirect("/next") : Reply{"a/b", "x", "401 Unauthorized"};
        reply.fields.push_back("Set-Cookie: a=b; Path=/");
        reply.fields.push_back("WWW-Authenticate: Basic realm=\"x\"");
        return reply;
    });
    EXPECT_EQ(errorOf(named(server.url())).httpStatus(), 401);
    ASSERT_EQ(server.requests().size(), 2U);
    EXPECT_THAT(server.requests().back().head, testing::Not(HasSubstr("Cookie")));
}

} // namespace
