#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

namespace cli_test {
namespace {

using testing::HasSubstr;

class Verify : public testing::Test {
protected:
    Verify() {
        place_.makeSigner("one");
        sign("detached");
        sign("attached");
    }

    void sign(const std::string& format) {
        const Outcome signing = place_.cliWithPin({"sign", "report.txt", "--cert", "Signer one", "--format", format});
        EXPECT_EQ(signing.exit, 0) << signing.err;
    }

    Workplace place_;
};

TEST_F(Verify, TellsTheSignerAndWhatWasNotChecked) {
    const Outcome checking = place_.cli({"verify", "report.txt.sig"});
    EXPECT_EQ(checking.exit, 0) << checking.err;
    EXPECT_THAT(checking.out, HasSubstr("CN=Signer one"));
    EXPECT_THAT(checking.out, HasSubstr("signing time 20"));
    EXPECT_THAT(checking.out, HasSubstr("certificate chain"));
}

TEST_F(Verify, FindsTheContentBesideTheSignatureAndSaysSo) {
    const Outcome checking = place_.cli({"verify", "report.txt.sig"});
    EXPECT_THAT(checking.err, HasSubstr("report.txt"));
}

TEST_F(Verify, TakesNothingButAFileBesideTheSignatureForItsContent) {
    place_.folder().write("other.sig", place_.folder().read("report.txt.sig"));
    const std::string beside = place_.folder() / "other";
    ASSERT_EQ(::mkfifo(beside.c_str(), 0600), 0); // nobody writes to it
    Outcome checking = place_.cli({"verify", "other.sig"});
    EXPECT_EQ(checking.exit, 3) << checking.out;
    EXPECT_THAT(checking.err, HasSubstr("--content"));
    ASSERT_EQ(std::remove(beside.c_str()), 0);
    std::filesystem::create_symlink("/dev/zero", beside);
    checking = place_.cli({"verify", "other.sig"});
    EXPECT_EQ(checking.exit, 3) << checking.out;
}

TEST_F(Verify, EndsWhileItsContentGrows) {
    const std::string content = place_.folder() / "log";
    place_.folder().write("log", "");
    std::filesystem::resize_file(content, std::uintmax_t{64} << 20U); // takes longer to read than to write a line to
    std::atomic<bool> ended{false};
    std::thread writer([&] {
        std::ofstream log(content, std::ios::app);
        while (!ended) {
            log << "a line" << std::endl; // NOLINT(performance-avoid-endl): it is to be there
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    const Outcome checking = place_.cli({"verify", "report.txt.sig", "--content", "log"});
    ended = true;
    writer.join();
    EXPECT_EQ(checking.exit, 3) << checking.out;
    EXPECT_THAT(checking.err, HasSubstr("it grew while it was read"));
}

TEST_F(Verify, ReadsPemAndBareBase64AsWell) {
    for (const char* kind : {"sig", "p7s"}) {
        const std::string name = std::string("report.txt.") + kind;
        place_.openssl().must({"base64", "-in", name, "-out", "bare.b64"});
        const std::string base64 = place_.folder().read("bare.b64");
        place_.folder().write("armour.pem", "-----BEGIN CMS-----\n" + base64 + "-----END CMS-----\n");
        place_.folder().write("remarks.pem",
                              "A remark before.\n-----BEGIN PKCS7-----\n" + base64 + "-----END PKCS7-----\n");
        for (const std::string file : {"bare.b64", "armour.pem"}) { // as some editors save a text
            place_.folder().write("marked-" + file, "\xEF\xBB\xBF" + place_.folder().read(file));
        }
        for (const char* file : {"bare.b64", "armour.pem", "remarks.pem", "marked-bare.b64", "marked-armour.pem"}) {
            std::vector<std::string> words{"verify", file};
            if (kind == std::string("sig")) {
                words.insert(words.end(), {"--content", "report.txt"});
            }
            const Outcome checking = place_.cli(words);
            EXPECT_EQ(checking.exit, 0) << file << ": " << checking.err;
        }
    }
}

TEST_F(Verify, ExtractsTheContentOfAnAttachedSignature) {
    const Outcome checking = place_.cli({"verify", "report.txt.p7s", "--extract", "out.txt"});
    EXPECT_EQ(checking.exit, 0) << checking.err;
    EXPECT_EQ(place_.folder().read("out.txt"), place_.folder().read("report.txt"));
}

TEST_F(Verify, ExtractsNothingFromAnInvalidSignature) {
    std::string octets = place_.folder().read("report.txt.p7s");
    octets[octets.find("The report.")] = 'X';
    place_.folder().write("changed.p7s", octets);
    const Outcome checking = place_.cli({"verify", "changed.p7s", "--extract", "out.txt"});
    EXPECT_EQ(checking.exit, 1) << checking.err;
    EXPECT_FALSE(place_.folder().has("out.txt"));
}

TEST_F(Verify, ComparesAnAttachedSignatureWithTheContentGiven) {
    EXPECT_EQ(place_.cli({"verify", "report.txt.p7s", "--content", "report.txt"}).exit, 0);
    place_.folder().write("other.txt", "Another report.\n");
    const Outcome checking = place_.cli({"verify", "report.txt.p7s", "--content", "other.txt"});
    EXPECT_EQ(checking.exit, 1);
    EXPECT_THAT(checking.out, HasSubstr("other.txt"));
}

TEST_F(Verify, AnUntrustedChainIsToldApartFromAnInvalidSignature) {
    const Outcome before = place_.cli({"verify", "report.txt.sig", "--chain"});
    EXPECT_EQ(before.exit, 8) << before.out << before.err;
    EXPECT_THAT(before.out, HasSubstr("its issuer's certificate is missing"));
    ASSERT_EQ(place_.cli({"certs", "add", "ca.pem", "--store", "root"}).exit, 0);
    const Outcome after = place_.cli({"verify", "report.txt.sig", "--chain"});
    EXPECT_EQ(after.exit, 0) << after.out << after.err;
}

TEST_F(Verify, TheChainOfEverySignerCounts) {
    const auto& openssl = place_.openssl();
    openssl.must({"req", "-new", "-newkey", "rsa:2048", "-nodes", "-keyout", "a.key", "-subj", "/CN=A", "-outform",
                  "DER", "-out", "a.csr"});
    openssl.issue("a.csr", "a.pem");
    openssl.must(
        {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "b.key", "-subj", "/CN=B", "-out", "b.pem"});
    std::vector<std::string> words{"cms", "-sign",   "-binary", "-nodetach", "-in",   "report.txt", "-outform",
                                   "DER", "-signer", "a.pem",   "-inkey",    "a.key", "-out",       "a.p7s"};
    openssl.must(words);
    words.back() = "ab.p7s";
    words.insert(words.end(), {"-signer", "b.pem", "-inkey", "b.key"});
    openssl.must(words);
    ASSERT_EQ(place_.cli({"certs", "add", "ca.pem", "--store", "root"}).exit, 0);
    EXPECT_EQ(place_.cli({"verify", "a.p7s", "--chain"}).exit, 0);
    EXPECT_EQ(place_.cli({"verify", "ab.p7s"}).exit, 0);
    EXPECT_EQ(place_.cli({"verify", "ab.p7s", "--chain"}).exit, 8);
}

TEST_F(Verify, EveryShorterSignatureIsRefused) {
    const std::string whole = place_.folder().read("report.txt.sig");
    for (std::size_t length = 0; length < whole.size(); length += length < 40 ? 1 : 41) {
        place_.folder().write("short.sig", whole.substr(0, length));
        const Outcome checking = place_.cli({"verify", "short.sig", "--content", "report.txt"});
        EXPECT_EQ(checking.exit, 3) << length << ": " << checking.err << checking.out;
    }
}

TEST_F(Verify, AnOctetBehindTheSignatureIsRefused) {
    place_.folder().write("longer.sig", place_.folder().read("report.txt.sig") + "x");
    EXPECT_EQ(place_.cli({"verify", "longer.sig", "--content", "report.txt"}).exit, 3);
}

TEST_F(Verify, AChangedSignatureValueIsRefused) {
    // The signature value is the last OCTET STRING of the message.
    std::string octets = place_.folder().read("report.txt.sig");
    const auto at = octets.rfind(std::string("\x04\x40", 2));
    ASSERT_NE(at, std::string::npos);
    for (const std::size_t offset : {2U, 20U, 65U}) {
        std::string changed = octets;
        changed[at + offset] = static_cast<char>(changed[at + offset] ^ 1);
        place_.folder().write("changed.sig", changed);
        const Outcome checking = place_.cli({"verify", "changed.sig", "--content", "report.txt"});
        EXPECT_EQ(checking.exit, 1) << checking.err;
    }
}

TEST_F(Verify, ADetachedSignatureWithoutContentAsksForIt) {
    ASSERT_EQ(::rename((place_.folder() / "report.txt").c_str(), (place_.folder() / "away.txt").c_str()), 0);
    const Outcome checking = place_.cli({"verify", "report.txt.sig"});
    EXPECT_EQ(checking.exit, 3);
    EXPECT_THAT(checking.err, HasSubstr("--content"));
    EXPECT_EQ(place_.cli({"verify", "report.txt.sig", "--content", "away.txt"}).exit, 0);
}

TEST_F(Verify, ASignatureWithoutCertificatesNeedsTheSignersOwn) {
    place_.openssl().must({"cms", "-sign", "-binary", "-in", "report.txt", "-signer", "ca.pem", "-inkey", "ca.key",
                           "-outform", "DER", "-nocerts", "-md", "md_gost12_256", "-out", "nocerts.sig"});
    const Outcome without = place_.cli({"verify", "nocerts.sig", "--content", "report.txt"});
    EXPECT_EQ(without.exit, 4) << without.err;
    EXPECT_THAT(without.out, HasSubstr("name it with --signer-cert"));
    const Outcome with = place_.cli({"verify", "nocerts.sig", "--content", "report.txt", "--signer-cert", "ca.pem"});
    EXPECT_EQ(with.exit, 0) << with.err << with.out;
    const Outcome wrong = place_.cli({"verify", "nocerts.sig", "--content", "report.txt", "--signer-cert", "one.pem"});
    EXPECT_EQ(wrong.exit, 4) << wrong.err << wrong.out;
    EXPECT_THAT(wrong.out, HasSubstr("the certificate given with --signer-cert is not that of a signer"));
}

TEST_F(Verify, ASecondSignerThatIsNotValidMakesTheSignatureInvalid) {
    place_.openssl().must({"cms", "-resign", "-inform", "DER", "-in", "report.txt.p7s", "-signer", "ca.pem", "-inkey",
                           "ca.key", "-outform", "DER", "-md", "md_gost12_256", "-out", "two.p7s"});
    const Outcome both = place_.cli({"verify", "two.p7s"});
    EXPECT_EQ(both.exit, 0) << both.out << both.err;
    std::string octets = place_.folder().read("two.p7s");
    std::vector<std::size_t> values;
    for (auto at = octets.find(std::string("\x04\x40", 2)); at != std::string::npos;
         at = octets.find(std::string("\x04\x40", 2), at + 2 + 0x40)) { // which are random, and may hold the same two
        values.push_back(at);
    }
    ASSERT_EQ(values.size(), 4U); // the two certificates' public keys come first
    for (const std::size_t at : {values[2], values[3]}) {
        std::string changed = octets;
        changed[at + 10] = static_cast<char>(changed[at + 10] ^ 1);
        place_.folder().write("changed.p7s", changed);
        EXPECT_EQ(place_.cli({"verify", "changed.p7s"}).exit, 1);
    }
}

} // namespace
} // namespace cli_test
