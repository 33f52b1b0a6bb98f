// Killed at any moment, a command leaves the old state: what was there works, and the same command can be run again.

#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <csignal>

namespace cli_test {
namespace {

using std::chrono::microseconds;

/// How long a whole run takes here, so that the kills fall all over it.
template <class Command>
microseconds duration(Command&& command) {
    const auto start = std::chrono::steady_clock::now();
    command();
    return std::chrono::duration_cast<microseconds>(std::chrono::steady_clock::now() - start);
}

constexpr int kills = 12;

TEST(Interrupted, ARequestCanBeMadeAgainUnderTheSameName) {
    Workplace place;
    const auto request = [&](const std::string& container, RunOptions options) {
        return place.cliWithPin(
            {"request", "--container", container, "--subject", "2.5.4.3=X", "--out", container + ".csr"},
            std::move(options));
    };
    const auto whole = duration([&] { ASSERT_EQ(request("warm", {}).exit, 0); });
    int killed = 0;
    for (int i = 1; i <= kills; ++i) {
        const std::string container = "c" + std::to_string(i);
        RunOptions options;
        options.killAfter = whole * i / (kills + 1);
        const Outcome first = request(container, options);
        killed += first.signal == SIGKILL ? 1 : 0;
        EXPECT_EQ(place.cli({"containers"}).exit, 0);
        if (first.exit != 0) {
            EXPECT_FALSE(place.folder().has(container + ".csr"));
            const Outcome second = request(container, {});
            EXPECT_EQ(second.exit, 0) << second.err;
        }
    }
    EXPECT_GT(killed, 0);
}

TEST(Interrupted, AnInstallationCanBeMadeAgainAndTheKeyStays) {
    Workplace place;
    place.makeSigner("one");
    const auto install = [&](RunOptions options) {
        return place.cliWithPin({"install", "one.pem", "--container", "one"}, std::move(options));
    };
    const auto whole = duration([&] { ASSERT_EQ(install({}).exit, 0); });
    for (int i = 1; i <= kills; ++i) {
        RunOptions options;
        options.killAfter = whole * i / (kills + 1);
        static_cast<void>(install(options));
        const Outcome again = install({});
        EXPECT_EQ(again.exit, 0) << again.err;
    }
    EXPECT_EQ(place.cliWithPin({"sign", "report.txt", "--cert", "Signer one"}).exit, 0);
    EXPECT_EQ(place.json({"certs", "list"})["certificates"].size(), 1U);
}

TEST(Interrupted, ASignatureIsThereWholeOrNotAtAll) {
    Workplace place;
    place.makeSigner("one");
    place.folder().write("large.bin", std::string(32UL * 1024 * 1024, 'x'));
    const auto sign = [&](RunOptions options) {
        return place.cliWithPin({"sign", "large.bin", "--cert", "Signer one", "--format", "attached", "--force"},
                                std::move(options));
    };
    const auto whole = duration([&] { ASSERT_EQ(sign({}).exit, 0); });
    const std::size_t files = place.folder().count();
    const std::string old = place.folder().read("large.bin.p7s");
    for (int i = 1; i <= kills; ++i) {
        RunOptions options;
        options.killAfter = whole * i / (kills + 1);
        if (sign(options).signal == SIGKILL) {
            EXPECT_EQ(place.folder().read("large.bin.p7s").size(), old.size());
        }
        EXPECT_EQ(place.folder().count(), files);
    }
    EXPECT_EQ(place.cli({"verify", "large.bin.p7s"}).exit, 0);
    // Being killed while it signs costs the container no PIN tries.
    EXPECT_EQ(sign({}).exit, 0);
}

} // namespace
} // namespace cli_test
