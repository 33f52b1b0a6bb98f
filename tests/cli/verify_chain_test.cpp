// Chains of signers: what the message brings, what is weak in them, what reaches the terminal.

#include "cli/signers_place.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

class VerifyChain : public testing::Test {
protected:
    /// leaf.pem, issued by mid.pem, issued by root.pem with that digest, a CA of the store root.
    void makeChain(const std::string& digestOfMid = "sha256") {
        const auto& openssl = place_.openssl();
        openssl.must({"req", "-x509", "-newkey", "rsa:2048", "-noenc", "-keyout", "root.key", "-out", "root.pem",
                      "-subj", "/CN=Root", "-days", "9", "-extensions", "ca_extensions"});
        issue("mid", "root", "ca_extensions", digestOfMid);
        issue("leaf", "mid", "signer_extensions", "sha256");
        ASSERT_EQ(place_.cli({"certs", "add", "root.pem", "--store", "root"}).exit, 0);
        place_.sign("leaf.p7s", {"leaf"}, {"-nodetach", "-certfile", "mid.pem"});
    }

    void issue(const std::string& name, const std::string& issuer, const std::string& extensions,
               const std::string& digest) {
        place_.openssl().must({"req", "-newkey", "rsa:2048", "-noenc", "-keyout", name + ".key", "-out", name + ".csr",
                               "-outform", "DER", "-subj", "/CN=" + name});
        place_.openssl().must({"x509",
                               "-req",
                               "-inform",
                               "DER",
                               "-in",
                               name + ".csr",
                               "-CA",
                               issuer + ".pem",
                               "-CAkey",
                               issuer + ".key",
                               "-CAcreateserial",
                               "-days",
                               "5",
                               "-extfile",
                               "openssl.cnf",
                               "-extensions",
                               extensions,
                               "-out",
                               name + ".pem",
                               "-" + digest});
    }

    SignersPlace place_;
};

TEST_F(VerifyChain, CertificatesOfTheMessageStandInTheChain) {
    makeChain();
    const Outcome trusted = place_.cli({"verify", "leaf.p7s", "--chain"});
    EXPECT_EQ(trusted.exit, 0) << trusted.out << trusted.err;
    EXPECT_THAT(trusted.out, HasSubstr("  revocation   not known"));
    place_.sign("without.p7s", {"leaf"});
    EXPECT_EQ(place_.cli({"verify", "without.p7s", "--chain"}).exit, 8);
    EXPECT_EQ(place_.cli({"verify", "without.p7s", "--chain", "--with", "mid.pem"}).exit, 0);
}

TEST_F(VerifyChain, ARootOfTheMessageIsNotTrustedForBeingThere) {
    makeChain();
    place_.makeIdentity("own", "rsa:2048");
    place_.sign("own.p7s", {"own"});
    EXPECT_EQ(place_.cli({"verify", "own.p7s", "--chain"}).exit, 8);
    EXPECT_EQ(place_.cli({"verify", "own.p7s", "--chain", "--anchor", "own.pem"}).exit, 0);
}

TEST_F(VerifyChain, WeakCertificatesOfTheChainAreShownAndRefusedWhenStrict) {
    makeChain("sha1");
    const Outcome words = place_.cli({"verify", "leaf.p7s", "--chain"});
    EXPECT_EQ(words.exit, 0) << words.out << words.err;
    EXPECT_THAT(words.out, HasSubstr("weak: certificate of CN=mid: SHA-1 digest"));
    EXPECT_EQ(place_.cli({"verify", "leaf.p7s", "--strict"}).exit, 0) << "the chain is not asked for";
    const Outcome strict = place_.cli({"verify", "leaf.p7s", "--chain", "--strict", "--extract", "out.txt"});
    EXPECT_EQ(strict.exit, 1) << strict.out;
    EXPECT_THAT(strict.out, HasSubstr("refused by --strict: CN=mid: SHA-1 digest"));
    EXPECT_FALSE(place_.folder().has("out.txt"));
}

TEST_F(VerifyChain, AChainMayBeJudgedAtTheSigningTime) {
    makeChain();
    EXPECT_EQ(place_.cli({"verify", "leaf.p7s", "--chain", "--at", "signing"}).exit, 0);
    EXPECT_EQ(place_.cli({"verify", "leaf.p7s", "--chain", "--at", "2001-01-01"}).exit, 8);
}

TEST_F(VerifyChain, OptionsOfChainsNeedChain) {
    place_.makeIdentity("a");
    place_.sign("a.p7s", {"a"});
    for (const std::vector<std::string>& option : {std::vector<std::string>{"--at", "2026-01-01"},
                                                   {"--with", "ca.pem"},
                                                   {"--anchor", "ca.pem"},
                                                   {"--require-revocation"}}) {
        std::vector<std::string> words{"verify", "a.p7s"};
        words.insert(words.end(), option.begin(), option.end());
        const Outcome outcome = place_.cli(words);
        EXPECT_EQ(outcome.exit, 2) << option.front() << outcome.out;
        EXPECT_THAT(outcome.err, HasSubstr("--chain"));
    }
}

TEST_F(VerifyChain, NamesOfOthersReachTheTerminalEscaped) {
    const std::string name = "x\x1b[2Jy\nz: valid";
    place_.makeIdentity("bad", "gost2012_256", {"-subj", "/CN=" + name});
    place_.sign("bad.p7s", {"bad"});
    place_.sign("bare.p7s", {"bad"}, {"-nodetach", "-nocerts"});
    for (const std::vector<std::string>& words : {std::vector<std::string>{"verify", "bad.p7s"},
                                                  {"verify", "bad.p7s", "--chain"},
                                                  {"verify", "bad.p7s", "--strict", "--chain"},
                                                  {"verify", "bad.p7s", "--signer-cert", "ca.pem"},
                                                  {"verify", "bare.p7s"}}) {
        const Outcome outcome = place_.cli(words);
        EXPECT_THAT(outcome.out + outcome.err, Not(HasSubstr("\x1b"))) << testing::PrintToString(words);
        EXPECT_THAT(outcome.out + outcome.err, Not(HasSubstr("\nz: valid"))) << testing::PrintToString(words);
    }
}

} // namespace
} // namespace cli_test
