// Text and blocks around the PEM block that was judged.

#include "cli/signers_place.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

class VerifyPem : public testing::Test {
protected:
    VerifyPem() {
        place_.makeIdentity("a");
        place_.sign("a.p7s", {"a"});
        place_.openssl().must({"base64", "-in", "a.p7s", "-out", "a.b64"});
        block_ = "-----BEGIN CMS-----\n" + place_.folder().read("a.b64") + "-----END CMS-----\n";
    }

    Outcome verify(const std::string& text) {
        place_.folder().write("a.pem", text);
        return place_.cli({"verify", "a.pem"});
    }

    SignersPlace place_;
    std::string block_;
};

TEST_F(VerifyPem, ABlockAloneHasNothingAroundIt) {
    const Outcome outcome = verify("\n" + block_ + "\n \r\n");
    EXPECT_EQ(outcome.exit, 0) << outcome.err;
    EXPECT_THAT(outcome.out, Not(HasSubstr("PEM")));
}

TEST_F(VerifyPem, TextAroundTheBlockIsNamed) {
    const std::pair<std::string, const char*> rows[] = {
        {"I agree.\n" + block_, "text before the PEM block is not signed"},
        {block_ + "I agree.\n", "text after the PEM block is not signed"},
        {block_ + "I agree.", "text after the PEM block is not signed"},
        {block_ + std::string(300, ' ') + "I agree.\n", "text after the PEM block is not signed"},
        {block_.substr(0, block_.size() - 1) + " I agree.\n", "text after the PEM block is not signed"},
        {"I\n" + block_ + "agree.\n", "text before and after the PEM block is not signed"},
    };
    for (const auto& [text, words] : rows) {
        const Outcome outcome = verify(text);
        EXPECT_EQ(outcome.exit, 0) << outcome.err;
        EXPECT_THAT(outcome.out, HasSubstr(words));
        EXPECT_THAT(place_.json({"verify", "a.pem"})["not_checked"], testing::Contains(words));
    }
}

TEST_F(VerifyPem, ABlockThatDoesNotEndWithItsOwnLineIsRefused) {
    const std::string begun = block_.substr(0, block_.rfind("-----END"));
    for (const char* end :
         {"", "-----END PKCS7-----\n", "-----END CMS----\n", "-----end CMS-----\n", "-\n", "-----BEGIN CMS-----\n"}) {
        const Outcome outcome = verify(begun + end);
        EXPECT_EQ(outcome.exit, 3) << end << outcome.out;
        EXPECT_THAT(outcome.err, HasSubstr("does not end with the line -----END CMS-----")) << end;
        EXPECT_EQ(outcome.out, "") << end;
    }
    const std::string whole = place_.folder().read("ca.pem");
    place_.folder().write("cut.pem", whole.substr(0, whole.rfind("-----END")));
    EXPECT_EQ(place_.cli({"certs", "add", "cut.pem"}).exit, 3);
}

TEST_F(VerifyPem, ASecondMessageIsRefused) {
    std::string other = block_;
    for (std::size_t at = 0; (at = other.find("CMS", at)) != std::string::npos;) {
        other.replace(at, 3, "PKCS7");
    }
    for (const std::string& second : {block_, other}) {
        const Outcome outcome = verify(block_ + second);
        EXPECT_EQ(outcome.exit, 3) << outcome.out;
        EXPECT_THAT(outcome.err, HasSubstr("several PEM blocks"));
    }
}

TEST_F(VerifyPem, ASecondMessageIsNotHiddenByManyBlocks) {
    std::string junk;
    for (int i = 0; i < 8; ++i) {
        junk += "-----BEGIN JUNK-----\nAAAA\n-----END JUNK-----\n";
    }
    EXPECT_EQ(verify(block_ + junk).exit, 0);
    const Outcome outcome = verify(block_ + junk + block_);
    EXPECT_EQ(outcome.exit, 3) << outcome.out;
    EXPECT_THAT(outcome.err, HasSubstr("more than 8 PEM blocks follow"));
}

TEST_F(VerifyPem, AnotherBlockIsNamed) {
    const Outcome outcome = verify(block_ + place_.folder().read("ca.pem"));
    EXPECT_EQ(outcome.exit, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("the PEM block CERTIFICATE after the message is not signed"));
}

TEST_F(VerifyPem, TheLabelOfABlockDoesNotReachTheTerminal) {
    const Outcome outcome = verify(block_ + "-----BEGIN \x1b[2J-----\nAAAA\n-----END \x1b[2J-----\n");
    EXPECT_EQ(outcome.exit, 0) << outcome.err;
    EXPECT_THAT(outcome.out, Not(HasSubstr("\x1b")));
}

TEST_F(VerifyPem, OctetsAfterTheMessageInsideTheBlockAreRefused) {
    place_.folder().write("longer.p7s", place_.folder().read("a.p7s") + "xyz");
    place_.openssl().must({"base64", "-in", "longer.p7s", "-out", "longer.b64"});
    const std::string base64 = place_.folder().read("longer.b64");
    EXPECT_EQ(verify("-----BEGIN CMS-----\n" + base64 + "-----END CMS-----\n").exit, 3);
    EXPECT_EQ(verify(base64).exit, 3);
}

TEST_F(VerifyPem, DamagedBase64IsAnInputError) {
    const std::string base64 = place_.folder().read("a.b64");
    const std::string damaged = base64.substr(0, 200) + "!" + base64.substr(201);
    const std::string shortened = base64.substr(0, base64.size() - 3) + "\n";
    for (const std::string& body : {damaged, shortened}) {
        const Outcome outcome = verify("-----BEGIN CMS-----\n" + body + "-----END CMS-----\n");
        EXPECT_EQ(outcome.exit, 3) << outcome.out;
        EXPECT_THAT(outcome.err, HasSubstr("not Base64"));
    }
    EXPECT_EQ(verify(shortened).exit, 3);
    place_.folder().write("bad.pem", "-----BEGIN CERTIFICATE-----\nMII!\n-----END CERTIFICATE-----\n");
    const Outcome certificate = place_.cli({"verify", "a.p7s", "--signer-cert", "bad.pem"});
    EXPECT_EQ(certificate.exit, 3);
    EXPECT_THAT(certificate.err, HasSubstr("not Base64"));
}

} // namespace
} // namespace cli_test
