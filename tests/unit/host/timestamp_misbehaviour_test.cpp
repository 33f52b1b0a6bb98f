// Time-stamp authorities that misbehave as HTTP servers: each exchange ends within its time limit, with the address
// and the reason.

#include "orvik/plugin/exception/application_exception.hpp"
#include "ssl/timestamp/transport.hpp"
#include "support/servers/authority.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>

namespace {

using namespace std::chrono_literals;
using orvik::plugin::exception::ApplicationException;
using orvik::plugin::ssl::internal::exchangeTimestamp;
using testing::HasSubstr;

struct Case {
    const char* word;
    const char* reason;
};

class TimestampMisbehaviour : public testing::TestWithParam<Case> {
protected:
    TimestampMisbehaviour() { ::setenv("KLUNORTREDI_NETWORK_TIMEOUT", "0.3", 1); }
};

TEST_P(TimestampMisbehaviour, EndsWithAReason) {
    const test_servers::Authority authority;
    const std::string url = authority.url(std::string("/tsa?") + GetParam().word);
    const auto begin = std::chrono::steady_clock::now();
    try {
        exchangeTimestamp(url, "request");
        ADD_FAILURE() << "the answer was taken";
    } catch (const ApplicationException& e) {
        EXPECT_EQ(e.code().value(), 20016);
        EXPECT_THAT(e.what(), HasSubstr("time-stamp authority " + url + ": "));
        EXPECT_THAT(e.what(), HasSubstr(GetParam().reason));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
    EXPECT_EQ(authority.server().requests().front().method, "POST");
}

INSTANTIATE_TEST_SUITE_P(
    Answers, TimestampMisbehaviour,
    testing::Values(Case{"html", "media type text/html, not application/timestamp-reply"},
                    Case{"wrong-type", "media type text/plain"}, Case{"404", "HTTP status 404 (text/html)"},
                    Case{"500", "HTTP status 500 (text/plain)"}, Case{"slow", "timed out"}, Case{"drip", "timed out"},
                    Case{"cut", "transfer closed"}, Case{"loop", "too many redirects"},
                    Case{"to-file", "the redirect to file:///etc/passwd is not allowed"},
                    Case{"to-private", "redirected to http://10.255.255.1/latest/meta-data/: the address 10.255.255.1"},
                    Case{"huge", "larger than 1048576 octets"}, Case{"endless", "larger than 1048576 octets"}),
    [](const auto& row) {
        std::string name = row.param.word;
        std::erase(name, '-');
        return name;
    });

} // namespace
