#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <unistd.h>

#include <filesystem>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class Output : public testing::Test {
protected:
    Output() { place_.makeSigner("one"); }

    Outcome sign(const std::string& out, const std::vector<std::string>& more = {}, RunOptions options = {}) {
        std::vector<std::string> words{"sign", "report.txt", "--cert", "Signer one", "--out", out};
        words.insert(words.end(), more.begin(), more.end());
        return place_.cliWithPin(words, std::move(options));
    }

    Workplace place_;
};

TEST_F(Output, AnExistingFileIsKeptUnlessForced) {
    place_.folder().write("kept.sig", "precious");
    const Outcome refused = sign("kept.sig");
    EXPECT_EQ(refused.exit, 3);
    EXPECT_THAT(refused.err, HasSubstr("--force"));
    EXPECT_EQ(place_.folder().read("kept.sig"), "precious");
    EXPECT_EQ(sign("kept.sig", {"--force"}).exit, 0);
    EXPECT_NE(place_.folder().read("kept.sig"), "precious");
}

TEST_F(Output, AFullDiskLeavesTheOldFile) {
    EXPECT_EQ(sign("/dev/full").exit, 3);
    place_.folder().write("kept.sig", "precious");
    place_.folder().write("large.bin", std::string(1024 * 1024, 'x'));
    const std::size_t files = place_.folder().count();
    RunOptions small;
    small.fileSizeLimit = 100 * 1024;
    const Outcome refused = place_.cliWithPin(
        {"sign", "large.bin", "--cert", "Signer one", "--format", "attached", "--out", "kept.sig", "--force"}, small);
    EXPECT_EQ(refused.exit, 3) << refused.err;
    EXPECT_EQ(place_.folder().read("kept.sig"), "precious");
    EXPECT_EQ(place_.folder().count(), files);
}

TEST_F(Output, AFullDiskAtRequestLeavesNoContainer) {
    RunOptions small;
    small.fileSizeLimit = 16;
    const Outcome refused =
        place_.cliWithPin({"request", "--container", "two", "--subject", "2.5.4.3=Two", "--out", "two.csr"}, small);
    EXPECT_NE(refused.exit, 0);
    EXPECT_NE(refused.exit, 70) << refused.err;
    EXPECT_FALSE(place_.folder().has("two.csr"));
    EXPECT_EQ(place_.json({"containers"})["containers"].size(), 1U);
    EXPECT_EQ(place_.cliWithPin({"request", "--container", "two", "--subject", "2.5.4.3=Two", "--out", "two.csr"}).exit,
              0);
}

TEST_F(Output, ASymbolicLinkIsNeitherReplacedNorFollowed) {
    place_.folder().write("kept.sig", "precious");
    for (const char* leadsTo : {"kept.sig", "nowhere.sig"}) {
        const std::string link = place_.folder() / (std::string("to-") + leadsTo);
        ASSERT_EQ(::symlink(leadsTo, link.c_str()), 0);
        for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--force"}}) {
            const Outcome refused = sign(link, more);
            EXPECT_EQ(refused.exit, 3);
            EXPECT_THAT(refused.err, HasSubstr("symbolic link"));
        }
        EXPECT_TRUE(std::filesystem::is_symlink(link));
    }
    EXPECT_EQ(place_.folder().read("kept.sig"), "precious");
    EXPECT_FALSE(place_.folder().has("nowhere.sig"));
}

TEST_F(Output, AFolderThatIsNotThereIsAnInputError) {
    EXPECT_EQ(sign("nowhere/out.sig").exit, 3);
}

TEST_F(Output, PemOnDemand) {
    ASSERT_EQ(sign("out.pem", {"--pem"}).exit, 0);
    EXPECT_THAT(place_.folder().read("out.pem"), StartsWith("-----BEGIN CMS-----\n"));
    EXPECT_EQ(place_.cli({"verify", "out.pem", "--content", "report.txt"}).exit, 0);
    const Outcome judged = place_.openssl().run({"cms", "-verify", "-inform", "PEM", "-in", "out.pem", "-content",
                                                 "report.txt", "-binary", "-CAfile", "ca.pem", "-out", "/dev/null"});
    EXPECT_EQ(judged.exit, 0) << judged.err;
}

TEST_F(Output, AtTheSizeLimitOfTheUserAnErrorIsTold) {
    RunOptions options;
    options.environment = {{"KLUNORTREDI_HOME", place_.home()}};
    options.folder = place_.folder().path();
    const std::string sign = " sign report.txt --cert 'Signer one' --pin-file pin.txt";
    const Outcome signing =
        test_support::run({"sh", "-c", std::string("ulimit -f 0; exec '") + KLUNORTREDI + "'" + sign}, options);
    EXPECT_EQ(signing.exit, 3) << "signal " << signing.signal;
    EXPECT_THAT(signing.err, HasSubstr("the disk is full"));
}

} // namespace
} // namespace cli_test
