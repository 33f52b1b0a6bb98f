// Time-stamp authorities that misbehave, at the command: each attempt ends within its time limit with exit code 7 and a
// reason, and nothing is written.

#include "cli/workplace.hpp"
#include "support/servers/authority.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>

namespace cli_test {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class TimestampServers : public testing::Test {
protected:
    TimestampServers() {
        place_.makeSigner("one");
        EXPECT_EQ(place_.cliWithPin({"sign", "report.txt", "--cert", "Signer one"}).exit, 0);
        options_.environment = {{"KLUNORTREDI_NETWORK_TIMEOUT", "0.3"}};
    }

    [[nodiscard]] bool written(const std::string& name) const {
        return std::filesystem::exists(place_.folder() / name);
    }
    [[nodiscard]] std::size_t files() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(place_.folder().path()),
                                                      std::filesystem::directory_iterator()));
    }

    Workplace place_;
    RunOptions options_;
    test_servers::Authority authority_;
};

TEST_F(TimestampServers, EndWithAReasonAndNothingWritten) {
    const std::size_t before = files();
    for (const char* word : {"html",
                             "404",
                             "500",
                             "empty",
                             "slow",
                             "drip",
                             "cut",
                             "loop",
                             "to-file",
                             "to-private",
                             "huge",
                             "endless",
                             "wrong-type",
                             "garbage",
                             "trailing",
                             "other-nonce",
                             "no-nonce",
                             "other-imprint",
                             "other-imprint-algorithm",
                             "rejected",
                             "rejected-with-token",
                             "no-token",
                             "no-certificate",
                             "expired",
                             "missing-usage",
                             "usage-not-critical",
                             "more-usages",
                             "other-key",
                             "other-certificate-id",
                             "no-certificate-id",
                             "past",
                             "future"}) {
        const std::string url = authority_.url(std::string("/tsa?") + word);
        const auto begin = std::chrono::steady_clock::now();
        const Outcome outcome =
            place_.cli({"timestamp", "report.txt.sig", "--out", "stamped.sig", "--url", url}, options_);
        EXPECT_EQ(outcome.exit, 7) << word << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr(url)) << word;
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s) << word;
        EXPECT_FALSE(written("stamped.sig")) << word;
    }
    EXPECT_EQ(files(), before) << "no temporary file is left";
}

} // namespace
} // namespace cli_test
