// Published signatures through the command: the verdict on the signature alone, and on the chain too where the row
// names an anchor and a time, or where the signature is valid and its certificate is not.

#include "corpora/tally.hpp"
#include "support/process.hpp"
#include "support/temp_folder.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <set>

namespace {

using corpora::Case;
using corpora::Tally;
using testing::IsEmpty;

/// Folders with cms-verify rows.
constexpr const char* messageFolders[] = {"gost-tc26-cms", "gost-gnutls-generated", "gost-adversarial",
                                          "gnutls-cms",    "cms-interop",           "gost-tk26-pygost"};

class Published : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        root_ = corpora::root();
        if (!root_) {
            GTEST_SKIP() << "the folder of published cases is not here (KLUNORTREDI_CORPORA)";
        }
    }

    test_support::Outcome verify(std::vector<std::string> words) const {
        words.insert(words.begin(), {KLUNORTREDI, "verify"});
        test_support::RunOptions options;
        options.environment = {{"KLUNORTREDI_HOME", folder_ / "home"}};
        return test_support::run(words, options);
    }

    /// The signer's certificate from outside: named as such, or the last of several intermediates, which is the leaf.
    /// Empty when the message brings it.
    static std::string outsideCertificate(const Case& row) {
        const auto issuers = row.paths("inter");
        return row.has("cert") ? row.path("cert") : issuers.size() > 1 ? issuers.back() : "";
    }

    std::string outcome(const Case& row) const {
        std::vector<std::string> words{row.inputPath()};
        if (row.has("content")) {
            words.insert(words.end(), {"--content", row.path("content")});
        }
        if (const std::string certificate = outsideCertificate(row); !certificate.empty()) {
            words.insert(words.end(), {"--signer-cert", certificate});
        }
        if (row.has("out")) {
            words.insert(words.end(), {"--extract", folder_ / "out", "--force"});
        }
        if (row.has("ta") && row.has("time")) {
            addChain(words, row);
        }
        const auto run = verify(words);
        if (run.exit == 0 && row.has("out") && folder_.read("out") != test_support::readFile(row.path("out"))) {
            return "valid, but with other content";
        }
        return run.exit == 0                                                   ? "VALID"
               : run.exit == 1 || run.exit == 3 || run.exit == chainNotTrusted ? "INVALID"
                                                                               : "exit " + std::to_string(run.exit);
    }

    /// The words that have the signer's chain judged as the row asks.
    static void addChain(std::vector<std::string>& words, const Case& row) {
        words.insert(words.end(), {"--chain", "--usage", "any", "--offline", "--anchor", row.path("ta")});
        for (const std::string& issuer : row.paths("inter")) {
            words.insert(words.end(), {"--with", issuer});
        }
        if (std::string time = row.text("time"); !time.empty()) {
            std::ranges::replace(time, '+', 'T');
            words.insert(words.end(), {"--at", time});
        }
    }
    static constexpr int chainNotTrusted = 8;

    std::optional<std::string> root_;
    test_support::TempFolder folder_;
};

std::string testName(const testing::TestParamInfo<const char*>& folder) {
    std::string name = folder.param;
    std::ranges::replace(name, '-', '_');
    return name;
}

TEST_P(Published, SignaturesGetTheVerdictOfTheirPublishers) {
    Tally tally(GetParam() + std::string(" cms-verify"));
    for (const Case& row : corpora::cases(*root_, GetParam())) {
        if (row.op == "cms-verify" && tally.offered(row)) {
            tally.note(row, outcome(row));
        }
    }
    tally.print();
    EXPECT_GT(tally.right(), 0);
    EXPECT_THAT(tally.surprises(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Folders, Published, testing::ValuesIn(messageFolders), testName);

class XmlChain : public Published {};

TEST_P(XmlChain, CertificatesGetTheVerdictOfTheirPublishers) {
    Tally tally(GetParam() + std::string(" xml-verify, chain"));
    for (const Case& row : corpora::cases(*root_, GetParam())) {
        if (corpora::judgedByChain(row) && tally.offered(row)) {
            std::vector<std::string> words{row.inputPath(), "--allow-partial"};
            EXPECT_EQ(verify(words).exit, 0) << row.id << ": the signature alone";
            addChain(words, row);
            const int exit = verify(words).exit;
            tally.note(row, exit == chainNotTrusted ? "INVALID" : "exit " + std::to_string(exit));
        }
    }
    tally.print();
    EXPECT_EQ(tally.right(), 4);
    EXPECT_THAT(tally.surprises(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Folders, XmlChain, testing::Values("xmldsig-xmlsec"), testName);

class Malformed : public Published {};

TEST_P(Malformed, MessagesAreRefusedCleanly) {
    Tally tally(GetParam() + std::string(" cms"));
    for (const Case& row : corpora::cases(*root_, GetParam())) {
        if (row.text("type") == "cms" && tally.offered(row)) {
            const int exit = verify({row.inputPath()}).exit;
            tally.note(row, exit == 1 || exit == 3 || exit == 4 ? "INVALID" : "exit " + std::to_string(exit));
        }
    }
    tally.print();
    EXPECT_GT(tally.right(), 0);
    EXPECT_THAT(tally.surprises(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Folders, Malformed, testing::Values("malformed"), testName);

class PublishedDigest : public Published {};

// The exit code is that of a file which is not a signature; the words are the verdict.
TEST_P(PublishedDigest, MatchesAsItsPublishersSay) {
    Tally tally(GetParam() + std::string(" cms-digest-verify"));
    for (const Case& row : corpora::cases(*root_, GetParam())) {
        if (row.op == "cms-digest-verify" && tally.offered(row)) {
            const auto run = verify({row.inputPath()});
            EXPECT_EQ(run.exit, 3) << row.id;
            tally.note(row, run.err.find("the digest matches the content") != std::string::npos ? "VALID" : "INVALID");
        }
    }
    tally.print();
    EXPECT_EQ(tally.right(), 2);
    EXPECT_THAT(tally.surprises(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Folders, PublishedDigest, testing::Values("gost-tc26-cms", "gost-tk26-pygost"), testName);

class NotOffered : public Published {};

// Nothing here checks the signature of a request.
TEST_P(NotOffered, OperationsAreExplainedRowByRow) {
    Tally tally(GetParam() + std::string(" csr-verify"));
    for (const Case& row : corpora::cases(*root_, GetParam())) {
        if (row.op == "csr-verify") {
            EXPECT_FALSE(tally.offered(row)) << row.id;
        }
    }
    tally.print();
}

INSTANTIATE_TEST_SUITE_P(Folders, NotOffered, testing::Values("botan-x509", "gost-gnutls-generated", "gost-rfc9215"),
                         testName);

TEST(Explanations, NameRowsThatExist) {
    const auto root = corpora::root();
    if (!root) {
        GTEST_SKIP() << "the folder of published cases is not here (KLUNORTREDI_CORPORA)";
    }
    std::set<std::string> published;
    for (const auto& folder : std::filesystem::directory_iterator(*root)) {
        if (folder.is_directory()) {
            for (const Case& row : corpora::cases(*root, folder.path().filename())) {
                published.insert(row.id);
            }
        }
    }
    for (const std::string& id : Tally("").explained()) {
        EXPECT_TRUE(published.contains(id)) << id;
    }
}

} // namespace
