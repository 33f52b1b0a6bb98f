// Counter-signatures are shown with verdicts of their own and leave the signer's verdict alone.

#include "cli/counter_signed.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

using VerifyCounterSignatures = CounterSigned;

TEST_F(VerifyCounterSignatures, ASignatureWithoutHasNone) {
    write(plain().signer);
    EXPECT_EQ(shown(), Json::array());
    EXPECT_THAT(words(), Not(HasSubstr("counter-sign")));
}

TEST_F(VerifyCounterSignatures, AValidOneIsShownWithItsSigner) {
    const std::string signer = plain().signer;
    write(countered(signer, timedCounter("witness", valueOf(signer))));
    const Json list = shown();
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list[0]["valid"], true) << list;
    EXPECT_EQ(list[0]["verdict"], "valid");
    EXPECT_EQ(list[0]["reason"], "");
    EXPECT_EQ(list[0]["subject"], "CN=witness");
    EXPECT_EQ(list[0]["thumbprint"], place_.thumbprint("witness"));
    EXPECT_FALSE(list[0]["serial"].get<std::string>().empty());
    EXPECT_EQ(list[0]["signing_time"], "2026-11-20T12:00:00Z");
    EXPECT_EQ(list[0]["counter_signatures"], Json::array());
    EXPECT_THAT(words(), HasSubstr("\n  counter-signed by CN=witness: valid, 2026-11-20T12:00:00Z"));
    EXPECT_THAT(notChecked(), Not(testing::Contains("counter-signature")));
}

TEST_F(VerifyCounterSignatures, ADamagedOneIsInvalidAndTheSignerStaysValid) {
    const std::string signer = plain().signer;
    std::string damaged = counter("witness", valueOf(signer));
    damaged.back() = static_cast<char>(damaged.back() ^ 1);
    write(countered(signer, damaged));
    const Json list = shown();
    EXPECT_EQ(list[0]["valid"], false) << list;
    EXPECT_EQ(list[0]["verdict"], "invalid");
    EXPECT_NE(list[0]["reason"], "");
    EXPECT_THAT(words(), HasSubstr("  counter-signed by CN=witness: INVALID: "));
}

TEST_F(VerifyCounterSignatures, OneOverAnotherValueIsInvalid) {
    const std::string signer = plain().signer;
    write(countered(signer, timedCounter("witness", "another value")));
    EXPECT_EQ(shown()[0]["valid"], false);
    EXPECT_THAT(words(), HasSubstr("INVALID: it is over another signature value"));
}

TEST_F(VerifyCounterSignatures, OneWithoutItsCertificateIsNotJudged) {
    const std::string signer = plain().signer;
    write(countered(signer, counter("witness", valueOf(signer))), {});
    const Json list = shown();
    EXPECT_EQ(list[0]["valid"], nullptr) << list;
    EXPECT_EQ(list[0]["verdict"], "unknown");
    EXPECT_EQ(list[0]["subject"], "");
    EXPECT_THAT(words(), HasSubstr("  counter-signed by an unknown signer: not judged: "));
    EXPECT_THAT(notChecked(), testing::Contains("counter-signature"));
}

TEST_F(VerifyCounterSignatures, ThoseOverACounterSignatureStandUnderIt) {
    place_.makeIdentity("notary", "ec", p256);
    const std::string signer = plain().signer;
    const std::string first = counter("witness", valueOf(signer));
    const std::string second = counter("notary", valueOf(signer));
    write(countered(signer, countered(first, counter("notary", valueOf(first))) + second), {"witness", "notary"});
    const Json list = shown();
    ASSERT_EQ(list.size(), 2U) << list;
    const Json& parent = list[0]["subject"] == "CN=witness" ? list[0] : list[1];
    ASSERT_EQ(parent["counter_signatures"].size(), 1U) << list;
    EXPECT_EQ(parent["counter_signatures"][0]["subject"], "CN=notary");
    EXPECT_EQ(parent["counter_signatures"][0]["valid"], true) << list;
    EXPECT_THAT(words(),
                HasSubstr("\n  counter-signed by CN=witness: valid\n    counter-signed by CN=notary: valid\n"));
}

TEST_F(VerifyCounterSignatures, MoreThanTheServiceJudgesAreNotJudged) {
    const std::string signer = plain().signer;
    const std::string one = counter("witness", valueOf(signer));
    std::string many;
    for (int i = 0; i < 17; ++i) {
        many += one;
    }
    write(countered(signer, many));
    const Json list = shown();
    ASSERT_EQ(list.size(), 17U);
    for (std::size_t i = 0; i < 16; ++i) {
        EXPECT_EQ(list[i]["valid"], true) << list[i];
    }
    EXPECT_EQ(list[16]["valid"], nullptr) << list[16];
    EXPECT_THAT(words(), HasSubstr("not judged: there are more of them than the service judges"));
    EXPECT_THAT(notChecked(), testing::Contains("counter-signature"));
}

TEST_F(VerifyCounterSignatures, OfManySignersAreJudgedUpToALimit) {
    const std::string signer = plain().signer;
    const std::string one = counter("witness", valueOf(signer));
    std::string signers;
    for (int i = 0; i < 66; ++i) {
        signers += countered(signer, one);
    }
    write(signers);
    const Json document = place_.json({"verify", "m.p7s"});
    EXPECT_EQ(document["valid"], true) << document;
    int judged = 0;
    for (const Json& each : document["signers"]) {
        judged += each["counter_signatures"][0]["valid"] == true ? 1 : 0;
    }
    EXPECT_EQ(judged, 64);
    EXPECT_THAT(document["not_checked"], testing::Contains("counter-signature"));
}

TEST_F(VerifyCounterSignatures, AServiceThatDoesNotJudgeThemSaysNothingOfThem) {
    const std::string signer = plain().signer;
    const std::vector<std::string> verify{"verify", "m.p7s", "--service", SERVICE_WITHOUT_COUNTER_SIGNATURES};
    write(countered(signer, counter("witness", valueOf(signer))));
    const Json document = place_.json(verify);
    EXPECT_EQ(document["valid"], true) << document;
    ASSERT_EQ(document["signers"][0]["counter_signatures"].size(), 1U);
    EXPECT_EQ(document["signers"][0]["counter_signatures"][0]["valid"], nullptr);
    EXPECT_THAT(document["not_checked"], testing::Contains("counter-signature"));
    EXPECT_THAT(place_.cli(verify).out, HasSubstr("not judged: the service does not judge counter-signatures"));
    write(signer);
    EXPECT_THAT(place_.json(verify)["not_checked"], Not(testing::Contains("counter-signature")));
}

TEST_F(VerifyCounterSignatures, NamesCannotMoveTheCursor) {
    place_.makeIdentity("odd", "ec", {"-pkeyopt", "ec_paramgen_curve:P-256", "-subj", "/CN=x\x1B[2K\rvalid"});
    const std::string signer = plain().signer;
    write(countered(signer, counter("odd", valueOf(signer))), {"odd"});
    EXPECT_THAT(words(), Not(HasSubstr("\x1B")));
    EXPECT_THAT(words(), HasSubstr("counter-signed by CN=x\\x1B"));
}

} // namespace
} // namespace cli_test
