// Every kind of bad input gives one clear line, the right exit code, and leaves nothing behind.

#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <algorithm>
#include <random>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class BadInput : public testing::Test {
protected:
    BadInput() { place_.makeSigner("one"); }

    void refused(const Outcome& result, int exit, const std::string& part) {
        EXPECT_EQ(result.exit, exit) << result.out << result.err;
        EXPECT_THAT(result.err, StartsWith("klunortredi: "));
        EXPECT_THAT(result.err, HasSubstr(part));
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }

    Outcome sign(const std::string& file, const std::string& certificate = "Signer one") {
        return place_.cliWithPin({"sign", file, "--cert", certificate, "--out", "out.sig"});
    }

    void nothingWritten() { EXPECT_FALSE(place_.folder().has("out.sig")); }

    Workplace place_;
};

TEST_F(BadInput, AMissingFile) {
    refused(sign("nowhere.txt"), 3, "nowhere.txt");
    nothingWritten();
}

TEST_F(BadInput, AnEmptyFileCannotBeSigned) {
    place_.folder().write("empty.txt", "");
    refused(sign("empty.txt"), 3, "empty");
    nothingWritten();
}

TEST_F(BadInput, ADirectory) {
    ASSERT_EQ(::mkdir((place_.folder() / "folder").c_str(), 0755), 0);
    refused(sign("folder"), 3, "irectory");
    nothingWritten();
    refused(place_.cli({"verify", "folder"}), 3, "irectory");
}

TEST_F(BadInput, AnUnreadableFile) {
    // Root reads every file whatever its mode; a file whose read fails is unreadable for everyone.
    refused(sign("/proc/self/mem"), 3, "/proc/self/mem");
    nothingWritten();
}

TEST_F(BadInput, AnUnreadableSignatureOrContentIsNoForgery) {
    ASSERT_EQ(sign("report.txt").exit, 0);
    ASSERT_EQ(place_.cli({"verify", "out.sig", "--content", "report.txt"}).exit, 0);
    refused(place_.cli({"verify", "out.sig", "--content", "/proc/self/mem"}), 3, "cannot read /proc/self/mem");
    refused(place_.cli({"verify", "/proc/self/mem", "--content", "report.txt"}), 3, "cannot read /proc/self/mem");
}

TEST_F(BadInput, ACertificateThatIsNotThere) {
    refused(sign("report.txt", "Nobody"), 1, "Nobody");
    nothingWritten();
}

TEST_F(BadInput, ACertificateWithoutAKey) {
    ASSERT_EQ(place_.cli({"certs", "add", "ca.pem", "--store", "my"}).exit, 0);
    place_.openssl().must({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "k.key", "-out", "keyless.pem",
                           "-subj", "/CN=Keyless", "-extensions", "signer_extensions"});
    ASSERT_EQ(place_.cli({"certs", "add", "keyless.pem"}).exit, 0);
    refused(sign("report.txt", "Keyless"), 4, "container");
    nothingWritten();
}

TEST_F(BadInput, ACertificateThatMayNotSign) {
    place_.makeSigner("encipher", "80", "encipher_extensions");
    refused(sign("report.txt", "Signer encipher"), 4, "digitalSignature");
    place_.makeSigner("bare", "80", "bare_extensions");
    refused(sign("report.txt", "Signer bare"), 4, "digitalSignature");
    nothingWritten();
}

TEST_F(BadInput, ACertificateOfAnotherKey) {
    ASSERT_EQ(place_.cliWithPin({"request", "--container", "two", "--subject", "2.5.4.3=Two"}).exit, 0);
    refused(place_.cliWithPin({"install", "one.pem", "--container", "two"}), 4, "does not belong");
}

TEST_F(BadInput, ACertificateFileThatIsNone) {
    place_.folder().write("junk.pem", "this is no certificate\n");
    refused(place_.cliWithPin({"install", "junk.pem", "--container", "one"}), 3, "certificate");
    place_.folder().write("junk.der", std::string("\x30\x03\x02\x01\x05", 5));
    refused(place_.cliWithPin({"install", "junk.der", "--container", "one"}), 3, "certificate");
    place_.folder().write("empty.der", "");
    refused(place_.cliWithPin({"install", "empty.der", "--container", "one"}), 3, "empty");
}

TEST_F(BadInput, AContainerThatIsNotThere) {
    refused(place_.cliWithPin({"install", "one.pem", "--container", "nowhere"}), 1, "nowhere");
    refused(place_.cli({"containers", "delete", "nowhere", "--yes"}), 1, "nowhere");
}

TEST_F(BadInput, AContainerNameThatSeveralProvidersHave) {
    ASSERT_EQ(place_
                  .cliWithPin({"request", "--container", "one", "--provider", "24", "--subject", "2.5.4.3=Other",
                               "--out", "other.csr"})
                  .exit,
              0);
    refused(place_.cli({"containers", "delete", "one", "--yes"}), 2,
            "several providers have one of that name; choose with --provider");
    refused(place_.cliWithPin({"install", "one.pem", "--container", "one"}), 2, "--provider");
    EXPECT_EQ(place_.json({"containers"})["containers"].size(), 2U);
    EXPECT_EQ(place_.cliWithPin({"install", "one.pem", "--container", "one", "--provider", "80"}).exit, 0);
    EXPECT_EQ(place_.cli({"containers", "delete", "one", "--yes", "--provider", "24"}).exit, 0);
    EXPECT_EQ(sign("report.txt").exit, 0) << "the other one was deleted";
}

TEST_F(BadInput, AContainerThatIsThereAlready) {
    refused(place_.cliWithPin({"request", "--container", "one", "--subject", "2.5.4.3=Again", "--out", "again.csr"}), 4,
            "already");
    EXPECT_FALSE(place_.folder().has("again.csr"));
    // The key that was there is still the certificate's.
    EXPECT_EQ(sign("report.txt").exit, 0);
}

TEST_F(BadInput, ARequestThatCannotBeWrittenLeavesNoContainer) {
    const auto request = [&](const std::string& out) {
        return place_.cliWithPin({"request", "--container", "two", "--subject", "2.5.4.3=X", "--out", out});
    };
    refused(request("/dev/full"), 3, "No space left");
    EXPECT_EQ(place_.json({"containers"})["containers"].size(), 1U) << "the other one";
    EXPECT_EQ(request("two.csr").exit, 0);
}

TEST_F(BadInput, NoService) {
    RunOptions none;
    none.environment = {{"KLUNORTREDI_CRYPTOPRO", ""}, {"KLUNORTREDI_VIPNET", ""}};
    refused(place_.cli({"providers"}, none), 4, "no CryptoAPI service");
    for (const char* verb : {"providers", "info"}) {
        refused(place_.cli({verb, "--service", "/nowhere/lib.so"}), 4, "no CryptoAPI service");
        refused(place_.cli({verb, "--service", "/tmp"}), 4, "no CryptoAPI service");
    }
    const Outcome info = place_.cli({"info"}, none);
    EXPECT_EQ(info.exit, 0);
    EXPECT_THAT(info.out, HasSubstr("none found"));
}

TEST_F(BadInput, AnUnusableDataFolderIsToldApartFromAnEmptyOne) {
    RunOptions file;
    file.environment = {{"KLUNORTREDI_HOME", place_.folder() / "report.txt"}};
    const std::string reason = "the service's data folder cannot be used";
    refused(place_.cli({"containers"}, file), 4, reason);
    refused(place_.cli({"certs", "list"}, file), 4, reason);
    refused(place_.cliWithPin({"sign", "report.txt", "--cert", "Signer one", "--out", "out.sig"}, file), 4, reason);
    refused(place_.cliWithPin({"request", "--container", "c", "--subject", "2.5.4.3=X"}, file), 4, reason);
    nothingWritten();

    RunOptions fresh;
    fresh.environment = {{"KLUNORTREDI_HOME", place_.folder() / "none-yet"}};
    EXPECT_EQ(place_.cli({"containers"}, fresh).out, "no containers\n");
    EXPECT_EQ(place_.cli({"certs", "list"}, fresh).out, "no certificates in store my\n");
}

TEST_F(BadInput, RandomOctetsAreNoMessage) {
    std::mt19937 random(7); // any fixed seed: the point is octets that nobody chose
    for (std::size_t size : {1U, 2U, 16U, 1000U, 100000U}) {
        std::string octets(size, '\0');
        std::generate(octets.begin(), octets.end(), [&] { return static_cast<char>(random()); });
        place_.folder().write("random.sig", octets);
        refused(place_.cli({"verify", "random.sig"}), 3, "random.sig");
        refused(place_.cli({"verify", "random.sig", "--content", "report.txt"}), 3, "random.sig");
    }
}

TEST_F(BadInput, TextIsNoMessage) {
    refused(place_.cli({"verify", "report.txt"}), 3, "report.txt");
    place_.folder().write("empty.sig", "");
    refused(place_.cli({"verify", "empty.sig"}), 3, "empty.sig");
}

TEST_F(BadInput, AnAttributeThatDoesNotFitItsType) {
    const auto with = [&](const std::string& attribute) {
        return place_.cliWithPin(
            {"sign", "report.txt", "--cert", "Signer one", "--out", "out.sig", "--attribute", attribute});
    };
    refused(with("1.2.3.4=INTEGER:seven"), 2, "seven");
    refused(with("1.2.3.4=OCTETSTRING:xyz"), 2, "xyz");
    refused(with("1.2.3.4=NoSuchType:x"), 2, "");
    refused(with("nonsense"), 2, "OID=TYPE:VALUE");
    nothingWritten();
}

TEST_F(BadInput, WrongUsage) {
    EXPECT_EQ(place_.cli({}).exit, 2);
    EXPECT_EQ(place_.cli({"fly"}).exit, 2);
    EXPECT_EQ(place_.cli({"sign", "report.txt"}).exit, 2);
    EXPECT_EQ(place_.cli({"sign", "report.txt", "--cert", "x", "--format", "poem"}).exit, 2);
    EXPECT_EQ(place_.cli({"verify"}).exit, 2);
}

TEST_F(BadInput, ASubjectThatIsNone) {
    for (const char* subject : {"", ";", "nonsense", "XY=x", "2.5.4.3=", "2.5.4.3", "2.5.4.6=Russia;2.5.4.3=x"}) {
        const Outcome result =
            place_.cliWithPin({"request", "--container", "two", "--subject", subject, "--out", "two.csr"});
        EXPECT_TRUE(result.exit >= 2 && result.exit <= 4) << subject << ": " << result.exit << result.err;
        EXPECT_FALSE(place_.folder().has("two.csr")) << subject;
    }
}

TEST_F(BadInput, WrongUsagePointsToTheVerbsOwnHelp) {
    refused(place_.cli({"frobnicate"}), 2, "there is no verb 'frobnicate'; see 'klunortredi --help'");
    refused(place_.cli({"sign"}), 2, "see 'klunortredi sign --help'");
    refused(place_.cli({"certs", "show"}), 2, "see 'klunortredi certs show --help'");
    refused(place_.cli({"random", "-5"}), 2, "-5");
}

TEST_F(BadInput, WhatIsNoObjectIdentifier) {
    for (const char* option : {"--eku", "--policy", "--param-set"}) {
        refused(place_.cliWithPin({"request", "--container", "two", "--subject", "2.5.4.3=X", option, "name"}), 2,
                std::string(option) + " name: it is no object identifier");
    }
    refused(place_.cliWithPin({"sign", "report.txt", "--cert", "one", "--attribute", "name=UTF8String:x"}), 2,
            "--attribute name: it is no object identifier");
    EXPECT_FALSE(place_.folder().has("two.csr"));
}

TEST_F(BadInput, ASecondContainerOfTheSameNameIsTold) {
    refused(place_.cliWithPin({"request", "--container", "one", "--subject", "2.5.4.3=X", "--out", "two.csr"}), 4,
            "cannot make a key pair in container one: a container of that name is there already");
}

TEST_F(BadInput, StandardInputIsNotBothSignatureAndContent) {
    refused(place_.cli({"verify", "-", "--content", "-"}), 2, "standard input");
}

TEST_F(BadInput, AFileThatIsNoXmlCannotBeSignedAsXml) {
    const Outcome signing =
        place_.cliWithPin({"sign", "report.txt", "--cert", "one", "--format", "xmldsig", "--out", "out.sig"});
    refused(signing, 3, "not a well-formed XML");
    nothingWritten();
}

TEST_F(BadInput, ABatchInWhichASignatureWouldReplaceAnotherFile) {
    ASSERT_EQ(::mkdir((place_.folder() / "folder").c_str(), 0755), 0);
    place_.folder().write("folder/report.txt", "Another report.\n");
    refused(
        place_.cliWithPin({"sign", "report.txt", "folder/report.txt", "--cert", "one", "--out-dir", ".", "--force"}), 2,
        "report.txt.sig");
    EXPECT_FALSE(place_.folder().has("report.txt.sig"));
    refused(place_.cliWithPin({"sign", "report.txt", "--cert", "one", "--out", "./report.txt", "--force"}), 2,
            "report.txt");
    EXPECT_EQ(place_.folder().read("report.txt"), "The report.\n");
}

TEST_F(BadInput, AnEmptyValueIsNotAnOptionThatIsNotGiven) {
    for (const char* option : {"--at", "--usage", "--with", "--anchor", "--content", "--signer-cert", "--extract",
                               "--json-out", "--require"}) {
        const Outcome outcome = place_.cli({"verify", "report.txt", "--chain", option, ""});
        EXPECT_EQ(outcome.exit, 2) << option << outcome.err;
        EXPECT_EQ(outcome.out, "") << option;
    }
    for (const char* option : {"--at", "--usage"}) {
        EXPECT_EQ(place_.cli({"chain", "ca.pem", option, ""}).exit, 2) << option;
    }
}

} // namespace
} // namespace cli_test
