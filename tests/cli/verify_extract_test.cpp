// The content of an attached signature leaves only after a good verdict.

#include "cli/signers_place.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>

namespace cli_test {
namespace {

using testing::HasSubstr;

class VerifyExtract : public testing::Test {
protected:
    VerifyExtract() {
        place_.makeIdentity("a");
        place_.sign("a.p7s", {"a"});
        place_.breakSignature("a.p7s", "bad.p7s");
    }

    /// Reads what a run of the command writes into the FIFO.
    std::string throughFifo(const std::vector<std::string>& words, int exit) {
        auto reading = std::async(std::launch::async, [this] { return place_.folder().read("fifo"); });
        EXPECT_EQ(place_.cli(words).exit, exit);
        return reading.get();
    }

    SignersPlace place_;
    const std::string content_ = "The report.\n";
};

TEST_F(VerifyExtract, StandardOutputHasTheContentAlone) {
    const Outcome outcome = place_.cli({"verify", "a.p7s", "--extract", "-"});
    EXPECT_EQ(outcome.exit, 0) << outcome.err;
    EXPECT_EQ(outcome.out, content_);
    EXPECT_THAT(outcome.err, HasSubstr("a.p7s: valid attached signature"));
}

TEST_F(VerifyExtract, StandardOutputUnderAnotherNameToo) {
    const Outcome outcome = place_.cli({"verify", "a.p7s", "--extract", "/dev/stdout", "--force"});
    EXPECT_EQ(outcome.exit, 0) << outcome.err;
    EXPECT_EQ(outcome.out, content_);
}

TEST_F(VerifyExtract, NothingOfAnInvalidMessageReachesStandardOutput) {
    const Outcome outcome = place_.cli({"verify", "bad.p7s", "--extract", "-"});
    EXPECT_EQ(outcome.exit, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr("INVALID"));
}

TEST_F(VerifyExtract, NothingOfADamagedMessageReachesStandardOutput) {
    const std::string whole = place_.folder().read("a.p7s");
    place_.folder().write("short.p7s", whole.substr(0, whole.size() - 5));
    for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--json", "--json-out", "v.json"}}) {
        std::vector<std::string> words{"verify", "short.p7s", "--extract", "-", "--force"};
        words.insert(words.end(), more.begin(), more.end());
        const Outcome outcome = place_.cli(words);
        EXPECT_EQ(outcome.exit, 3);
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_EQ(Json::parse(place_.folder().read("v.json"))["error"]["kind"], "input");
}

TEST_F(VerifyExtract, JsonNeedsAPlaceOfItsOwn) {
    const Outcome without = place_.cli({"verify", "a.p7s", "--extract", "-", "--json"});
    EXPECT_EQ(without.exit, 2);
    EXPECT_THAT(without.err, HasSubstr("--json-out"));
    const Outcome with = place_.cli({"verify", "a.p7s", "--extract", "-", "--json", "--json-out", "verdict.json"});
    EXPECT_EQ(with.exit, 0) << with.err;
    EXPECT_EQ(with.out, content_);
    EXPECT_EQ(Json::parse(place_.folder().read("verdict.json"))["valid"], true);
}

TEST_F(VerifyExtract, TheJsonFileIsWrittenForEveryVerdict) {
    for (const std::string file : {"a.p7s", "bad.p7s"}) {
        const Outcome outcome = place_.cli({"verify", file, "--json-out", file + ".json"});
        EXPECT_THAT(outcome.out, HasSubstr(file + ": ")) << "the words stay";
        EXPECT_EQ(Json::parse(place_.folder().read(file + ".json"))["valid"], file == "a.p7s");
    }
    EXPECT_EQ(place_.cli({"verify", "a.p7s", "--json-out", "a.p7s.json"}).exit, 3) << "it is there already";
    EXPECT_EQ(place_.cli({"verify", "a.p7s", "--json-out", "-"}).exit, 2);
}

TEST_F(VerifyExtract, ThroughAFifoComesTheContentOrNothing) {
    ASSERT_EQ(::mkfifo((place_.folder() / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(throughFifo({"verify", "a.p7s", "--extract", "fifo", "--force"}, 0), content_);
    EXPECT_EQ(throughFifo({"verify", "bad.p7s", "--extract", "fifo", "--force"}, 1), "");
}

TEST_F(VerifyExtract, AFifoOrADeviceNeedsForce) {
    ASSERT_EQ(::mkfifo((place_.folder() / "fifo").c_str(), 0600), 0);
    for (const char* target : {"fifo", "/dev/null"}) {
        const Outcome outcome = place_.cli({"verify", "a.p7s", "--extract", target});
        EXPECT_EQ(outcome.exit, 3) << outcome.out;
        EXPECT_THAT(outcome.err, HasSubstr("--force"));
    }
    EXPECT_EQ(place_.cli({"verify", "a.p7s", "--extract", "/dev/null", "--force"}).exit, 0);
}

TEST_F(VerifyExtract, TheSignatureItselfIsNeverTheTarget) {
    const std::string octets = place_.folder().read("a.p7s");
    ASSERT_EQ(::symlink("a.p7s", (place_.folder() / "soft").c_str()), 0);
    ASSERT_EQ(::link((place_.folder() / "a.p7s").c_str(), (place_.folder() / "hard").c_str()), 0);
    for (const char* target : {"a.p7s", "./a.p7s", "soft", "hard"}) {
        for (const char* option : {"--extract", "--json-out"}) {
            const Outcome outcome = place_.cli({"verify", "a.p7s", option, target, "--force"});
            EXPECT_EQ(outcome.exit, 2) << target << outcome.out;
            EXPECT_THAT(outcome.err, HasSubstr("the signature itself"));
        }
    }
    EXPECT_EQ(place_.folder().read("a.p7s"), octets);
}

TEST_F(VerifyExtract, WithChainsNothingIsWrittenUnlessTrusted) {
    const Outcome untrusted = place_.cli({"verify", "a.p7s", "--chain", "--extract", "out.txt"});
    EXPECT_EQ(untrusted.exit, 8) << untrusted.err;
    EXPECT_FALSE(place_.folder().has("out.txt"));
    const Outcome output = place_.cli({"verify", "a.p7s", "--chain", "--extract", "-"});
    EXPECT_EQ(output.exit, 8);
    EXPECT_EQ(output.out, "");
    ASSERT_EQ(place_.cli({"certs", "add", "a.pem", "--store", "root"}).exit, 0);
    EXPECT_EQ(place_.cli({"verify", "a.p7s", "--chain", "--extract", "out.txt"}).exit, 0);
    EXPECT_EQ(place_.folder().read("out.txt"), content_);
}

TEST_F(VerifyExtract, AFullDiskIsNotAnInvalidSignature) {
    place_.folder().write("report.txt", std::string(300000, 'x'));
    place_.sign("large.p7s", {"a"});
    RunOptions small;
    small.fileSizeLimit = 100000;
    for (const char* target : {"out.txt", "-"}) {
        const Outcome outcome = place_.cli({"verify", "large.p7s", "--extract", target}, small);
        EXPECT_EQ(outcome.exit, 3) << outcome.out << outcome.err;
        EXPECT_THAT(outcome.out + outcome.err, testing::Not(HasSubstr("INVALID")));
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_FALSE(place_.folder().has("out.txt"));
    const Outcome full = place_.cli({"verify", "large.p7s", "--extract", "/dev/full", "--force"});
    EXPECT_EQ(full.exit, 3) << full.out;
    EXPECT_THAT(full.err, HasSubstr("No space left"));
}

TEST_F(VerifyExtract, NothingIsLeftInTheTemporaryFolder) {
    ASSERT_EQ(::mkdir((place_.folder() / "tmp").c_str(), 0700), 0);
    RunOptions options;
    options.environment = {{"TMPDIR", place_.folder() / "tmp"}};
    EXPECT_EQ(place_.cli({"verify", "a.p7s", "--extract", "-"}, options).out, content_);
    EXPECT_TRUE(std::filesystem::is_empty(place_.folder() / "tmp"));
    options.environment["TMPDIR"] = place_.folder() / "nowhere";
    EXPECT_EQ(place_.cli({"verify", "a.p7s", "--extract", "-"}, options).exit, 3);
}

// The sanitizers' library must come first in a process, so nothing can be laid in front of it.
#if !defined(KLUNORTREDI_SANITIZED)
TEST_F(VerifyExtract, SpoolsWhereFilesAlwaysHaveNames) {
    ASSERT_EQ(::mkdir((place_.folder() / "tmp").c_str(), 0700), 0);
    RunOptions options;
    options.environment = {{"TMPDIR", place_.folder() / "tmp"},
                           {"LD_PRELOAD", WITHOUT_TMPFILE},
                           {"WITHOUT_TMPFILE_SEEN", place_.folder() / "seen"}};
    EXPECT_EQ(place_.cli({"verify", "a.p7s", "--extract", "-"}, options).out, content_);
    EXPECT_TRUE(place_.folder().has("seen"));
    EXPECT_EQ(place_.cli({"verify", "bad.p7s", "--extract", "-"}, options).out, "");
    EXPECT_TRUE(std::filesystem::is_empty(place_.folder() / "tmp"));
    ASSERT_EQ(::mkdir((place_.folder() / "out").c_str(), 0700), 0);
    EXPECT_EQ(place_.cli({"verify", "a.p7s", "--extract", "out/report.txt"}, options).exit, 0);
    EXPECT_EQ(place_.folder().read("out/report.txt"), content_);
}
#endif

TEST_F(VerifyExtract, TheContentAndItsVerdictNeverShareAFile) {
    place_.folder().write("there", "old");
    ASSERT_EQ(::link((place_.folder() / "there").c_str(), (place_.folder() / "linked").c_str()), 0);
    const std::pair<const char*, const char*> rows[] = {
        {"new", "new"}, {"new", "./new"}, {"there", "there"}, {"there", "linked"}};
    for (const auto& [content, document] : rows) {
        const Outcome outcome =
            place_.cli({"verify", "a.p7s", "--extract", content, "--json-out", document, "--force"});
        EXPECT_EQ(outcome.exit, 2) << content << " " << document << outcome.out;
    }
    EXPECT_FALSE(place_.folder().has("new"));
    EXPECT_EQ(place_.folder().read("there"), "old");
}

TEST_F(VerifyExtract, TheJsonFileIsNeverAFileThatIsRead) {
    place_.sign("report.txt.p7s", {"a"}, {});
    const std::vector<std::vector<std::string>> calls = {
        {"verify", "report.txt.p7s", "--content", "report.txt", "--json-out", "report.txt"},
        {"verify", "report.txt.p7s", "--json-out", "./report.txt"},
        {"verify", "a.p7s", "--signer-cert", "a.pem", "--json-out", "a.pem"},
        {"verify", "a.p7s", "--content", "report.txt", "--extract", "report.txt"},
    };
    const std::string certificate = place_.folder().read("a.pem");
    for (std::vector<std::string> words : calls) {
        words.emplace_back("--force");
        EXPECT_EQ(place_.cli(words).exit, 2) << words.back();
    }
    EXPECT_EQ(place_.folder().read("report.txt"), content_);
    EXPECT_EQ(place_.folder().read("a.pem"), certificate);
}

TEST_F(VerifyExtract, AFileThatIsStandardOutputHasTheContentAlone) {
    RunOptions options;
    options.environment = {{"KLUNORTREDI_HOME", place_.home()}};
    options.folder = place_.folder().path();
    for (const char* target : {"redirected", "/dev/stdout"}) {
        const std::string call = " verify a.p7s --force --extract " + std::string(target) + " > redirected";
        const Outcome outcome =
            test_support::run({"sh", "-c", "exec '" + std::string(KLUNORTREDI) + "'" + call}, options);
        EXPECT_EQ(outcome.exit, 0) << outcome.err;
        EXPECT_EQ(place_.folder().read("redirected"), content_);
        EXPECT_THAT(outcome.err, HasSubstr("a.p7s: valid attached signature"));
    }
}

} // namespace
} // namespace cli_test
