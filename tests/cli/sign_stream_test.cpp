// Signatures that are written while the content is read.

#include "cli/pki.hpp"
#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

class SignStream : public testing::Test {
protected:
    SignStream() { place_.makeSigner("one", "24"); }

    Outcome sign(const std::vector<std::string>& options) {
        std::vector<std::string> command{"sign", "--cert", "Signer one"};
        command.insert(command.end(), options.begin(), options.end());
        return place_.cliWithPin(command);
    }

    Workplace place_;
};

TEST_F(SignStream, AttachedMessageOfAFileIsDer) {
    place_.folder().write("big.bin", std::string(300000, 'x'));
    ASSERT_EQ(sign({"big.bin", "--format", "attached"}).exit, 0);
    const Outcome shown = place_.openssl().run({"asn1parse", "-inform", "DER", "-in", "big.bin.p7s"});
    EXPECT_THAT(shown.out, Not(HasSubstr("inf")));
    EXPECT_THAT(shown.out, HasSubstr("l=300000 prim: OCTET STRING"));
    EXPECT_EQ(place_.cli({"verify", "big.bin.p7s"}).exit, 0);
}

TEST_F(SignStream, AttachedMessageOfAPipeIsBer) {
    RunOptions options;
    options.input = "from a pipe";
    const Outcome signing =
        place_.cliWithPin({"sign", "-", "--cert", "Signer one", "--format", "attached", "--out", "piped.p7s"}, options);
    ASSERT_EQ(signing.exit, 0) << signing.err;
    EXPECT_THAT(place_.openssl().run({"asn1parse", "-inform", "DER", "-in", "piped.p7s"}).out, HasSubstr("inf"));
    EXPECT_EQ(place_.cli({"verify", "piped.p7s"}).exit, 0);
}

TEST_F(SignStream, PemIsWrittenInLinesOf64Characters) {
    place_.folder().write("big.bin", std::string(200000, 'x'));
    ASSERT_EQ(sign({"big.bin", "--format", "attached", "--pem"}).exit, 0);
    const std::string pem = place_.folder().read("big.bin.p7s");
    EXPECT_TRUE(pem.starts_with("-----BEGIN CMS-----\n"));
    EXPECT_TRUE(pem.ends_with("\n-----END CMS-----\n"));
    EXPECT_EQ(pem.find('\n', 20), 20U + 64U);
    const Outcome judged = place_.openssl().run({"cms", "-verify", "-inform", "PEM", "-in", "big.bin.p7s", "-binary",
                                                 "-CAfile", "ca.pem", "-out", "openssl.out"});
    EXPECT_EQ(judged.exit, 0) << judged.err;
}

TEST_F(SignStream, BytesAreThoseOfTheFile) {
    for (const std::vector<std::string>& extra : {std::vector<std::string>{}, std::vector<std::string>{"--pem"}}) {
        std::vector<std::string> options{"report.txt", "--json", "--force"};
        options.insert(options.end(), extra.begin(), extra.end());
        const Outcome signing = sign(options);
        ASSERT_EQ(signing.exit, 0) << signing.err;
        EXPECT_THAT(signing.out,
                    HasSubstr("\"bytes\": " + std::to_string(place_.folder().read("report.txt.sig").size())));
    }
}

TEST_F(SignStream, PinIsAskedForBeforeTheFileIsRead) {
    const std::string fifo = place_.folder() / "slow.bin";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    int writer = ::open(fifo.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::write(writer, "x", 1), 1);
    std::atomic<bool> ended = false;
    std::thread watchdog([&] { // lets a command that waits for the rest of the file go on
        for (int tenths = 0; tenths < 300 && !ended; ++tenths) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        ::close(writer);
    });
    place_.folder().write("wrong.txt", "00000000\n");
    const Outcome refused = place_.cli({"sign", "slow.bin", "--cert", "Signer one", "--format", "attached", "--out",
                                        "slow.p7s", "--pin-file", "wrong.txt"});
    const bool waited = ::fcntl(writer, F_GETFD) < 0;
    ended = true;
    watchdog.join();
    EXPECT_EQ(refused.exit, 6) << refused.err;
    EXPECT_FALSE(waited);
    EXPECT_FALSE(place_.folder().has("slow.p7s"));
}

} // namespace
} // namespace cli_test
