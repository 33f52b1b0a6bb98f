// A machine without OpenSSL's GOST engine: what needs it is refused with the package's name, never judged; the rest
// works.

#include "cli/workplace.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::HasSubstr;

class WithoutEngine : public testing::Test {
protected:
    /// A container "gost" or "rsa" with its certificate in gost.pem or rsa.pem, once.
    void makeSigner(const std::string& signer) {
        if (!place_.folder().has(signer + ".pem")) {
            place_.makeSigner(signer, signer == "rsa" ? "24" : "80");
        }
    }

    /// Signs the report: "gost.detached" and the like.
    void sign(const std::string& signer, const std::string& format) {
        makeSigner(signer);
        const Outcome signing = place_.cliWithPin(
            {"sign", "report.txt", "--cert", "Signer " + signer, "--format", format, "--out", signer + "." + format});
        EXPECT_EQ(signing.exit, 0) << signing.err;
    }

    /// Runs the command where OpenSSL finds no engine.
    [[nodiscard]] Outcome cli(const std::vector<std::string>& words) const {
        RunOptions options;
        options.environment["OPENSSL_ENGINES"] = place_.folder() / "none";
        return place_.cliWithPin(words, options);
    }

    void expectNamesThePackage(const std::vector<std::string>& words) const {
        const Outcome outcome = cli(words);
        EXPECT_EQ(outcome.exit, 4) << testing::PrintToString(words) << outcome.out;
        EXPECT_THAT(outcome.err, HasSubstr("install the package libengine-gost-openssl"))
            << testing::PrintToString(words);
        EXPECT_THAT(outcome.out, testing::AnyOf("", HasSubstr(": UNKNOWN: "))) << "words of a verdict may stand there";
    }

    /// A self-signed certificate with an RSA key.
    void makeOwn() const {
        place_.openssl().must({"req", "-x509", "-newkey", "rsa:2048", "-noenc", "-keyout", "own.key", "-out", "own.pem",
                               "-subj", "/CN=Own", "-days", "2"});
    }

    Workplace place_;
};

TEST_F(WithoutEngine, GostSignaturesAreNeitherValidNorInvalid) {
    sign("gost", "attached");
    sign("gost", "detached");
    expectNamesThePackage({"verify", "gost.attached"});
    expectNamesThePackage({"verify", "gost.detached", "--content", "report.txt"});
}

TEST_F(WithoutEngine, ASecondSignerWithAGostKeyIsNotCalledInvalid) {
    makeOwn();
    // Signers are sorted, short ones first: a long name puts the one with the GOST key behind the other.
    std::string subject;
    for (const char letter : std::string("abcdefgh")) {
        subject += "/OU=" + std::string(64, letter);
    }
    place_.openssl().must({"req", "-x509", "-newkey", "gost2012_256", "-pkeyopt", "paramset:A", "-noenc", "-keyout",
                           "long.key", "-out", "long.pem", "-subj", subject, "-days", "2"});
    place_.openssl().must({"cms", "-sign", "-binary", "-nodetach", "-in", "report.txt", "-signer", "own.pem", "-inkey",
                           "own.key", "-signer", "long.pem", "-inkey", "long.key", "-outform", "DER", "-out",
                           "both.cms"});
    const Json both = place_.json({"verify", "both.cms"});
    ASSERT_EQ(both["signers"][0]["subject"], "CN=Own") << both;
    ASSERT_EQ(both["signers"].size(), 2U);
    expectNamesThePackage({"verify", "both.cms"});
}

TEST_F(WithoutEngine, GostDocumentsAreNeitherValidNorInvalid) {
    makeSigner("gost");
    place_.folder().write("order.xml", "<order><sum>100</sum></order>");
    ASSERT_EQ(
        place_.cliWithPin({"sign", "order.xml", "--cert", "Signer gost", "--format", "xmldsig", "--out", "s.xml"}).exit,
        0);
    expectNamesThePackage({"verify", "s.xml"});
    const Outcome json = cli({"verify", "s.xml", "--json"});
    EXPECT_EQ(json.exit, 4);
    const Json verdict = Json::parse(json.out);
    EXPECT_TRUE(verdict["valid"].is_null()) << verdict;
    EXPECT_EQ(verdict["verdict"], "unknown");
    ASSERT_EQ(verdict["signers"].size(), 1U);
    EXPECT_TRUE(verdict["signers"][0]["valid"].is_null());
    EXPECT_EQ(verdict["signers"][0]["verdict"], "unknown");
}

TEST_F(WithoutEngine, ChainsOfGostKeysAreNotJudged) {
    makeSigner("gost");
    sign("rsa", "attached");
    ASSERT_EQ(place_.cli({"certs", "add", "ca.pem", "--store", "root"}).exit, 0);
    expectNamesThePackage({"chain", "gost.pem"});
    expectNamesThePackage({"chain", "rsa.pem"}); // its authority's key is a GOST one
    expectNamesThePackage({"verify", "rsa.attached", "--chain"});
}

TEST_F(WithoutEngine, ChainsOfOtherKeysAreJudged) {
    makeOwn();
    EXPECT_EQ(cli({"chain", "own.pem"}).exit, 8);
    ASSERT_EQ(place_.cli({"certs", "add", "own.pem", "--store", "root"}).exit, 0);
    EXPECT_EQ(cli({"chain", "own.pem"}).exit, 0);
}

TEST_F(WithoutEngine, GostKeysAreNotMadeAndDoNotSign) {
    makeSigner("gost");
    expectNamesThePackage({"request", "--container", "new", "--subject", "2.5.4.3=New"});
    expectNamesThePackage({"sign", "report.txt", "--cert", "Signer gost", "--out", "new.sig"});
    expectNamesThePackage({"hash", "report.txt"});
    EXPECT_THAT(place_.cli({"containers"}).out, testing::Not(HasSubstr("new")));
}

TEST_F(WithoutEngine, TheTourStopsAtItsFirstKey) {
    const Outcome tour = cli({"demo"});
    EXPECT_EQ(tour.exit, 4);
    EXPECT_THAT(tour.out, HasSubstr("install the package libengine-gost-openssl"));
    EXPECT_THAT(tour.err, HasSubstr("the tour stops at"));
}

TEST_F(WithoutEngine, RsaWorks) {
    sign("rsa", "attached");
    EXPECT_EQ(cli({"request", "--container", "new", "--provider", "24", "--subject", "2.5.4.3=New"}).exit, 0);
    EXPECT_EQ(cli({"sign", "report.txt", "--cert", "Signer rsa", "--out", "new.sig"}).exit, 0);
    EXPECT_EQ(cli({"verify", "new.sig", "--content", "report.txt"}).exit, 0);
    EXPECT_EQ(cli({"verify", "rsa.attached"}).exit, 0);
}

TEST_F(WithoutEngine, ContainersAreListedAndSayWhyTheyAreOfNoUse) {
    makeSigner("gost");
    makeSigner("rsa");
    const Outcome list = cli({"containers"});
    EXPECT_EQ(list.exit, 0) << list.err;
    EXPECT_THAT(list.out, HasSubstr("gost  (unusable: the provider's algorithms are not installed)"));
    EXPECT_THAT(list.out, HasSubstr("rsa  (exchange key, certificate "));
}

} // namespace
} // namespace cli_test
