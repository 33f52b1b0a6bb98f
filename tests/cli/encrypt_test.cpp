// encrypt and decrypt as a person and a script use them.

#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <filesystem>

namespace cli_test {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* forEncryption = "encipher_extensions";

class Encrypt : public testing::Test {
protected:
    static constexpr const char* gost = "80";
    static constexpr const char* rsa = "24";

    void makeRecipient(const std::string& name, const std::string& provider = gost) {
        place_.makeSigner(name, provider, forEncryption);
    }
    /// Encrypts report.txt to report.txt.p7m.
    void encrypt(const std::vector<std::string>& words) const {
        std::vector<std::string> command{"encrypt", "report.txt", "--force"};
        command.insert(command.end(), words.begin(), words.end());
        const Outcome made = place_.cli(command);
        ASSERT_EQ(made.exit, 0) << made.err;
    }
    [[nodiscard]] Outcome decrypt(std::vector<std::string> words = {}) const {
        std::vector<std::string> command{"decrypt", "report.txt.p7m", "--out", "out", "--force"};
        command.insert(command.end(), words.begin(), words.end());
        return place_.cliWithPin(command);
    }
    [[nodiscard]] bool exists(const std::string& name) const { return std::filesystem::exists(place_.folder() / name); }

    Workplace place_;
};

TEST_F(Encrypt, RecipientOfAGostKeyReadsTheMessage) {
    makeRecipient("one");
    const Outcome made = place_.cli({"encrypt", "report.txt", "--to", "one.pem"});
    ASSERT_EQ(made.exit, 0) << made.err;
    EXPECT_THAT(made.out, HasSubstr("report.txt -> report.txt.p7m (kuznyechik-ctr-acpkm-omac"));
    EXPECT_THAT(made.out, HasSubstr("Signer one"));
    std::filesystem::remove(place_.folder() / "report.txt");
    const Outcome read = place_.cliWithPin({"decrypt", "report.txt.p7m"});
    EXPECT_EQ(read.exit, 0) << read.err;
    EXPECT_EQ(place_.folder().read("report.txt"), "The report.\n");
    EXPECT_THAT(read.err, Not(HasSubstr("not authenticated")));
}

TEST_F(Encrypt, RecipientsOfRsaKeysGetAuthenticatedContent) {
    makeRecipient("one", rsa);
    const Json made = place_.json({"encrypt", "report.txt", "--to", "Signer one"});
    EXPECT_EQ(made["schema"], 1);
    EXPECT_EQ(made["output"], "report.txt.p7m");
    EXPECT_EQ(made["cipher"], "aes-256-gcm");
    EXPECT_EQ(made["authenticated"], true);
    EXPECT_EQ(made["recipients"].size(), 1U);
    EXPECT_EQ(made["bytes"], std::filesystem::file_size(place_.folder() / "report.txt.p7m"));
    const Json read = place_.json({"decrypt", "report.txt.p7m", "--out", "out"});
    EXPECT_EQ(read["cipher"], "aes-256-gcm");
    EXPECT_EQ(read["authenticated"], true);
    EXPECT_EQ(read["bytes"], 12);
    EXPECT_EQ(read["recipient"]["thumbprint"], made["recipients"][0]["thumbprint"]);
    EXPECT_EQ(place_.folder().read("out"), "The report.\n");
}

TEST_F(Encrypt, EachOfSeveralRecipientsReadsIt) {
    makeRecipient("one");
    makeRecipient("two", "81");
    encrypt({"--to", "one.pem", "--to", "two.pem", "--to", "one.pem"});
    for (const char* const name : {"Signer one", "Signer two"}) {
        const Outcome read = decrypt({"--cert", name});
        EXPECT_EQ(read.exit, 0) << read.err;
        EXPECT_THAT(read.out, HasSubstr(name));
        EXPECT_EQ(place_.folder().read("out"), "The report.\n");
    }
}

TEST_F(Encrypt, UnauthenticatedContentIsSaidToBe) {
    makeRecipient("one");
    makeRecipient("two", rsa);
    for (const auto& [cipher, name] : {std::pair{"kuznyechik-ctr-acpkm", "one.pem"},
                                       {"magma-ctr-acpkm", "one.pem"},
                                       {"gost28147-89", "one.pem"},
                                       {"aes-256-cbc", "two.pem"},
                                       {"3des-cbc", "two.pem"}}) {
        encrypt({"--to", name, "--cipher", cipher});
        const Outcome read = decrypt();
        EXPECT_EQ(read.exit, 0) << cipher << read.err;
        EXPECT_THAT(read.err, HasSubstr("was not authenticated")) << cipher;
        EXPECT_EQ(place_.folder().read("out"), "The report.\n");
    }
    EXPECT_EQ(place_.json({"decrypt", "report.txt.p7m", "--out", "out", "--force"})["authenticated"], false);
}

TEST_F(Encrypt, PlaintextIsReadableByItsOwnerOnly) {
    makeRecipient("one");
    encrypt({"--to", "one.pem"});
    ASSERT_EQ(decrypt().exit, 0);
    struct stat status {};
    ASSERT_EQ(::stat((place_.folder() / "out").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(Encrypt, StandardInputAndOutput) {
    makeRecipient("one");
    RunOptions options;
    options.input = "piped content";
    const Outcome made = place_.cli({"encrypt", "-", "--to", "one.pem"}, options);
    ASSERT_EQ(made.exit, 0) << made.err;
    RunOptions back;
    back.input = made.out;
    const Outcome read = place_.cliWithPin({"decrypt", "-"}, back);
    EXPECT_EQ(read.exit, 0) << read.err;
    EXPECT_EQ(read.out, "piped content");
}

TEST_F(Encrypt, PemAndBase64AreRead) {
    makeRecipient("one");
    encrypt({"--to", "one.pem", "--pem"});
    const std::string pem = place_.folder().read("report.txt.p7m");
    EXPECT_THAT(pem, testing::StartsWith("-----BEGIN CMS-----\n"));
    EXPECT_EQ(decrypt().exit, 0);
    const auto body = pem.find('\n') + 1;
    place_.folder().write("report.txt.p7m", pem.substr(body, pem.find("-----END") - body));
    EXPECT_EQ(decrypt().exit, 0);
    EXPECT_EQ(place_.folder().read("out"), "The report.\n");
}

TEST_F(Encrypt, CertificatesThatAreNotForEncryptionAreRefused) {
    place_.makeSigner("one");
    const Outcome refused = place_.cli({"encrypt", "report.txt", "--to", "one.pem"});
    EXPECT_EQ(refused.exit, 4);
    EXPECT_THAT(refused.err, HasSubstr("its key usage is digitalSignature, nonRepudiation, not encryption"));
    EXPECT_FALSE(exists("report.txt.p7m"));
    EXPECT_EQ(place_.cli({"encrypt", "report.txt", "--to", "one.pem", "--any-certificate"}).exit, 0);
}

// The message may have been sent while the certificate was valid, and is to be read whenever that is.
TEST_F(Encrypt, ExpiredRecipientIsRefusedUnlessMeantAndReadsWhatItHas) {
    makeRecipient("one");
    encrypt({"--to", "one.pem"});
    place_.openssl().must({"x509",        "-req",           "-inform",  "DER",         "-in",         "one.csr",
                           "-CA",         "ca.pem",         "-CAkey",   "ca.key",      "-days",       "-1",
                           "-set_serial", "0x4d4d4d4d4d4d", "-extfile", "openssl.cnf", "-extensions", forEncryption,
                           "-out",        "old.pem"});
    const Outcome refused = place_.cli({"encrypt", "report.txt", "--to", "old.pem", "--out", "old.p7m"});
    EXPECT_EQ(refused.exit, 4);
    EXPECT_THAT(refused.err, HasSubstr("the certificate expired on"));
    EXPECT_THAT(refused.err, HasSubstr("--any-certificate"));
    EXPECT_FALSE(exists("old.p7m"));
    const Outcome meant =
        place_.cli({"encrypt", "report.txt", "--to", "old.pem", "--out", "old.p7m", "--any-certificate"});
    EXPECT_EQ(meant.exit, 0) << meant.err;
    EXPECT_THAT(meant.err, ContainsRegex("warning: .*: the certificate expired on"));

    ASSERT_EQ(place_.cliWithPin({"install", "old.pem", "--container", "one"}).exit, 0);
    const Outcome read = place_.cliWithPin({"decrypt", "old.p7m", "--cert", "4d4d4d4d4d4d", "--out", "read"});
    EXPECT_EQ(read.exit, 0) << read.err;
    EXPECT_EQ(place_.folder().read("read"), "The report.\n");
    EXPECT_THAT(read.err, Not(HasSubstr("expired")));
}

TEST_F(Encrypt, GostAndRsaRecipientsTogetherAreRefused) {
    makeRecipient("one");
    makeRecipient("two", rsa);
    const Outcome mixed = place_.cli({"encrypt", "report.txt", "--to", "one.pem", "--to", "two.pem"});
    EXPECT_EQ(mixed.exit, 2);
    EXPECT_THAT(mixed.err, HasSubstr("encrypt once for each kind"));
    EXPECT_EQ(place_.cli({"encrypt", "report.txt", "--to", "one.pem", "--cipher", "aes-256-gcm"}).exit, 2);
    const Outcome unknown = place_.cli({"encrypt", "report.txt", "--to", "one.pem", "--cipher", "rot13"});
    EXPECT_EQ(unknown.exit, 2);
    EXPECT_THAT(unknown.err, HasSubstr("kuznyechik-ctr-acpkm-omac"));
}

TEST_F(Encrypt, MessageForOthersNamesThem) {
    makeRecipient("one");
    place_.openssl().must({"req", "-x509", "-newkey", "gost2012_256", "-pkeyopt", "paramset:TCA", "-nodes", "-keyout",
                           "other.key", "-out", "other.pem", "-subj", "/CN=Somebody else", "-days", "30"});
    encrypt({"--to", "other.pem"});
    const Outcome refused = decrypt();
    EXPECT_EQ(refused.exit, 4);
    EXPECT_THAT(refused.err, HasSubstr("Somebody else"));
    EXPECT_FALSE(exists("out"));
    EXPECT_EQ(decrypt({"--cert", "Signer one"}).exit, 4);
}

TEST_F(Encrypt, RefusedPinLeavesNothing) {
    makeRecipient("one");
    encrypt({"--to", "one.pem"});
    place_.folder().write("wrong.txt", "87654321\n");
    const Outcome refused = place_.cli({"decrypt", "report.txt.p7m", "--out", "out", "--pin-file", "wrong.txt"});
    EXPECT_EQ(refused.exit, 6) << refused.err;
    EXPECT_FALSE(exists("out"));
}

TEST_F(Encrypt, ExistingOutputIsKept) {
    makeRecipient("one");
    encrypt({"--to", "one.pem"});
    EXPECT_EQ(place_.cli({"encrypt", "report.txt", "--to", "one.pem"}).exit, 3);
    place_.folder().write("out", "mine");
    EXPECT_EQ(place_.cliWithPin({"decrypt", "report.txt.p7m", "--out", "out"}).exit, 3);
    EXPECT_EQ(place_.folder().read("out"), "mine");
}

TEST_F(Encrypt, OutputThatIsTheInputIsRefused) {
    makeRecipient("one");
    EXPECT_EQ(place_.cli({"encrypt", "report.txt", "--to", "one.pem", "--out", "report.txt", "--force"}).exit, 2);
    encrypt({"--to", "one.pem"});
    EXPECT_EQ(place_.cliWithPin({"decrypt", "report.txt.p7m", "--out", "./report.txt.p7m", "--force"}).exit, 2);
    place_.folder().write("message", place_.folder().read("report.txt.p7m"));
    EXPECT_EQ(place_.cliWithPin({"decrypt", "message"}).exit, 2) << "no name for the output";
    EXPECT_EQ(place_.folder().read("report.txt"), "The report.\n");
}

TEST_F(Encrypt, WhatIsNotAnEncryptedMessageIsAnInputError) {
    makeRecipient("one");
    place_.folder().write("report.txt.p7m", "The report.\n");
    EXPECT_EQ(decrypt().exit, 3);
    place_.folder().write("report.txt.p7m", "");
    EXPECT_EQ(decrypt().exit, 3);
    place_.makeSigner("signer");
    ASSERT_EQ(place_
                  .cliWithPin({"sign", "report.txt", "--cert", "Signer signer", "--format", "attached", "--out",
                               "report.txt.p7m", "--force"})
                  .exit,
              0);
    const Outcome isSigned = decrypt();
    EXPECT_EQ(isSigned.exit, 3);
    EXPECT_THAT(isSigned.err, HasSubstr("it is signed"));
    EXPECT_FALSE(exists("out"));
}

TEST_F(Encrypt, OctetsAfterTheMessageAreRefusedButForALineEnd) {
    makeRecipient("one");
    encrypt({"--to", "one.pem"});
    const std::string message = place_.folder().read("report.txt.p7m");
    place_.folder().write("report.txt.p7m", message + "\n");
    EXPECT_EQ(decrypt().exit, 0);
    std::filesystem::remove(place_.folder() / "out");
    place_.folder().write("report.txt.p7m", message + "more");
    EXPECT_EQ(decrypt().exit, 3);
    EXPECT_FALSE(exists("out"));
}

TEST_F(Encrypt, DamagedAndTruncatedMessagesLeaveNothing) {
    makeRecipient("one");
    encrypt({"--to", "one.pem"});
    const std::string message = place_.folder().read("report.txt.p7m");
    std::string changed = message;
    changed[message.size() - 40] = static_cast<char>(changed[message.size() - 40] ^ 1);
    place_.folder().write("report.txt.p7m", changed);
    const Outcome damaged = decrypt();
    EXPECT_EQ(damaged.exit, 1) << damaged.err;
    EXPECT_THAT(damaged.err, HasSubstr("the message was changed, or encrypted for another key"));
    EXPECT_FALSE(exists("out"));
    for (const std::size_t cut : {std::size_t{1}, std::size_t{30}, message.size() / 2, message.size() - 3}) {
        place_.folder().write("report.txt.p7m", message.substr(0, message.size() - cut));
        const Outcome truncated = decrypt();
        EXPECT_EQ(truncated.exit, 3) << cut << truncated.err;
        EXPECT_FALSE(exists("out")) << cut;
    }
}

} // namespace
} // namespace cli_test
