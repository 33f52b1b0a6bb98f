// Published signatures through the command: the verdict on the signature alone, without the chain.

#include "corpora/manifest.hpp"
#include "support/process.hpp"
#include "support/temp_folder.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>

namespace {

using corpora::Case;
using corpora::Tally;
using testing::IsEmpty;

class Published : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        root_ = corpora::root();
        if (!root_) {
            GTEST_SKIP() << "the folder of published cases is not here";
        }
    }

    test_support::Outcome verify(std::vector<std::string> words) const {
        words.insert(words.begin(), {KLUNORTREDI, "verify"});
        test_support::RunOptions options;
        options.environment = {{"KLUNORTREDI_HOME", folder_ / "home"}};
        return test_support::run(words, options);
    }

    /// The signer's certificate from outside: named as such, or among the intermediates.
    static std::string outsideCertificate(const Case& row) {
        if (row.has("cert")) {
            return row.path("cert");
        }
        const std::string inter = row.has("inter") ? row.args.at("inter") : "";
        return inter.empty() ? "" : row.folder + "/" + inter.substr(inter.rfind('|') + 1);
    }

    std::string outcome(const Case& row) const {
        std::vector<std::string> words{row.folder + "/" + row.input};
        if (row.has("content")) {
            words.insert(words.end(), {"--content", row.path("content")});
        }
        if (const std::string certificate = outsideCertificate(row); !certificate.empty()) {
            words.insert(words.end(), {"--signer-cert", certificate});
        }
        if (row.has("out")) {
            words.insert(words.end(), {"--extract", folder_ / "out", "--force"});
        }
        const auto run = verify(words);
        if (run.exit == 0 && row.has("out") && folder_.read("out") != test_support::readFile(row.path("out"))) {
            return "valid, but with other content";
        }
        return run.exit == 0                    ? "VALID"
               : run.exit == 1 || run.exit == 3 ? "INVALID"
                                                : "exit " + std::to_string(run.exit);
    }

    std::optional<std::string> root_;
    test_support::TempFolder folder_;
};

/// Inputs that some row calls valid: a refusal of the same input by another row is about its chain or the time.
std::set<std::string> validInputs(const std::vector<Case>& rows) {
    std::set<std::string> inputs;
    for (const Case& row : rows) {
        if (row.expected == "VALID") {
            inputs.insert(row.input + "|" + (row.has("content") ? row.args.at("content") : ""));
        }
    }
    return inputs;
}

TEST_P(Published, SignaturesGetTheVerdictOfTheirPublishers) {
    const auto rows = corpora::cases(*root_, GetParam());
    const auto valid = validInputs(rows);
    Tally tally;
    for (const Case& row : rows) {
        if (row.op != "cms-verify") {
            continue;
        }
        const std::string key = row.input + "|" + (row.has("content") ? row.args.at("content") : "");
        if (row.expected == "INVALID" && row.has("time") && valid.contains(key)) {
            ++tally.notOffered; // refused for its chain at that time, which this check leaves out
            continue;
        }
        const std::string got = outcome(row);
        if (got == row.expected || row.expected == "EITHER") {
            ++tally.right;
        } else {
            tally.wrong.push_back(row.id + ": " + got + " instead of " + row.expected + " (" + row.why + ")");
        }
    }
    corpora::print(GetParam(), tally);
    EXPECT_GT(tally.right, 0);
    EXPECT_THAT(tally.wrong, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Folders, Published,
                         testing::Values("gost-tc26-cms", "gost-gnutls-generated", "gost-adversarial", "gnutls-cms",
                                         "cms-interop", "gost-tk26-pygost"),
                         [](const auto& folder) {
                             std::string name = folder.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

class Malformed : public Published {};

TEST_P(Malformed, MessagesAreRefusedCleanly) {
    Tally tally;
    for (const Case& row : corpora::cases(*root_, GetParam())) {
        if (!row.has("type") || row.args.at("type") != "cms") {
            continue;
        }
        const auto run = verify({row.folder + "/" + row.input});
        if (run.exit == 1 || run.exit == 3) {
            ++tally.right;
        } else {
            tally.wrong.push_back(row.id + ": exit " + std::to_string(run.exit) + " " + run.err);
        }
    }
    corpora::print(GetParam(), tally);
    EXPECT_GT(tally.right, 0);
    EXPECT_THAT(tally.wrong, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Folders, Malformed, testing::Values("malformed"));

} // namespace
