// Counter-signatures are shown with verdicts of their own and leave the signer's verdict alone.

#include "cli/message_parts.hpp"
#include "cli/signers_place.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::vector<std::string> p256{"-pkeyopt", "ec_paramgen_curve:P-256"};

class VerifyCounterSignatures : public testing::Test {
protected:
    VerifyCounterSignatures() {
        place_.makeIdentity("author", "ec", p256);
        place_.makeIdentity("witness", "ec", p256);
        place_.sign("plain.p7s", {"author"});
    }

    [[nodiscard]] Parts plain() const { return Parts(place_.folder().read("plain.p7s")); }

    /// The signature value of a SignerInfo without unsigned attributes.
    static std::string valueOf(const std::string& signer) {
        return Parts::content(Parts::children(Parts::content(signer)).back());
    }

    /// A SignerInfo over these octets, without signed attributes.
    std::string counter(const std::string& by, const std::string& over, const std::string& digest = "sha256") {
        place_.folder().write("value", over);
        place_.openssl().must({"cms", "-sign", "-binary", "-noattr", "-in", "value", "-md", digest, "-signer",
                               by + ".pem", "-inkey", by + ".key", "-outform", "DER", "-out", "counter.der"});
        return Parts(place_.folder().read("counter.der")).signer;
    }

    /// The same with signed attributes: message-digest and the signing time 2026-11-20T12:00:00Z.
    std::string timedCounter(const std::string& by, const std::string& over) {
        const std::vector<std::string> members = Parts::children(Parts::content(counter(by, over)));
        place_.openssl().must({"dgst", "-sha256", "-binary", "-out", "digest", "value"});
        const std::string digestType("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x09\x04", 11);
        const std::string timeType("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x09\x05", 11);
        const std::string digest = place_.folder().read("digest");
        const std::string attributes = element(0x30, timeType + element(0x31, element(0x17, "261120120000Z"))) +
                                       element(0x30, digestType + element(0x31, element(0x04, digest)));
        place_.folder().write("attributes", element(0x31, attributes));
        place_.openssl().must({"dgst", "-sha256", "-sign", by + ".key", "-out", "signed", "attributes"});
        return element(0x30, members[0] + members[1] + members[2] + element(0xA0, attributes) + members[3] +
                                 element(0x04, place_.folder().read("signed")));
    }

    /// The SignerInfo with these counter-signatures.
    static std::string countered(const std::string& signer, const std::string& counters) {
        const std::string type("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x09\x06", 11);
        return element(0x30, Parts::content(signer) + element(0xA1, element(0x30, type + element(0x31, counters))));
    }

    /// Writes m.p7s: the message with these SignerInfos and, besides its own, the certificates of these names.
    void write(const std::string& signers, const std::vector<std::string>& certificates = {"witness"}) {
        std::string all = plain().certificates;
        for (const std::string& name : certificates) {
            place_.openssl().must({"x509", "-in", name + ".pem", "-outform", "DER", "-out", name + ".cer"});
            all += place_.folder().read(name + ".cer");
        }
        place_.folder().write("m.p7s", plain().message(all, signers));
    }

    /// The counter-signatures of the only signer, which is valid whatever they are.
    Json shown() {
        const Json document = place_.json({"verify", "m.p7s"});
        EXPECT_EQ(document["valid"], true) << document;
        EXPECT_EQ(document["signers"].size(), 1U);
        return document["signers"][0]["counter_signatures"];
    }
    std::string words(int exit = 0) {
        const Outcome outcome = place_.cli({"verify", "m.p7s"});
        EXPECT_EQ(outcome.exit, exit) << outcome.out << outcome.err;
        return outcome.out;
    }
    Json notChecked() { return place_.json({"verify", "m.p7s"})["not_checked"]; }

    SignersPlace place_;
};

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

TEST_F(VerifyCounterSignatures, ABrokenDigestIsNamed) {
    place_.makeIdentity("rsa", "rsa:1024");
    const std::string signer = plain().signer;
    write(countered(signer, counter("rsa", valueOf(signer), "md5")), {"rsa"});
    EXPECT_EQ(shown()[0]["valid"], false);
    EXPECT_THAT(words(), HasSubstr("INVALID: it depends on a broken digest algorithm"));
}

TEST_F(VerifyCounterSignatures, AShortKeyIsNamed) {
    place_.makeIdentity("tiny", "rsa:768");
    const std::string signer = plain().signer;
    write(countered(signer, counter("tiny", valueOf(signer))), {"tiny"});
    EXPECT_EQ(shown()[0]["valid"], false);
    EXPECT_THAT(words(), HasSubstr("INVALID: the signer's RSA key is too short to rely on"));
}

} // namespace
} // namespace cli_test
