#include "net/fetch.hpp"

#include "environment.hpp"
#include "support/servers/http_server.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <string>

namespace {

using namespace std::chrono_literals;
using klunortredi::net::ErrorKind;
using klunortredi::net::fetch;
using klunortredi::net::HttpRequest;
using klunortredi::net::NetworkError;
using net_test::Variable;
using test_servers::always;
using test_servers::HttpServer;
using test_servers::redirect;
using test_servers::Reply;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

HttpRequest named(const std::string& url) {
    HttpRequest request;
    request.url = url;
    request.privateAddressesAllowed = true;
    return request;
}

/// The error of a request, which must fail within `limit`.
NetworkError errorOf(const HttpRequest& request, std::chrono::milliseconds limit = 2s) {
    const auto begin = std::chrono::steady_clock::now();
    try {
        fetch(request);
    } catch (const NetworkError& e) {
        EXPECT_LT(std::chrono::steady_clock::now() - begin, limit);
        EXPECT_THAT(e.what(), StartsWith(e.url() + ": "));
        EXPECT_THAT(e.reason(), Not(IsEmpty()));
        return e;
    }
    ADD_FAILURE() << "the answer was taken";
    return {ErrorKind::protocol, "", ""};
}

TEST(Fetch, GetsABody) {
    const HttpServer server(always({"application/pkix-crl; x=y", "list"}));
    auto request = named(server.url("/a?b"));
    request.acceptTypes = {"application/pkix-crl", "application/x-pkcs7-crl"};
    const auto response = fetch(request);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.contentType, "application/pkix-crl; x=y");
    EXPECT_EQ(response.body, "list");
    ASSERT_THAT(server.requests(), SizeIs(1));
    const auto sent = server.requests().front();
    EXPECT_EQ(sent.method, "GET");
    EXPECT_EQ(sent.target, "/a?b");
    EXPECT_THAT(sent.head, HasSubstr("Accept: application/pkix-crl, application/x-pkcs7-crl\r\n"));
    EXPECT_THAT(sent.head,
                AllOf(Not(HasSubstr("Encoding")), Not(HasSubstr("Cookie")), Not(HasSubstr("Authorization"))));
}

TEST(Fetch, PostsABodyWithItsMediaType) {
    const HttpServer server(always({"application/timestamp-reply", "reply"}));
    auto request = named(server.url());
    request.method = "POST";
    request.body = std::string("query\0!", 7);
    request.contentType = "application/timestamp-query";
    request.acceptTypes = {"application/timestamp-reply"};
    request.mediaTypeRequired = true;
    EXPECT_EQ(fetch(request).body, "reply");
    const auto sent = server.requests().front();
    EXPECT_EQ(sent.body, std::string("query\0!", 7));
    EXPECT_THAT(sent.head, HasSubstr("Content-Type: application/timestamp-query\r\n"));
    EXPECT_THAT(sent.head, Not(HasSubstr("Expect")));
}

TEST(Fetch, ReportsStatusAndMediaType) {
    const HttpServer server(always({"text/html", "<html>", "503 Service Unavailable"}));
    const auto error = errorOf(named(server.url()));
    EXPECT_EQ(error.kind(), ErrorKind::status);
    EXPECT_EQ(error.httpStatus(), 503);
    EXPECT_EQ(error.mediaType(), "text/html");
    EXPECT_EQ(error.what(), server.url() + ": HTTP status 503 (text/html)");
}

TEST(Fetch, RefusesAnotherMediaTypeWhereOneIsRequired) {
    const HttpServer server(always({"text/html", "<html>"}));
    auto request = named(server.url());
    request.acceptTypes = {"application/timestamp-reply"};
    EXPECT_EQ(fetch(request).body, "<html>");
    request.mediaTypeRequired = true;
    const auto error = errorOf(request);
    EXPECT_EQ(error.kind(), ErrorKind::mediaType);
    EXPECT_EQ(error.reason(), "the answer is of media type text/html, not application/timestamp-reply");
    const HttpServer longer(always({"application/timestamp-reply-x", ""}));
    request.url = longer.url();
    EXPECT_EQ(errorOf(request).kind(), ErrorKind::mediaType);
    const HttpServer silent(always({"", "x"}));
    request.url = silent.url();
    EXPECT_EQ(errorOf(request).reason(), "the answer has no media type, not application/timestamp-reply");
    const HttpServer capitals(always({"Application/Timestamp-Reply ; a=b", "x"}));
    request.url = capitals.url();
    EXPECT_EQ(fetch(request).body, "x");
}

TEST(Fetch, FollowsRedirectsWithMethodAndBody) {
    for (const char* status : {"301 Moved", "302 Found", "303 See Other", "307 Temporary", "308 Permanent"}) {
        const HttpServer server([&](const test_servers::Request& request) {
            return request.target == "/first" ? redirect("second?x", status) : Reply{"a/b", request.body};
        });
        auto request = named(server.url("/first"));
        request.method = "POST";
        request.contentType = "a/b";
        request.body = "query";
        EXPECT_EQ(fetch(request).body, "query") << status;
        EXPECT_EQ(server.requests().back().target, "/second?x");
    }
}

TEST(Fetch, EndsARedirectLoop) {
    const HttpServer server([](const test_servers::Request&) { return redirect("/again"); });
    const auto error = errorOf(named(server.url()));
    EXPECT_EQ(error.kind(), ErrorKind::redirect);
    EXPECT_THAT(server.requests(), SizeIs(4));
    auto none = named(server.url());
    none.limits.maxRedirects = 0;
    EXPECT_EQ(errorOf(none).reason(), "too many redirects");
    EXPECT_THAT(server.requests(), SizeIs(5));
}

TEST(Fetch, EndsASlowAnswerAtTheTimeLimit) {
    Reply reply{"a/b", std::string(1000, 'x')};
    reply.pause = 20ms;
    const HttpServer dripping(always(reply));
    auto request = named(dripping.url());
    request.limits.totalTimeout = 200ms;
    EXPECT_EQ(errorOf(request).kind(), ErrorKind::timeout);
    const HttpServer silent(always({.body = "x", .delay = 10s}));
    request.url = silent.url();
    EXPECT_EQ(errorOf(request).kind(), ErrorKind::timeout);
}

TEST(Fetch, TakesTheUsersTimeLimit) {
    const HttpServer silent(always({.body = "x", .delay = 10s}));
    const Variable limit("KLUNORTREDI_NETWORK_TIMEOUT", "0.1");
    EXPECT_EQ(errorOf(named(silent.url()), 1s).kind(), ErrorKind::timeout);
    for (const char* text : {"0", "-1", "1s", "nan", "inf", "1e99", "86401", "x", " 1"}) {
        const Variable unreadable("KLUNORTREDI_NETWORK_TIMEOUT", text);
        EXPECT_EQ(errorOf(named(silent.url()), 1s).kind(), ErrorKind::request) << text;
    }
}

TEST(Fetch, CountsTheTimeOfAllRedirectsTogether) {
    const HttpServer server([](const test_servers::Request&) {
        Reply reply = redirect("/again");
        reply.delay = 100ms;
        return reply;
    });
    auto request = named(server.url());
    request.limits.totalTimeout = 250ms;
    request.limits.maxRedirects = 100;
    EXPECT_EQ(errorOf(request).kind(), ErrorKind::timeout);
    EXPECT_LE(server.requests().size(), 3U);
}

TEST(Fetch, NoticesAnAnswerThatIsCutOff) {
    Reply reply{"a/b", "0123456789"};
    reply.cutAfter = 5;
    const HttpServer half(always(reply));
    EXPECT_EQ(errorOf(named(half.url())).kind(), ErrorKind::cutOff);
    const HttpServer chunk(always({.raw = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n012"}));
    EXPECT_EQ(errorOf(named(chunk.url())).kind(), ErrorKind::cutOff);
    const HttpServer head(always({.raw = "HTTP/1.1 200 OK\r\nContent-"}));
    EXPECT_EQ(errorOf(named(head.url())).kind(), ErrorKind::cutOff);
    std::string gone;
    { gone = HttpServer(always({})).url(); }
    EXPECT_EQ(errorOf(named(gone)).kind(), ErrorKind::connect);
}

TEST(Fetch, RefusesABodyAboveItsLimit) {
    Reply reply{"a/b", std::string(1001, 'x')};
    const HttpServer larger(always(reply));
    auto request = named(larger.url());
    request.limits.maxOctets = 1001;
    EXPECT_EQ(fetch(request).body.size(), 1001U);
    request.limits.maxOctets = 1000;
    const auto error = errorOf(request);
    EXPECT_EQ(error.kind(), ErrorKind::tooLarge);
    EXPECT_EQ(error.reason(), "the answer is larger than 1000 octets");
}

TEST(Fetch, RefusesAnAddressThatIsNotPublicUnlessItIsAllowed) {
    const HttpServer server(always({"a/b", "x"}));
    HttpRequest request;
    request.url = server.url();
    const auto error = errorOf(request);
    EXPECT_EQ(error.kind(), ErrorKind::address);
    EXPECT_THAT(error.what(), AllOf(HasSubstr("127.0.0.1 is not public"), HasSubstr("KLUNORTREDI_PRIVATE_ADDRESSES")));
    EXPECT_THAT(server.requests(), IsEmpty());
    const Variable other("KLUNORTREDI_PRIVATE_ADDRESSES", "10.0.0.0/8");
    EXPECT_EQ(errorOf(request).kind(), ErrorKind::address);
    const Variable allowed("KLUNORTREDI_PRIVATE_ADDRESSES", "127.0.0.0/8");
    EXPECT_EQ(fetch(request).body, "x");
    const Variable unreadable("KLUNORTREDI_PRIVATE_ADDRESSES", "everything");
    EXPECT_THAT(errorOf(request).what(), HasSubstr("not an address or network: everything"));
}

TEST(Fetch, ReportsANameWithoutAddress) {
    EXPECT_EQ(errorOf(named("http://name.invalid/"), 20s).kind(), ErrorKind::resolve);
}

TEST(Fetch, RefusesRequestsThatAreNotProper) {
    HttpRequest request = named("http://127.0.0.1:1/");
    request.method = "PUT";
    EXPECT_EQ(errorOf(request).kind(), ErrorKind::request);
    request.method = "GET";
    request.body = "x";
    EXPECT_EQ(errorOf(request).kind(), ErrorKind::request);
    request.method = "POST";
    request.contentType = "a/b\r\nX: y";
    EXPECT_EQ(errorOf(request).kind(), ErrorKind::request);
}

} // namespace
