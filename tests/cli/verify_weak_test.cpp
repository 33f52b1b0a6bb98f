// Weak digests and keys are reported; broken ones are never valid.

#include "cli/signers_place.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::HasSubstr;

class VerifyWeak : public testing::Test {
protected:
    std::string weakOf(const std::string& file) {
        const Json document = place_.json({"verify", file});
        return document["signers"].empty() ? document.dump() : document["signers"][0]["weak"].dump();
    }

    SignersPlace place_;
};

TEST_F(VerifyWeak, Sha1IsReportedAndRefusedWhenStrict) {
    place_.makeIdentity("rsa", "rsa:2048");
    place_.sign("sha1.p7s", {"rsa"}, {"-nodetach", "-md", "sha1"});
    const Outcome words = place_.cli({"verify", "sha1.p7s"});
    EXPECT_EQ(words.exit, 0) << words.err;
    EXPECT_THAT(words.out, HasSubstr("weak: SHA-1 digest: "));
    EXPECT_THAT(weakOf("sha1.p7s"), HasSubstr("SHA-1 digest"));
    const Outcome strict = place_.cli({"verify", "sha1.p7s", "--strict"});
    EXPECT_EQ(strict.exit, 1);
    EXPECT_THAT(strict.out, HasSubstr("refused by --strict: SHA-1 digest"));
    place_.sign("sha256.p7s", {"rsa"}, {"-nodetach", "-md", "sha256"});
    EXPECT_EQ(weakOf("sha256.p7s"), "[]");
    EXPECT_EQ(place_.cli({"verify", "sha256.p7s", "--strict"}).exit, 0);
}

TEST_F(VerifyWeak, ShortRsaKeys) {
    place_.makeIdentity("short", "rsa:1024");
    place_.sign("short.p7s", {"short"}, {"-nodetach", "-md", "sha256"});
    EXPECT_EQ(place_.cli({"verify", "short.p7s"}).exit, 0);
    EXPECT_THAT(weakOf("short.p7s"), HasSubstr("RSA key under 2048 bits"));
    EXPECT_EQ(place_.cli({"verify", "short.p7s", "--strict"}).exit, 1);

    place_.makeIdentity("tiny", "rsa:768");
    place_.sign("tiny.p7s", {"tiny"}, {"-nodetach", "-md", "sha256"});
    const Outcome tiny = place_.cli({"verify", "tiny.p7s"});
    EXPECT_EQ(tiny.exit, 1) << tiny.err;
    EXPECT_THAT(tiny.out, HasSubstr("RSA key under 1024 bits is broken"));
}

TEST_F(VerifyWeak, Md5IsNeverValid) {
    place_.makeIdentity("rsa", "rsa:2048");
    place_.sign("md5.p7s", {"rsa"}, {"-nodetach", "-md", "md5"});
    const Outcome outcome = place_.cli({"verify", "md5.p7s"});
    EXPECT_EQ(outcome.exit, 1) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("MD5 digest is broken"));
    EXPECT_EQ(place_.json({"verify", "md5.p7s", "--require", "any"})["valid"], false);
}

TEST_F(VerifyWeak, OldGostIsReported) {
    place_.makeIdentity("old", "gost2001");
    place_.sign("old.p7s", {"old"}, {"-nodetach", "-md", "md_gost94"});
    const std::string weak = weakOf("old.p7s");
    EXPECT_THAT(weak, HasSubstr("GOST R 34.10-2001 key"));
    EXPECT_THAT(weak, HasSubstr("GOST R 34.11-94 digest"));
    EXPECT_EQ(place_.cli({"verify", "old.p7s", "--strict"}).exit, 1);
}

} // namespace
} // namespace cli_test
