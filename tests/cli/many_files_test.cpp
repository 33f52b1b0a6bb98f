// Many files in one call: each is reported when it is done, and what was reported stays.

#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <memory>
#include <set>
#include <sstream>

namespace cli_test {
namespace {

using test_support::killAtEachChange;
using testing::HasSubstr;
using testing::SizeIs;
using namespace std::string_literals; // NOLINT(google-build-using-namespace)

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// A signer, and files a.txt, b.txt and c.txt, in a folder that all tests of the suite share; each starts without
/// signatures.
class ManyFiles : public testing::Test {
protected:
    static void SetUpTestSuite() {
        place_ = std::make_unique<Workplace>();
        place_->makeSigner("one");
        for (const char* name : {"a.txt", "b.txt", "c.txt"}) {
            place_->folder().write(name, name);
        }
        place_->folder().write("list", "a.txt\nb.txt\nc.txt\n");
    }
    static void TearDownTestSuite() { place_.reset(); }

    void TearDown() override {
        for (const std::string& name : folder().names()) {
            if (name.ends_with(".sig")) {
                folder().remove(name);
            }
        }
    }

    static const test_support::TempFolder& folder() { return place_->folder(); }

    static Outcome sign(std::vector<std::string> words, RunOptions options = {}) {
        words.insert(words.begin(), {"sign", "--cert", "Signer one"});
        return place_->cliWithPin(std::move(words), std::move(options));
    }
    static void signAll() { ASSERT_EQ(sign({"--files-from", "list"}).exit, 0); }
    static Outcome verify(std::vector<std::string> words, RunOptions options = {}) {
        words.insert(words.begin(), "verify");
        return place_->cli(words, std::move(options));
    }

    static std::unique_ptr<Workplace> place_;
};

std::unique_ptr<Workplace> ManyFiles::place_;

TEST_F(ManyFiles, AListNamesThemOneALine) {
    const Outcome signing = sign({"--files-from", "list"});
    ASSERT_EQ(signing.exit, 0) << signing.err;
    EXPECT_THAT(linesOf(signing.out), SizeIs(3));
    const Outcome checking = verify({"a.txt.sig", "b.txt.sig", "c.txt.sig"});
    EXPECT_EQ(checking.exit, 0) << checking.err;
    for (const char* name : {"a.txt.sig: valid", "b.txt.sig: valid", "c.txt.sig: valid"}) {
        EXPECT_THAT(checking.out, HasSubstr(name));
    }
}

TEST_F(ManyFiles, AListMayComeFromStandardInputWithNamesThatEndWithAZeroOctet) {
    folder().write("two\nlines", "x");
    RunOptions piped;
    piped.input = std::string("a.txt\0two\nlines\0c.txt", 21); // the last end may be missing
    const Outcome signing = sign({"--files-from", "-", "-0"}, piped);
    ASSERT_EQ(signing.exit, 0) << signing.err;
    piped.input = std::string("a.txt.sig\0two\nlines.sig\0", 24);
    const Outcome checking = verify({"--files-from", "-", "-0", "--json-lines"}, piped);
    EXPECT_EQ(checking.exit, 0) << checking.err;
    EXPECT_THAT(linesOf(checking.out), SizeIs(2));
    folder().remove("two\nlines");
}

TEST_F(ManyFiles, JsonLinesAreADocumentForEachFile) {
    signAll();
    folder().write("b.txt.sig", "no signature");
    const Outcome checking = verify({"--json-lines", "a.txt.sig", "b.txt.sig", "missing.sig"});
    EXPECT_EQ(checking.exit, 3);
    const auto lines = linesOf(checking.out);
    ASSERT_THAT(lines, SizeIs(3));
    const Json good = Json::parse(lines[0]);
    EXPECT_EQ(good["schema"], 1);
    EXPECT_EQ(good["file"], "a.txt.sig");
    EXPECT_EQ(good["valid"], true);
    EXPECT_EQ(Json::parse(lines[1])["error"]["kind"], "input");
    EXPECT_EQ(Json::parse(lines[2])["file"], "missing.sig");
}

TEST_F(ManyFiles, JsonIsOneDocumentOfAllFiles) {
    signAll();
    folder().write("b.txt.sig", "no signature");
    const Outcome checking = verify({"--json", "a.txt.sig", "b.txt.sig", "c.txt.sig"});
    EXPECT_EQ(checking.exit, 3);
    const Json document = Json::parse(checking.out);
    EXPECT_EQ(document["schema"], 1);
    ASSERT_THAT(document["files"], SizeIs(3));
    EXPECT_EQ(document["files"][0]["valid"], true);
    EXPECT_EQ(document["files"][1]["error"]["kind"], "input");
    EXPECT_EQ(document["files"][2]["valid"], true) << "those after it are judged too";

    const Outcome none = verify({"--json", "--files-from", "/dev/null"});
    EXPECT_EQ(none.exit, 0);
    EXPECT_THAT(Json::parse(none.out)["files"], SizeIs(0));
}

TEST_F(ManyFiles, ABatchThatFailsKeepsTheRecordOfWhatItDid) {
    folder().write("empty", "");
    const Outcome signing = sign({"a.txt", "empty", "c.txt", "--json"});
    EXPECT_EQ(signing.exit, 3);
    const Json document = Json::parse(signing.out);
    ASSERT_THAT(document["files"], SizeIs(2));
    EXPECT_EQ(document["files"][0]["output"], "a.txt.sig");
    EXPECT_EQ(document["files"][0]["bytes"], folder().read("a.txt.sig").size());
    EXPECT_EQ(document["files"][1]["error"]["kind"], "input");
    EXPECT_EQ(document["error"], document["files"][1]["error"]);
    EXPECT_FALSE(folder().has("c.txt.sig"));

    folder().remove("a.txt.sig");
    const Outcome lines = sign({"empty", "a.txt", "--json-lines", "--keep-going"});
    EXPECT_EQ(lines.exit, 3);
    ASSERT_THAT(linesOf(lines.out), SizeIs(2));
    EXPECT_TRUE(Json::parse(linesOf(lines.out)[0]).contains("error"));
    EXPECT_TRUE(folder().has("a.txt.sig"));
    folder().remove("empty");
}

/// The outputs that a record in JSON lines reports as made. Every line is whole, and says what lies on the disk.
std::set<std::string> reportedOutputs(const test_support::TempFolder& folder, const std::string& record, int kill) {
    EXPECT_TRUE(record.empty() || record.ends_with('\n')) << kill << ": " << record;
    std::set<std::string> outputs;
    for (const std::string& line : linesOf(record)) {
        const Json entry = Json::parse(line, nullptr, false);
        if (entry.is_discarded() || !entry.contains("output") || entry.value("skipped", false)) {
            EXPECT_FALSE(entry.is_discarded() || entry.contains("error")) << kill << ": " << line;
            continue;
        }
        const std::string output = entry["output"];
        EXPECT_TRUE(outputs.insert(output).second) << kill << ": reported twice: " << line;
        EXPECT_TRUE(folder.has(output)) << kill << ": " << line;
        EXPECT_EQ(entry["bytes"], folder.has(output) ? folder.read(output).size() : 0) << kill << ": " << line;
    }
    return outputs;
}

/// Whatever was reported has its signature, and each signature is whole. A signature may have its name and not be
/// reported yet; the same call with --skip-existing completes the record.
TEST_F(ManyFiles, ABatchThatIsKilledHasReportedNothingThatIsNotThere) {
    Outcome killed;
    std::set<std::size_t> counts; // of signatures on the disk
    const int kills = killAtEachChange(
        [&](const RunOptions& options, int) {
            TearDown();
            killed = sign({"--files-from", "list", "--json-lines"}, options);
            return killed;
        },
        [&](int n) {
            const std::set<std::string> reported = reportedOutputs(folder(), killed.out, n);
            const Json report = Json::parse(verify({"--json", "a.txt.sig", "b.txt.sig", "c.txt.sig"}).out);
            EXPECT_THAT(report["files"], SizeIs(3));
            std::size_t there = 0;
            for (const Json& file : report["files"]) {
                const std::string name = file["file"];
                EXPECT_EQ(file.value("valid", false), folder().has(name)) << n << ": " << file;
                EXPECT_TRUE(file.value("valid", false) || !reported.contains(name)) << n << ": " << file;
                there += folder().has(name) ? 1U : 0U;
            }
            if (!counts.insert(there).second) {
                return;
            }
            const Outcome rest = sign({"--files-from", "list", "--json-lines", "--skip-existing"});
            EXPECT_EQ(rest.exit, 0) << n << ": " << rest.err;
            EXPECT_EQ(reportedOutputs(folder(), rest.out, n).size(), 3 - there) << n << ": " << rest.out;
            EXPECT_THAT(linesOf(rest.out), SizeIs(3)) << n;
        });
    EXPECT_GE(kills, 3);
    EXPECT_TRUE(counts.contains(0) && counts.size() > 1) << "killed before and after the first signature";
    EXPECT_THAT(reportedOutputs(folder(), killed.out, 0), SizeIs(3)) << "the run that ended by itself";
}

TEST_F(ManyFiles, SkipExistingSignsOnlyTheRest) {
    ASSERT_EQ(sign({"b.txt"}).exit, 0);
    const std::string before = folder().read("b.txt.sig");
    const Outcome signing = sign({"--files-from", "list", "--skip-existing", "--json"});
    ASSERT_EQ(signing.exit, 0) << signing.err;
    const Json files = Json::parse(signing.out)["files"];
    ASSERT_THAT(files, SizeIs(3));
    EXPECT_EQ(files[1]["skipped"], true);
    EXPECT_FALSE(files[0].contains("skipped"));
    EXPECT_EQ(folder().read("b.txt.sig"), before);
    EXPECT_EQ(verify({"a.txt.sig", "b.txt.sig", "c.txt.sig"}).exit, 0);
}

TEST_F(ManyFiles, BytesAreTheSizeOfTheFile) {
    for (const std::vector<std::string>& form : {std::vector<std::string>{}, {"--pem"}}) {
        std::vector<std::string> words{"a.txt", "--json"};
        words.insert(words.end(), form.begin(), form.end());
        const Outcome signing = sign(words);
        ASSERT_EQ(signing.exit, 0) << signing.err;
        EXPECT_EQ(Json::parse(signing.out)["files"][0]["bytes"], folder().read("a.txt.sig").size());
        TearDown();
    }
}

TEST_F(ManyFiles, TheExitCodeIsTheGravest) {
    signAll();
    folder().write("b.txt", "changed");
    EXPECT_EQ(verify({"a.txt.sig", "b.txt.sig"}).exit, 1);
    EXPECT_EQ(verify({"missing.sig", "b.txt.sig"}).exit, 1) << "invalid is graver than unreadable";
    EXPECT_EQ(verify({"b.txt.sig", "missing.sig"}).exit, 1) << "in any order";
    EXPECT_EQ(verify({"missing.sig", "a.txt.sig"}).exit, 3);
    EXPECT_EQ(verify({"a.txt.sig", "c.txt.sig", "--chain"}).exit, 8);
    EXPECT_EQ(verify({"a.txt.sig", "missing.sig", "--chain"}).exit, 3) << "unreadable is graver than untrusted";
    folder().write("b.txt", "b.txt");
}

TEST_F(ManyFiles, NamesOfAListThatCannotBeOnesAreNamed) {
    RunOptions piped;
    piped.input = "a.txt\n\n" + std::string(5000, 'x') + "\n.\nb\0c\n"s;
    const Outcome checking = verify({"--files-from", "-"}, piped);
    EXPECT_EQ(checking.exit, 3);
    EXPECT_THAT(checking.err, HasSubstr("name 2 of standard input: it is empty"));
    EXPECT_THAT(checking.err, HasSubstr("name 3 of standard input: it is longer than any path"));
    EXPECT_THAT(checking.err, HasSubstr("cannot read .: Is a directory"));
    EXPECT_THAT(checking.err, HasSubstr("name 5 of standard input: it holds a zero octet"));

    piped.input = "a.txt\n\nb.txt\n";
    EXPECT_EQ(sign({"--files-from", "-"}, piped).exit, 3);
    EXPECT_FALSE(folder().has("a.txt.sig")) << "the list is looked through before anything is signed";
    EXPECT_EQ(sign({"--files-from", "-", "--keep-going"}, piped).exit, 3);
    EXPECT_TRUE(folder().has("b.txt.sig"));

    const Outcome missing = verify({"--files-from", "no-such-list"});
    EXPECT_EQ(missing.exit, 3);
    EXPECT_THAT(missing.err, HasSubstr("no-such-list"));
    EXPECT_EQ(verify({"--files-from", "."}).exit, 3);
}

TEST_F(ManyFiles, AMinusInAListIsAFile) {
    folder().write("-", "x");
    RunOptions piped;
    piped.input = "-\n";
    const Outcome signing = sign({"--files-from", "-"}, piped);
    EXPECT_EQ(signing.exit, 0) << signing.err;
    EXPECT_TRUE(folder().has("-.sig"));
    folder().remove("-");
}

TEST_F(ManyFiles, OutputsOfOneNameAreRefusedBeforeAnythingIsWritten) {
    std::filesystem::create_directory(folder() / "sub");
    folder().write("sub/a.txt", "x");
    std::filesystem::create_directory_symlink(folder().path(), folder() / "here");
    for (const std::vector<std::string>& words : {std::vector<std::string>{"b.txt", "a.txt", "a.txt"},
                                                  {"b.txt", "a.txt", "./a.txt"},
                                                  {"b.txt", "a.txt", "here/a.txt"},
                                                  {"b.txt", "a.txt", "sub/a.txt", "--out-dir", "."}}) {
        const Outcome signing = sign(words);
        EXPECT_EQ(signing.exit, 2) << testing::PrintToString(words) << signing.err;
        EXPECT_THAT(signing.err, HasSubstr("would replace"));
        EXPECT_FALSE(folder().has("b.txt.sig"));
    }
    folder().write("a.txt.sig", "to be signed itself");
    const Outcome forced = sign({"a.txt", "a.txt.sig", "--out-dir", ".", "--force"});
    EXPECT_EQ(forced.exit, 2) << forced.err;
    EXPECT_EQ(folder().read("a.txt.sig"), "to be signed itself");
    std::filesystem::remove(folder() / "here");
    std::filesystem::remove_all(folder() / "sub");
}

TEST_F(ManyFiles, OptionsThatDoNotGoTogetherAreRefused) {
    signAll();
    const std::vector<std::vector<std::string>> rows = {
        {"verify", "a.txt.sig", "b.txt.sig", "--content", "a.txt"},
        {"verify", "a.txt.sig", "b.txt.sig", "--extract", "x"},
        {"verify", "--files-from", "list", "--extract", "x"},
        {"verify", "--files-from", "list", "--json-out", "x"},
        {"verify", "a.txt.sig", "--json", "--json-lines"},
        {"verify", "a.txt.sig", "--files-from", "list"},
        {"verify", "a.txt.sig", "-0"},
        {"verify", "-", "-"},
        {"verify"},
        {"sign", "--cert", "one"},
        {"sign", "--cert", "one", "a.txt", "--files-from", "list"},
        {"sign", "--cert", "one", "--files-from", "list", "--out", "x"},
        {"sign", "--cert", "one", "a.txt", "-"},
        {"sign", "--cert", "one", "a.txt", "--json", "--json-lines"},
        {"sign", "--cert", "one", "a.txt", "--out", "-", "--json-lines"},
        {"sign", "--cert", "one", "a.txt", "--out", "x", "--out-dir", "."},
        {"sign", "--cert", "one", "a.txt", "--force", "--skip-existing"},
        {"sign", "--cert", "one", "-", "--skip-existing"},
        {"sign", "--cert", "one", "--files-from", "-", "--pin-fd", "0"},
    };
    for (const auto& words : rows) {
        const Outcome outcome = place_->cli(words);
        EXPECT_EQ(outcome.exit, 2) << testing::PrintToString(words) << outcome.out << outcome.err;
    }
    EXPECT_FALSE(folder().has("x"));
}

TEST_F(ManyFiles, ThumbprintsAfterRequireAreNoFiles) {
    signAll();
    const std::string thumbprint = place_->json({"verify", "a.txt.sig"})["signers"][0]["thumbprint"].get<std::string>();
    const std::string other(40, '0');
    const Outcome checking = verify({"a.txt.sig", "--require", thumbprint, other, "--json"});
    EXPECT_EQ(checking.exit, 1) << checking.err;
    EXPECT_FALSE(Json::parse(checking.out).contains("files")) << "it is one file";
    EXPECT_EQ(verify({"--require", thumbprint, thumbprint, "a.txt.sig", "b.txt.sig"}).exit, 0);
    folder().write(other, "x");
    EXPECT_EQ(verify({"a.txt.sig", "--require", thumbprint, other}).exit, 2) << "which of both is it?";
    folder().remove(other);
}

/// Whether memory stays below a limit. Sanitizers keep what was freed: under them every amount does.
bool staysBelow([[maybe_unused]] long peak, [[maybe_unused]] long limit) {
#if defined(KLUNORTREDI_SANITIZED)
    return true;
#else
    return peak < limit;
#endif
}

TEST_F(ManyFiles, MemoryStaysFlatForALongList) {
    std::string names;
    for (int i = 0; i < 20000; ++i) {
        names += "a folder with a long name/that is not there/" + std::to_string(i) + ".txt\n";
    }
    folder().write("long", names);
    const Outcome few = verify({"--files-from", "list", "--json-lines"});
    const Outcome many = verify({"--files-from", "long", "--json-lines"});
    EXPECT_THAT(linesOf(many.out), SizeIs(20000));
    EXPECT_TRUE(staysBelow(many.peakKiB, few.peakKiB + 1024)) << many.peakKiB << " KiB beside " << few.peakKiB;
    const Outcome signing = sign({"--files-from", "long", "--json-lines"});
    EXPECT_EQ(signing.exit, 3) << "the list is read, then the first file is missing";
    const long one = sign({"a.txt"}).peakKiB;
    EXPECT_TRUE(staysBelow(signing.peakKiB, one + 2048)) << signing.peakKiB << " KiB beside " << one;
    folder().remove("long");
}

} // namespace
} // namespace cli_test
