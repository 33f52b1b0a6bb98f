#include "cli/pki.hpp"
#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <filesystem>

namespace cli_test {
namespace {

using testing::HasSubstr;

class Sign : public testing::TestWithParam<const char*> {
protected:
    Sign() { place_.makeSigner("one", GetParam()); }

    Outcome opensslVerify(const std::string& signature, const std::string& content = {}) {
        std::vector<std::string> command{"cms",     "-verify", "-inform", "DER",  "-in",        signature,
                                         "-binary", "-CAfile", "ca.pem",  "-out", "openssl.out"};
        if (!content.empty()) {
            command.insert(command.end(), {"-content", content});
        }
        return place_.openssl().run(command);
    }

    Workplace place_;
};

TEST_P(Sign, DetachedIsTheDefaultAndOpensslAcceptsIt) {
    const Outcome signing = place_.cliWithPin({"sign", "report.txt", "--cert", "Signer one"});
    ASSERT_EQ(signing.exit, 0) << signing.err;
    EXPECT_THAT(signing.out, HasSubstr("report.txt.sig"));
    const Outcome judged = opensslVerify("report.txt.sig", "report.txt");
    EXPECT_EQ(judged.exit, 0) << judged.err;
    EXPECT_EQ(place_.cli({"verify", "report.txt.sig"}).exit, 0);
}

TEST_P(Sign, AttachedCarriesTheContentAndOpensslAcceptsIt) {
    const Outcome signing = place_.cliWithPin({"sign", "report.txt", "--cert", "Signer one", "--format", "attached"});
    ASSERT_EQ(signing.exit, 0) << signing.err;
    const Outcome judged = opensslVerify("report.txt.p7s");
    EXPECT_EQ(judged.exit, 0) << judged.err;
    EXPECT_EQ(place_.folder().read("openssl.out"), place_.folder().read("report.txt"));
    EXPECT_EQ(place_.cli({"verify", "report.txt.p7s"}).exit, 0);
}

TEST_P(Sign, OtherAttributesAreSignedToo) {
    const Outcome signing =
        place_.cliWithPin({"sign", "report.txt", "--cert", "Signer one", "--attribute", "1.2.3.4=UTF8String:заметка",
                           "--attribute", "1.2.3.5=INTEGER:-7", "--attribute", "1.2.3.6=OCTETSTRING:00ff"});
    ASSERT_EQ(signing.exit, 0) << signing.err;
    const Outcome judged = opensslVerify("report.txt.sig", "report.txt");
    EXPECT_EQ(judged.exit, 0) << judged.err;
    const Outcome shown = place_.openssl().run({"asn1parse", "-inform", "DER", "-in", "report.txt.sig"});
    EXPECT_THAT(shown.out, HasSubstr("заметка"));
    EXPECT_THAT(shown.out, HasSubstr(":00FF"));
    EXPECT_THAT(shown.out, HasSubstr(":-07"));
    EXPECT_EQ(place_.cli({"verify", "report.txt.sig"}).exit, 0);
}

TEST_P(Sign, AChangedOctetOfTheContentIsRefused) {
    ASSERT_EQ(place_.cliWithPin({"sign", "report.txt", "--cert", "Signer one"}).exit, 0);
    place_.folder().write("report.txt", "The rep0rt.\n");
    const Outcome checking = place_.cli({"verify", "report.txt.sig"});
    EXPECT_EQ(checking.exit, 1) << checking.err;
    EXPECT_THAT(checking.out, HasSubstr("INVALID"));
}

INSTANTIATE_TEST_SUITE_P(Providers, Sign, testing::Values("80", "81", "24"), [](const auto& provider) {
    return provider.param == std::string("80") ? "Gost256" : provider.param == std::string("81") ? "Gost512" : "Rsa";
});

TEST(SignBatch, OnePinServesAllFiles) {
    Workplace place;
    place.makeSigner("one");
    place.folder().write("a.txt", "a");
    place.folder().write("b.txt", "b");
    RunOptions once; // a descriptor can be read only once
    once.input = std::string(pinOf) + "\n";
    const Outcome signing =
        place.cli({"sign", "a.txt", "b.txt", "report.txt", "--cert", "Signer one", "--pin-fd", "0"}, once);
    ASSERT_EQ(signing.exit, 0) << signing.err;
    for (const char* signature : {"a.txt.sig", "b.txt.sig", "report.txt.sig"}) {
        EXPECT_EQ(place.cli({"verify", signature}).exit, 0) << signature;
    }
}

TEST(SignBatch, StopsAtTheFirstFailureUnlessToldToKeepGoing) {
    Workplace place;
    place.makeSigner("one");
    place.folder().write("empty.txt", "");
    EXPECT_EQ(place.cliWithPin({"sign", "empty.txt", "report.txt", "--cert", "Signer one"}).exit, 3);
    EXPECT_FALSE(place.folder().has("report.txt.sig"));
    EXPECT_EQ(place.cliWithPin({"sign", "empty.txt", "report.txt", "--cert", "Signer one", "--keep-going"}).exit, 3);
    EXPECT_TRUE(place.folder().has("report.txt.sig"));
}

TEST(SignBatch, OutDirTakesTheSignatures) {
    Workplace place;
    place.makeSigner("one");
    const test_support::TempFolder other;
    ASSERT_EQ(place.cliWithPin({"sign", "report.txt", "--cert", "Signer one", "--out-dir", other.path()}).exit, 0);
    EXPECT_TRUE(other.has("report.txt.sig"));
    EXPECT_FALSE(place.folder().has("report.txt.sig"));
}

TEST(SignStreams, StandardInputToStandardOutput) {
    Workplace place;
    place.makeSigner("one");
    RunOptions piped;
    piped.input = "The report.\n";
    const Outcome signing = place.cliWithPin({"sign", "-", "--cert", "Signer one"}, piped);
    ASSERT_EQ(signing.exit, 0) << signing.err;
    RunOptions back;
    back.input = signing.out;
    const Outcome checking = place.cli({"verify", "-", "--content", "report.txt"}, back);
    EXPECT_EQ(checking.exit, 0) << checking.err;
}

/// "root" issues "mid", which issues the signer. Only "root" is known to whoever verifies.
class IncludedChain : public testing::Test {
protected:
    IncludedChain() {
        const test_support::Pki pki(place.folder(), place.openssl());
        pki.root("root");
        pki.authority("mid", "root", 2);
        for (const char* part : {".pem", ".key"}) {
            place.folder().write(std::string("ca") + part, place.folder().read(std::string("mid") + part));
        }
        place.makeSigner("one");
    }

    [[nodiscard]] Outcome opensslVerifies(const std::string& signature) const {
        return place.openssl().run({"cms", "-verify", "-inform", "DER", "-binary", "-in", signature, "-content",
                                    "report.txt", "-CAfile", "root.pem", "-out", "/dev/null"});
    }

    Workplace place;
};

TEST_F(IncludedChain, LetsAVerifierWithOnlyTheRootVerify) {
    ASSERT_EQ(place.cli({"certs", "add", "root.pem", "--store", "root"}).exit, 0);
    ASSERT_EQ(place.cli({"certs", "add", "mid.pem", "--store", "ca"}).exit, 0);
    ASSERT_EQ(place.cliWithPin({"sign", "report.txt", "--cert", "one", "--out", "bare.sig"}).exit, 0);
    EXPECT_NE(opensslVerifies("bare.sig").exit, 0) << "the issuer is not in it";
    const Outcome signing =
        place.cliWithPin({"sign", "report.txt", "--cert", "one", "--include-chain", "--out", "chain.sig"});
    ASSERT_EQ(signing.exit, 0) << signing.err;
    const Outcome verified = opensslVerifies("chain.sig");
    EXPECT_EQ(verified.exit, 0) << verified.err;
    const Outcome attached = place.cliWithPin(
        {"sign", "report.txt", "--cert", "one", "--include-chain", "--format", "attached", "--out", "chain.p7s"});
    ASSERT_EQ(attached.exit, 0) << attached.err;
    EXPECT_EQ(opensslVerifies("chain.p7s").exit, 0);
    place.openssl().must({"pkcs7", "-inform", "DER", "-in", "chain.sig", "-print_certs", "-out", "certs.txt"});
    const std::string certificates = place.folder().read("certs.txt");
    EXPECT_THAT(certificates, HasSubstr("subject=CN = mid"));
    EXPECT_THAT(certificates, testing::Not(HasSubstr("subject=CN = root"))) << "the root is for the verifier to have";
}

TEST_F(IncludedChain, NeedsTheIssuersAndABinaryFormat) {
    const Outcome missing = place.cliWithPin({"sign", "report.txt", "--cert", "one", "--include-chain"});
    EXPECT_EQ(missing.exit, 4);
    EXPECT_THAT(missing.err, HasSubstr("CN=mid"));
    EXPECT_FALSE(std::filesystem::exists(place.folder() / "report.txt.sig"));
    EXPECT_EQ(place.cliWithPin({"sign", "report.txt", "--cert", "one", "--include-chain", "--format", "xmldsig"}).exit,
              2);
}

} // namespace
} // namespace cli_test
