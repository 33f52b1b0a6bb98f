// One more signer on a message that is there.

#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Words = std::vector<std::string>;

/// Signers "one" (GOST) and "two" (RSA), and a message of each shape by the first.
class Cosign : public testing::Test {
protected:
    static void SetUpTestSuite() {
        place_ = std::make_unique<Workplace>();
        place_->makeSigner("one", "80");
        place_->makeSigner("two", "24");
        const auto sign = [](const std::vector<std::string>& options) {
            std::vector<std::string> words{"sign", "report.txt", "--cert", "Signer one"};
            words.insert(words.end(), options.begin(), options.end());
            ASSERT_EQ(place_->cliWithPin(words).exit, 0);
        };
        sign({});
        sign({"--format", "attached"});
        sign({"--format", "attached", "--pem", "--out", "armoured.p7s"});
    }
    static void TearDownTestSuite() { place_.reset(); }

    static Outcome cosign(const std::vector<std::string>& options, RunOptions run = {}) {
        std::vector<std::string> words{"cosign", "--cert", "Signer two"};
        words.insert(words.end(), options.begin(), options.end());
        return place_->cliWithPin(words, std::move(run));
    }
    static Outcome opensslVerify(const std::string& message, const std::vector<std::string>& more = {}) {
        std::vector<std::string> words{"cms",     "-verify", "-inform", "DER",  "-in",        message,
                                       "-binary", "-CAfile", "ca.pem",  "-out", "openssl.out"};
        words.insert(words.end(), more.begin(), more.end());
        return place_->openssl().run(words);
    }
    /// The last element of a message of one signer: its SignerInfo, without the ends of indefinite lengths.
    static std::string signerInfo(const std::string& file) {
        std::string octets = place_->folder().read(file);
        while (octets.ends_with(std::string(2, '\0'))) {
            octets.resize(octets.size() - 2);
        }
        constexpr std::size_t part = 200; // most of the smallest SignerInfo
        return octets.substr(octets.size() - part);
    }

    static std::unique_ptr<Workplace> place_;
};

std::unique_ptr<Workplace> Cosign::place_;

TEST_F(Cosign, AttachedMessageKeepsItsSignerAndGetsAnother) {
    const Outcome added = cosign({"report.txt.p7s", "--out", "two.p7s"});
    ASSERT_EQ(added.exit, 0) << added.err;
    EXPECT_THAT(added.out, HasSubstr("2 signers"));
    EXPECT_THAT(place_->folder().read("two.p7s"), HasSubstr(signerInfo("report.txt.p7s")));
    const Json verdict = place_->json({"verify", "two.p7s"});
    EXPECT_EQ(verdict["valid"], true) << verdict;
    EXPECT_EQ(verdict["signers"].size(), 2U);
    const Outcome judged = opensslVerify("two.p7s");
    EXPECT_EQ(judged.exit, 0) << judged.err;
    EXPECT_EQ(place_->folder().read("openssl.out"), place_->folder().read("report.txt"));
}

TEST_F(Cosign, DerStaysDer) {
    ASSERT_EQ(cosign({"report.txt.p7s", "--out", "der.p7s"}).exit, 0);
    const Outcome shown = place_->openssl().run({"asn1parse", "-inform", "DER", "-in", "der.p7s"});
    EXPECT_EQ(shown.exit, 0) << shown.err;
    EXPECT_THAT(shown.out, testing::Not(HasSubstr("l=inf")));
}

TEST_F(Cosign, DetachedMessageIsReplacedAndFindsItsContentBesideIt) {
    place_->folder().write("beside.txt", "beside");
    ASSERT_EQ(place_->cliWithPin({"sign", "beside.txt", "--cert", "Signer one"}).exit, 0);
    const std::string before = signerInfo("beside.txt.sig");
    const Outcome added = cosign({"beside.txt.sig"});
    ASSERT_EQ(added.exit, 0) << added.err;
    EXPECT_THAT(place_->folder().read("beside.txt.sig"), HasSubstr(before));
    EXPECT_EQ(place_->json({"verify", "beside.txt.sig"})["signers"].size(), 2U);
    const Outcome judged = opensslVerify("beside.txt.sig", {"-content", "beside.txt"});
    EXPECT_EQ(judged.exit, 0) << judged.err;
}

TEST_F(Cosign, MessageOfOpensslInBerIsTaken) {
    for (const char* shape : {"-nodetach", "-binary"}) { // the second one leaves it detached
        place_->openssl().must({"cms", "-sign", "-stream", shape, "-binary", "-in", "report.txt", "-signer", "ca.pem",
                                "-inkey", "ca.key", "-outform", "DER", "-out", "ber.p7s"});
        const Outcome added = cosign({"ber.p7s", "--content", "report.txt", "--out", "ber2.p7s", "--force"});
        ASSERT_EQ(added.exit, 0) << added.err;
        const Json verdict = place_->json({"verify", "ber2.p7s", "--content", "report.txt"});
        EXPECT_EQ(verdict["valid"], true) << verdict;
        const Outcome judged = opensslVerify("ber2.p7s", {"-content", "report.txt", "-purpose", "any"});
        EXPECT_EQ(judged.exit, 0) << shape << judged.err;
    }
}

TEST_F(Cosign, PemStaysPemAndAPipeIsTaken) {
    place_->folder().write("pem.p7s", place_->folder().read("armoured.p7s"));
    ASSERT_EQ(cosign({"pem.p7s"}).exit, 0);
    EXPECT_THAT(place_->folder().read("pem.p7s"), StartsWith("-----BEGIN CMS-----\n"));
    EXPECT_EQ(place_->json({"verify", "pem.p7s"})["signers"].size(), 2U);
    RunOptions piped;
    piped.input = place_->folder().read("report.txt.p7s");
    ASSERT_EQ(cosign({"-", "--out", "piped.p7s"}, piped).exit, 0);
    EXPECT_EQ(place_->json({"verify", "piped.p7s"})["signers"].size(), 2U);
}

TEST_F(Cosign, ForgedMessageIsLeftAlone) {
    std::string forged = place_->folder().read("report.txt.p7s");
    forged.at(forged.find("report")) ^= 1;
    place_->folder().write("forged.p7s", forged);
    const Outcome refused = cosign({"forged.p7s"});
    EXPECT_EQ(refused.exit, 1) << refused.err;
    EXPECT_THAT(refused.err, HasSubstr("invalid"));
    EXPECT_EQ(place_->folder().read("forged.p7s"), forged);
    place_->folder().write("other.txt", "other content");
    EXPECT_EQ(cosign({"report.txt.sig", "--content", "other.txt", "--out", "none.sig"}).exit, 1);
    EXPECT_EQ(cosign({"report.txt.p7s", "--content", "other.txt", "--out", "none.sig"}).exit, 1);
    EXPECT_FALSE(place_->folder().has("none.sig"));
}

TEST_F(Cosign, SecondSignatureOfTheSameCertificateNeedsForce) {
    const std::vector<std::string> words{"cosign", "report.txt.p7s", "--cert", "Signer one", "--out", "same.p7s"};
    const Outcome refused = place_->cliWithPin(words);
    EXPECT_EQ(refused.exit, 1);
    EXPECT_THAT(refused.err, HasSubstr("there already"));
    auto forced = words;
    forced.emplace_back("--force");
    ASSERT_EQ(place_->cliWithPin(forced).exit, 0);
    EXPECT_EQ(place_->json({"verify", "same.p7s"})["signers"].size(), 2U);
}

TEST_F(Cosign, RefusedPinLeavesTheMessageAsItIs) {
    place_->folder().write("kept.p7s", place_->folder().read("report.txt.p7s"));
    place_->folder().write("wrong.txt", "00000000\n");
    EXPECT_EQ(place_->cli({"cosign", "kept.p7s", "--cert", "Signer two", "--pin-file", "wrong.txt"}).exit, 6);
    EXPECT_EQ(place_->folder().read("kept.p7s"), place_->folder().read("report.txt.p7s"));
}

TEST_F(Cosign, WhatIsNotAMessageIsRefused) {
    EXPECT_EQ(cosign({"report.txt"}).exit, 3);
    EXPECT_EQ(cosign({"missing.p7s"}).exit, 3);
    place_->folder().write("nothing.p7s", "");
    EXPECT_EQ(cosign({"nothing.p7s"}).exit, 3);
    place_->folder().write("alone.sig", place_->folder().read("report.txt.sig"));
    const Outcome alone = cosign({"alone.sig"});
    EXPECT_EQ(alone.exit, 3);
    EXPECT_THAT(alone.err, HasSubstr("--content"));
}

TEST_F(Cosign, OtherMessagesAreSaidToBeNoSignature) {
    const std::pair<Words, const char*> rows[] = {{{"-digest_create", "-md", "sha256"}, "a digest (CMS DigestedData)"},
                                                  {{"-data_create"}, "plain data (CMS Data)"}};
    for (const auto& [create, words] : rows) {
        Words command{"cms"};
        command.insert(command.end(), create.begin(), create.end());
        command.insert(command.end(), {"-in", "report.txt", "-outform", "DER", "-out", "other.cms"});
        place_->openssl().must(command);
        const Outcome verifying = place_->cli({"verify", "other.cms"});
        EXPECT_EQ(verifying.exit, 3);
        EXPECT_THAT(verifying.err, HasSubstr(words));
        const Outcome cosigning = cosign({"other.cms", "--out", "none.cms"});
        EXPECT_EQ(cosigning.exit, 3);
        EXPECT_THAT(cosigning.err, HasSubstr(words));
        const Outcome decrypting = place_->cli({"decrypt", "other.cms", "--out", "none"});
        EXPECT_EQ(decrypting.exit, 3);
        EXPECT_THAT(decrypting.err, HasSubstr("it is not an encrypted message"));
        EXPECT_THAT(decrypting.err, HasSubstr(words));
    }
}

/// The verdict on other.cms, a digest made by openssl.
Outcome judgedDigest(const Workplace& place, const Words& more) {
    Words words{"verify", "other.cms"};
    words.insert(words.end(), more.begin(), more.end());
    return place.cli(words);
}

TEST_F(Cosign, ADigestIsCheckedAndSaidToBeSignedByNobody) {
    const auto create = [&](const Words& more) {
        Words command{"cms", "-digest_create", "-binary", "-md", "md_gost12_256", "-in", "report.txt"};
        command.insert(command.end(), {"-outform", "DER", "-out", "other.cms"});
        command.insert(command.end(), more.begin(), more.end());
        place_->openssl().must(command);
    };
    create({"-nodetach"});
    const Outcome right = judgedDigest(*place_, {});
    EXPECT_EQ(right.exit, 3);
    EXPECT_THAT(right.err, HasSubstr("the digest matches the content, but nobody signed it"));
    std::string changed = place_->folder().read("other.cms");
    changed.back() = static_cast<char>(changed.back() ^ 1);
    place_->folder().write("other.cms", changed);
    const Outcome wrong = judgedDigest(*place_, {});
    EXPECT_EQ(wrong.exit, 3);
    EXPECT_THAT(wrong.err, HasSubstr("the digest does not match the content, and nobody signed it"));
    changed.resize(changed.size() - 1);
    place_->folder().write("other.cms", changed);
    EXPECT_THAT(judgedDigest(*place_, {}).err, HasSubstr("the digest was not checked"));
    place_->folder().write("elsewhere.txt", "other");
    create({"-nodetach"});
    EXPECT_THAT(judgedDigest(*place_, {"--content", "report.txt"}).err, HasSubstr("the digest matches"));
    EXPECT_THAT(judgedDigest(*place_, {"--content", "elsewhere.txt"}).err, HasSubstr("does not match"));
}

TEST_F(Cosign, NamesTheSignerByKeyIdentifierAndSignsWithPss) {
    const Outcome added = cosign({"report.txt.p7s", "--by-key-id", "--pss", "--out", "pss.p7s"});
    ASSERT_EQ(added.exit, 0) << added.err;
    EXPECT_EQ(place_->json({"verify", "pss.p7s"})["valid"], true);
    const Outcome judged = opensslVerify("pss.p7s");
    EXPECT_EQ(judged.exit, 0) << judged.err;
    const Outcome shown =
        place_->openssl().run({"cms", "-cmsout", "-print", "-noout", "-inform", "DER", "-in", "pss.p7s"});
    EXPECT_THAT(shown.out, HasSubstr("subjectKeyIdentifier"));
    EXPECT_THAT(shown.out, HasSubstr("rsassaPss"));
}

TEST_F(Cosign, FormsOfASignatureThatTheKeyDoesNotHaveAreRefused) {
    const Outcome gost = place_->cliWithPin({"sign", "report.txt", "--cert", "Signer one", "--pss", "--out", "x.sig"});
    EXPECT_EQ(gost.exit, 4) << gost.err;
    EXPECT_EQ(
        place_->cliWithPin({"sign", "report.txt", "--cert", "Signer one", "--by-key-id", "--out", "key-id.sig"}).exit,
        0);
    EXPECT_EQ(place_->cli({"verify", "key-id.sig", "--content", "report.txt"}).exit, 0);
}

TEST_F(Cosign, ExpiredCertificateIsRemarkedAndRefusedWhenStrict) {
    place_->openssl().must(
        {"x509",        "-req",           "-inform",  "DER",         "-in",         "two.csr",
         "-CA",         "ca.pem",         "-CAkey",   "ca.key",      "-days",       "-1",
         "-set_serial", "0x4d4d4d4d4d4d", "-extfile", "openssl.cnf", "-extensions", "signer_extensions",
         "-out",        "old.pem"});
    ASSERT_EQ(place_->cliWithPin({"install", "old.pem", "--container", "two"}).exit, 0);
    const std::vector<std::string> words{"sign", "report.txt", "--cert", "4d4d4d4d4d4d", "--out", "old.sig"};
    const Outcome remarked = place_->cliWithPin(words);
    EXPECT_EQ(remarked.exit, 0) << remarked.err;
    EXPECT_THAT(remarked.err, HasSubstr("warning: the signer's certificate expired at"));
    for (const char* verb : {"sign", "cosign"}) {
        const Outcome refused = place_->cliWithPin({verb, verb == std::string("sign") ? "report.txt" : "report.txt.p7s",
                                                    "--cert", "4d4d4d4d4d4d", "--strict", "--out", "strict.sig"});
        EXPECT_EQ(refused.exit, 4) << refused.err;
        EXPECT_FALSE(place_->folder().has("strict.sig"));
    }
}

} // namespace
} // namespace cli_test
