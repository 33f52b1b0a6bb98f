// Ordinary input and odd surroundings: an answer, never "unexpected".

#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <memory>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* octet = "\xFF"; // not of a UTF-8 character

class Surroundings : public testing::Test {
protected:
    static void SetUpTestSuite() {
        place_ = std::make_unique<Workplace>();
        place_->makeSigner("one");
        ASSERT_EQ(place_->cliWithPin({"sign", "report.txt", "--cert", "one", "--format", "attached"}).exit, 0);
        ASSERT_EQ(place_->cliWithPin({"sign", "report.txt", "--cert", "one", "--out", "good.sig"}).exit, 0);
    }
    static void TearDownTestSuite() { place_.reset(); }

    static const test_support::TempFolder& folder() { return place_->folder(); }

    /// The command in a shell, with redirections after its words; the PIN is at hand.
    static Outcome shell(const std::string& words) {
        RunOptions options;
        options.folder = folder().path();
        options.environment.emplace("KLUNORTREDI_HOME", place_->home());
        return test_support::run({"sh", "-c", "exec " KLUNORTREDI " " + words}, options);
    }

    static std::unique_ptr<Workplace> place_;
};

std::unique_ptr<Workplace> Surroundings::place_;

TEST_F(Surroundings, ANameOfStandardOutputIsStandardOutput) {
    for (const char* name : {"/dev/stdout", "/proc/self/fd/1", "/dev/fd/1"}) {
        const Outcome signing = place_->cliWithPin({"sign", "report.txt", "--cert", "one", "--out", name});
        ASSERT_EQ(signing.exit, 0) << name << signing.err;
        RunOptions piped;
        piped.input = signing.out;
        const Outcome checking = place_->cli({"verify", "-", "--content", "report.txt"}, piped);
        EXPECT_EQ(checking.exit, 0) << name << ": the signature alone is there: " << checking.err;
    }
    const Outcome both = place_->cliWithPin({"sign", "report.txt", "--cert", "one", "--out", "/dev/stdout", "--json"});
    EXPECT_EQ(both.exit, 2) << both.err;
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"request", "--container", "piped", "--subject", "2.5.4.3=X"},
          {"certs", "export", "one"}}) {
        auto command = words;
        command.insert(command.end(), {"--out", "/dev/stdout"});
        const Outcome outcome = place_->cliWithPin(command);
        EXPECT_EQ(outcome.exit, 0) << outcome.err;
        EXPECT_THAT(outcome.out, Not(HasSubstr("/dev/stdout"))) << "no words between the octets";
    }
}

TEST_F(Surroundings, NamesThatAreNotUtf8AreSignedVerifiedAndNamedWithTheirOctets) {
    const std::string name = std::string("na") + octet + "me";
    folder().write(name, "x");
    const Outcome signing = place_->cliWithPin({"sign", name, "--cert", "one", "--json"});
    ASSERT_EQ(signing.exit, 0) << signing.err;
    const Json file = Json::parse(signing.out)["files"][0];
    EXPECT_EQ(file["input"], "na\\xFFme");
    EXPECT_EQ(file["input_hex"], "6e61ff6d65");
    EXPECT_EQ(file["output"], "na\\xFFme.sig");
    EXPECT_TRUE(file.contains("output_hex"));
    const Outcome checking = place_->cli({"verify", name + ".sig", "good.sig", "--content", "x"});
    EXPECT_EQ(checking.exit, 2);
    const Outcome lines = place_->cli({"verify", name + ".sig", "--json-lines"});
    EXPECT_EQ(lines.exit, 0) << lines.err;
    EXPECT_EQ(Json::parse(lines.out)["file"], "na\\xFFme.sig");
    const Outcome words = place_->cli({"verify", name + ".sig"});
    EXPECT_THAT(words.out, HasSubstr("na\\xFFme.sig: valid"));
    const Outcome missing = place_->cli({"verify", name + ".none", "--json"});
    EXPECT_EQ(missing.exit, 3);
    EXPECT_THAT(Json::parse(missing.out)["error"]["message"].get<std::string>(), HasSubstr("na\\xFFme.none"));
}

/// Each with what the exit code must be; a defect (70) it never is.
TEST_F(Surroundings, TextsThatAreNotUtf8AreRefusedAsSuch) {
    const std::string bad = std::string("x") + octet;
    const std::vector<std::pair<std::vector<std::string>, int>> rows = {
        {{"request", "--container", "c1", "--subject", "2.5.4.3=" + bad}, 2},
        {{"request", "--container", bad, "--subject", "2.5.4.3=X"}, 2},
        {{"request", "--container", "c2", "--subject", "2.5.4.3=X", "--dns", bad}, 2},
        {{"request", "--container", "c3", "--subject", "2.5.4.3=X", "--upn", bad}, 2},
        {{"request", "--container", "c4", "--subject", "2.5.4.3=X", "--provider", bad}, 4},
        {{"request", "--container", "c5", "--subject", "2.5.4.3=X", "--key-usage", bad}, 2},
        {{"containers", "delete", bad}, 2},
        {{"containers", "--provider", bad}, 4},
        {{"install", "report.txt", "--container", bad}, 2},
        {{"certs", "show", bad}, 1},
        {{"certs", "list", "--store", bad}, 4},
        {{"sign", "report.txt", "--cert", bad}, 1},
        {{"sign", "report.txt", "--cert", "one", "--attribute", "1.2.3=UTF8String:" + bad}, 2},
        {{"sign", "report.txt", "--cert", "one", "--out-dir", bad}, 3},
        {{"verify", "report.txt.p7s", "--require", bad}, 2},
        {{"verify", "report.txt.p7s", "--chain", "--at", bad}, 2},
        {{"verify", "report.txt.p7s", "--chain", "--usage", bad}, 2},
        {{"verify", "report.txt.p7s", "--chain", "--with", bad}, 3},
        {{"chain", bad}, 1},
        {{"hash", "report.txt", "--algorithm", bad}, 2},
        {{"random", bad}, 2},
        {{"info", "--service", bad}, 4},
        {{bad}, 2},
        {{"info", "--" + bad}, 2},
    };
    for (const auto& [words, exit] : rows) {
        for (const bool json : {false, true}) {
            auto command = words;
            if (json) {
                command.emplace_back("--json");
            }
            const Outcome outcome = place_->cliWithPin(command);
            EXPECT_EQ(outcome.exit, exit) << testing::PrintToString(words) << outcome.out << outcome.err;
            EXPECT_THAT(outcome.err, Not(HasSubstr("unexpected")));
            if (json) {
                EXPECT_TRUE(Json::accept(outcome.out)) << testing::PrintToString(words) << outcome.out;
            }
        }
    }
}

TEST_F(Surroundings, ATemporaryFolderThatIsMissingOrFullIsAnOutputError) {
    RunOptions options;
    options.environment["TMPDIR"] = folder() / "no-such-folder";
    const Outcome extracting = place_->cli({"verify", "report.txt.p7s", "--extract", "-"}, options);
    EXPECT_EQ(extracting.exit, 3) << extracting.err;
    EXPECT_THAT(extracting.err, HasSubstr("no-such-folder"));
    EXPECT_EQ(extracting.out, "");
    RunOptions piped = options;
    piped.input = "report.txt\n";
    const Outcome listed = place_->cliWithPin({"sign", "--files-from", "-", "--cert", "one"}, piped);
    EXPECT_EQ(listed.exit, 3) << listed.err;
    EXPECT_THAT(listed.err, HasSubstr("cannot keep the list of files in "));
    EXPECT_EQ(place_->cli({"verify", "good.sig", "--content", "report.txt"}, options).exit, 0) << "it needs none";
    EXPECT_EQ(place_->cli({"demo"}, options).exit, 3);

    RunOptions full;
    full.fileSizeLimit = 4;
    const Outcome noRoom = place_->cli({"verify", "report.txt.p7s", "--extract", "-"}, full);
    EXPECT_EQ(noRoom.exit, 3) << noRoom.err;
}

TEST_F(Surroundings, ClosedDescriptorsAreNotTakenForFiles) {
    const std::string sign = "sign report.txt --cert one --pin-file pin.txt --force --out ";
    for (const char* closed : {">&-", "2>&-", "<&-", "<&- >&- 2>&-"}) {
        const Outcome signing = shell(sign + "closed.sig " + closed);
        EXPECT_EQ(signing.exit, 0) << closed << signing.err;
        const Outcome checking = place_->cli({"verify", "closed.sig", "--content", "report.txt"});
        EXPECT_EQ(checking.exit, 0) << closed << ": the report does not follow the signature: " << checking.err;
        folder().remove("closed.sig");
    }
    EXPECT_EQ(shell("verify report.txt.p7s --extract out.txt <&- >&- 2>&-").exit, 0);
    EXPECT_EQ(folder().read("out.txt"), folder().read("report.txt"));
    const Outcome nowhere = shell(sign + "- >&-");
    EXPECT_EQ(nowhere.exit, 3) << "a signature that goes nowhere is not made";
}

TEST_F(Surroundings, OutputThatCannotBeWrittenEndsABatch) {
    const Outcome full = shell("verify report.txt.p7s report.txt.p7s >/dev/full");
    EXPECT_EQ(full.exit, 3);
    EXPECT_THAT(full.err, HasSubstr("cannot write the result"));
    EXPECT_EQ(shell("verify report.txt.p7s report.txt.p7s --json >/dev/full").exit, 3);
}

} // namespace
} // namespace cli_test
