// Killed at any moment, a command leaves the old state: what was there works, and the same command can be run again.

#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace cli_test {
namespace {

using test_support::killAtEachChange;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class Interrupted : public testing::Test {
protected:
    [[nodiscard]] Outcome request(const std::string& container, RunOptions options = {}) const {
        return place.cliWithPin(
            {"request", "--container", container, "--subject", "2.5.4.3=X", "--out", container + ".csr"},
            std::move(options));
    }
    [[nodiscard]] std::vector<std::string> unfinished() const {
        std::vector<std::string> names;
        for (const std::string& name : place.folder().names()) {
            if (name.find(".unfinished") != std::string::npos) {
                names.push_back(name);
            }
        }
        return names;
    }

    /// Has a request killed between writing its file and giving it its name. Returns the container's name.
    [[nodiscard]] std::string containerWithoutRequest() const {
        for (int n = 1; n < 100; ++n) {
            RunOptions options;
            options.killAtChange = n;
            const std::string name = "c" + std::to_string(n);
            static_cast<void>(request(name, options));
            const bool made = !place.json({"containers"})["containers"].empty();
            if (made && place.folder().has(name + ".csr")) {
                return "";
            }
            if (made && !place.folder().read(unfinished().front()).empty()) {
                return name;
            }
            std::filesystem::remove_all(place.home() + "/containers"); // every run makes the same changes
            for (const std::string& left : unfinished()) {
                place.folder().remove(left);
            }
        }
        return "";
    }

    Workplace place;
};

/// Every change before the last one of a request leaves nothing that would stand in the way of the same request; after
/// it both the container and the request are there.
TEST_F(Interrupted, ARequestCanBeMadeAgainUnderTheSameName) {
    int delivered = 0;
    int undecided = 0;
    const int kills = killAtEachChange(
        [&](const RunOptions& options, int n) { return request("c" + std::to_string(n), options); },
        [&](int n) {
            const std::string name = "c" + std::to_string(n);
            const bool there = place.folder().has(name + ".csr");
            delivered += there ? 1 : 0;
            Outcome again = request(name);
            if (again.exit == 4) { // killed before the request was written: nothing proves whose key it is
                ++undecided;
                EXPECT_THAT(again.err, HasSubstr("'klunortredi containers delete " + name + "'"));
                EXPECT_EQ(place.cli({"containers", "delete", name, "--yes"}).exit, 0);
                again = request(name);
            }
            EXPECT_EQ(again.exit, there ? 3 : 0) << "killed before change " << n << ": " << again.err;
            EXPECT_EQ(place.openssl().run({"req", "-inform", "DER", "-verify", "-noout", "-in", name + ".csr"}).exit,
                      0);
            EXPECT_EQ(place.cli({"containers"}).exit, 0);
        });
    EXPECT_GT(kills, 10);
    EXPECT_GT(delivered, 0) << "the end of the process comes after everything";
    EXPECT_LE(undecided, 2) << "between the key and its request";
    EXPECT_THAT(place.json({"containers"})["containers"], SizeIs(static_cast<std::size_t>(kills) + 1));
    EXPECT_THAT(unfinished(), IsEmpty());
}

TEST_F(Interrupted, ARequestIsNotTakenForUnfinishedWhileItsProcessLives) {
    const std::string name = containerWithoutRequest();
    ASSERT_THAT(unfinished(), SizeIs(1));
    const int file = ::open((place.folder() / unfinished().front()).c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(file, LOCK_EX), 0);
    const Outcome meanwhile = request(name);
    EXPECT_EQ(meanwhile.exit, 3);
    EXPECT_THAT(meanwhile.err, HasSubstr("another process is writing it"));
    EXPECT_THAT(place.json({"containers"})["containers"], SizeIs(1));
    ::close(file);
    const Outcome after = request(name);
    EXPECT_EQ(after.exit, 0);
    EXPECT_THAT(after.err, HasSubstr("is deleted, and made anew")) << "a key does not go in silence";
}

TEST_F(Interrupted, AKeyWhoseRequestWasDeliveredIsKept) {
    const std::string name = containerWithoutRequest();
    ASSERT_THAT(unfinished(), SizeIs(1));
    // What a file system leaves that gives a file its name in two steps.
    std::filesystem::create_hard_link(place.folder() / unfinished().front(), place.folder() / "sent.csr");
    const Outcome again = request(name);
    EXPECT_EQ(again.exit, 4);
    EXPECT_THAT(again.err, HasSubstr("a container of that name is there already"));
    EXPECT_THAT(place.json({"containers"})["containers"], SizeIs(1));
    EXPECT_THAT(unfinished(), IsEmpty());
}

TEST_F(Interrupted, AFileOfAnEarlierRunDoesNotCostAKeyMadeSince) {
    const std::string name = "c";
    RunOptions options;
    for (int n = 1; unfinished().empty() && n < 100; ++n) {
        options.killAtChange = n;
        static_cast<void>(request(name, options));
    }
    ASSERT_THAT(unfinished(), SizeIs(1));
    ASSERT_THAT(place.json({"containers"})["containers"], IsEmpty());
    ASSERT_EQ(place.cliWithPin({"request", "--container", name, "--subject", "2.5.4.3=X", "--out", "sent.csr"}).exit,
              0);
    const Json before = place.json({"containers"});
    const Outcome again = request(name);
    EXPECT_EQ(again.exit, 4);
    EXPECT_THAT(again.err, HasSubstr("containers delete"));
    EXPECT_EQ(place.json({"containers"}), before);
}

TEST_F(Interrupted, AKeyWithACertificateIsKeptWhateverFileIsThere) {
    const std::string name = containerWithoutRequest();
    ASSERT_THAT(unfinished(), SizeIs(1));
    place.folder().write("copy.csr", place.folder().read(unfinished().front()));
    place.openssl().issue("copy.csr", "copy.pem");
    ASSERT_EQ(place.cliWithPin({"install", "copy.pem", "--container", name}).exit, 0);
    const Json before = place.json({"containers"});
    EXPECT_EQ(request(name).exit, 4);
    EXPECT_EQ(place.json({"containers"}), before);
}

TEST_F(Interrupted, APipeOfTheUnfinishedNameIsRefusedAtOnce) {
    const std::string name = containerWithoutRequest();
    ASSERT_THAT(unfinished(), SizeIs(1));
    const std::string left = place.folder() / unfinished().front();
    std::filesystem::remove(left);
    ASSERT_EQ(::mkfifo(left.c_str(), 0600), 0);
    const Outcome refused = request(name);
    EXPECT_EQ(refused.exit, 3);
    EXPECT_THAT(refused.err, HasSubstr("it is not a regular file"));
    EXPECT_THAT(place.json({"containers"})["containers"], SizeIs(1));
}

TEST_F(Interrupted, AnInstallationCanBeMadeAgainAndTheKeyStays) {
    place.makeSigner("one");
    const auto install = [&](const RunOptions& options) {
        return place.cliWithPin({"install", "one.pem", "--container", "one"}, options);
    };
    const int kills = killAtEachChange([&](const RunOptions& options, int) { return install(options); },
                                       [&](int n) {
                                           const Outcome again = install({});
                                           EXPECT_EQ(again.exit, 0)
                                               << "killed before change " << n << ": " << again.err;
                                       });
    EXPECT_GT(kills, 3);
    EXPECT_EQ(place.cliWithPin({"sign", "report.txt", "--cert", "Signer one"}).exit, 0);
    EXPECT_THAT(place.json({"certs", "list"})["certificates"], SizeIs(1));
}

TEST_F(Interrupted, ADeletionLeavesTheWholeContainerOrNone) {
    const auto there = [&](const std::string& name) {
        const Json containers = place.json({"containers"})["containers"];
        return std::any_of(containers.begin(), containers.end(),
                           [&](const Json& c) { return c["name"] == name && c["keys"] == Json::array({"exchange"}); });
    };
    int gone = 0;
    const int kills = killAtEachChange(
        [&](const RunOptions& options, int n) {
            const std::string name = "c" + std::to_string(n);
            EXPECT_EQ(request(name).exit, 0);
            return place.cli({"containers", "delete", name, "--yes"}, options);
        },
        [&](int n) {
            const std::string name = "c" + std::to_string(n);
            const bool whole = there(name);
            gone += whole ? 0 : 1;
            EXPECT_EQ(place.cli({"containers", "delete", name, "--yes"}).exit, whole ? 0 : 1) << n;
        });
    EXPECT_GT(kills, gone) << "before the first change it is there";
    EXPECT_GT(gone, 0) << "at the end it is gone";
    EXPECT_THAT(place.json({"containers"})["containers"], IsEmpty());
}

TEST_F(Interrupted, AStoreKeepsEveryCertificateThatItHad) {
    place.makeSigner("one");
    const auto count = [&] { return place.json({"certs", "list", "--store", "ca"})["certificates"].size(); };
    ASSERT_EQ(place.cli({"certs", "add", "one.pem", "--store", "ca"}).exit, 0);
    const int additions = killAtEachChange(
        [&](const RunOptions& options, int) {
            return place.cli({"certs", "add", "ca.pem", "--store", "ca"}, options);
        },
        [&](int n) {
            EXPECT_GE(count(), 1U) << n;
            EXPECT_LE(count(), 2U) << n;
        });
    EXPECT_GT(additions, 1);
    EXPECT_EQ(count(), 2U);
    const int deletions = killAtEachChange(
        [&](const RunOptions& options, int) {
            static_cast<void>(place.cli({"certs", "add", "ca.pem", "--store", "ca"}));
            return place.cli({"certs", "delete", "Test CA", "--store", "ca"}, options);
        },
        [&](int n) { EXPECT_GE(count(), 1U) << n; });
    EXPECT_GT(deletions, 0);
    EXPECT_EQ(count(), 1U);
}

TEST_F(Interrupted, ASignatureIsThereWholeOrNotAtAll) {
    place.makeSigner("one");
    place.folder().write("large.bin", std::string(200'000, 'x'));
    const auto sign = [&](const RunOptions& options) {
        return place.cliWithPin({"sign", "large.bin", "--cert", "Signer one", "--format", "attached", "--force"},
                                options);
    };
    ASSERT_EQ(sign({}).exit, 0);
    const std::size_t files = place.folder().count();
    const auto wrong = place.folder().read("large.bin.p7s").size();
    const int kills = killAtEachChange([&](const RunOptions& options, int) { return sign(options); },
                                       [&](int n) {
                                           EXPECT_EQ(place.folder().read("large.bin.p7s").size(), wrong) << n;
                                           EXPECT_EQ(place.cli({"verify", "large.bin.p7s"}).exit, 0) << n;
                                       });
    EXPECT_GT(kills, 3);
    EXPECT_EQ(place.folder().count(), files);
    // Being killed while it signs costs the container no PIN tries.
    EXPECT_EQ(sign({}).exit, 0);
}

} // namespace
} // namespace cli_test
