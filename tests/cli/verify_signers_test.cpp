// A verdict for each signer, and which of them decide.

#include "cli/signers_place.hpp"

#include <gmock/gmock.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/pem.h>

#include <memory>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

class VerifySigners : public testing::Test {
protected:
    VerifySigners() {
        place_.makeIdentity("a");
        place_.makeIdentity("b");
        place_.sign("ab.p7s", {"a", "b"});
        place_.breakSignature("ab.p7s", "one-bad.p7s");
    }

    /// The verdict with these words, and the exit code that goes with it.
    Json verdict(const std::string& file, const std::vector<std::string>& more, int exit) {
        std::vector<std::string> words{"verify", file, "--json"};
        words.insert(words.end(), more.begin(), more.end());
        const Outcome outcome = place_.cli(words);
        EXPECT_EQ(outcome.exit, exit) << testing::PrintToString(words) << outcome.out << outcome.err;
        return Json::parse(outcome.out, nullptr, false);
    }

    SignersPlace place_;
};

TEST_F(VerifySigners, EachHasAVerdictOfItsOwn) {
    const Json both = verdict("ab.p7s", {}, 0);
    EXPECT_EQ(both["valid"], true);
    EXPECT_EQ(both["verdict"], "valid");
    ASSERT_EQ(both["signers"].size(), 2U);
    for (const Json& signer : both["signers"]) {
        EXPECT_EQ(signer["valid"], true);
        EXPECT_EQ(signer["verdict"], "valid");
        EXPECT_EQ(signer["reason"], "");
        EXPECT_EQ(signer["issuer"], signer["subject"]);
        EXPECT_EQ(signer["chain"], nullptr);
        EXPECT_EQ(signer["weak"], Json::array());
    }
}

TEST_F(VerifySigners, OneThatIsForgedIsNamedAndTheOtherStaysValid) {
    const Json document = verdict("one-bad.p7s", {}, 1);
    EXPECT_EQ(document["valid"], false);
    EXPECT_EQ(document["verdict"], "invalid");
    int valid = 0;
    for (const Json& signer : document["signers"]) {
        valid += signer["valid"] == true ? 1 : 0;
        EXPECT_EQ(signer["reason"] == "", signer["valid"] == true) << signer;
    }
    EXPECT_EQ(valid, 1);
    const Outcome words = place_.cli({"verify", "one-bad.p7s"});
    EXPECT_THAT(words.out, HasSubstr("  verdict      INVALID: "));
    EXPECT_THAT(words.out, HasSubstr("  verdict      valid"));
}

TEST_F(VerifySigners, AnyAndNumbersCountTheValidOnes) {
    EXPECT_EQ(verdict("one-bad.p7s", {"--require", "any"}, 0)["valid"], true);
    EXPECT_EQ(verdict("one-bad.p7s", {"--require", "1"}, 0)["valid"], true);
    EXPECT_EQ(verdict("one-bad.p7s", {"--require", "2"}, 1)["valid"], false);
    EXPECT_EQ(verdict("one-bad.p7s", {"--require", "all"}, 1)["valid"], false);
    EXPECT_EQ(verdict("ab.p7s", {"--require", "2"}, 0)["valid"], true);
    EXPECT_THAT(verdict("ab.p7s", {"--require", "3"}, 1)["reason"].get<std::string>(),
                HasSubstr("2 of the 3 required signers"));
}

TEST_F(VerifySigners, AnyShowsTheForgedOneAllTheSame) {
    const Outcome words = place_.cli({"verify", "one-bad.p7s", "--require", "any"});
    EXPECT_EQ(words.exit, 0);
    EXPECT_THAT(words.out, HasSubstr("INVALID: "));
}

TEST_F(VerifySigners, TheSameSignerTwiceCountsOnce) {
    place_.sign("a.p7s", {"a"});
    place_.openssl().must({"cms", "-resign", "-nocerts", "-inform", "DER", "-in", "a.p7s", "-signer", "a.pem", "-inkey",
                           "a.key", "-outform", "DER", "-out", "aa.p7s"});
    ASSERT_EQ(verdict("aa.p7s", {}, 0)["signers"].size(), 2U);
    verdict("aa.p7s", {"--require", "2"}, 1);
}

TEST_F(VerifySigners, ASecondCertificateOfTheSameKeyCountsOnce) {
    place_.openssl().must(
        {"req", "-x509", "-key", "a.key", "-out", "a2.pem", "-subj", "/CN=another name", "-days", "2"});
    place_.openssl().must({"cms", "-sign", "-binary", "-nodetach", "-in", "report.txt", "-outform", "DER", "-out",
                           "twice.p7s", "-signer", "a.pem", "-inkey", "a.key", "-signer", "a2.pem", "-inkey", "a.key"});
    ASSERT_EQ(verdict("twice.p7s", {}, 0)["signers"].size(), 2U);
    verdict("twice.p7s", {"--require", "2"}, 1);
}

TEST_F(VerifySigners, APointWrittenCompressedAndNotIsOneKey) {
    const auto& openssl = place_.openssl();
    openssl.must({"genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-out", "e.key"});
    openssl.must({"ec", "-in", "e.key", "-conv_form", "compressed", "-out", "e2.key"});
    openssl.must({"req", "-x509", "-key", "e.key", "-out", "e.pem", "-subj", "/CN=one", "-days", "2"});
    openssl.must({"req", "-x509", "-key", "e2.key", "-out", "e2.pem", "-subj", "/CN=two", "-days", "2"});
    place_.sign("points.p7s", {"e", "e2"}, {"-nodetach"});
    ASSERT_EQ(verdict("points.p7s", {}, 0)["signers"].size(), 2U);
    verdict("points.p7s", {"--require", "2"}, 1);
}

TEST_F(VerifySigners, AHybridPointIsTheSameKeyToo) {
    const auto& openssl = place_.openssl();
    openssl.must({"genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-out", "e.key"});
    openssl.must({"ec", "-in", "e.key", "-conv_form", "hybrid", "-out", "e2.key"});
    openssl.must({"req", "-x509", "-key", "e.key", "-out", "e.pem", "-subj", "/CN=one", "-days", "2"});
    openssl.must({"req", "-x509", "-key", "e2.key", "-out", "e2.pem", "-subj", "/CN=two", "-days", "2"});
    place_.sign("hybrid.p7s", {"e", "e2"}, {"-nodetach"});
    ASSERT_EQ(verdict("hybrid.p7s", {}, 0)["signers"].size(), 2U);
    verdict("hybrid.p7s", {"--require", "2"}, 1);
}

/// The key NAME.key of P-256 as its negative: what its holder has as well.
void writeNegative(const test_support::TempFolder& folder, const std::string& name, const std::string& out) {
    using Number = std::unique_ptr<BIGNUM, decltype(&BN_free)>;
    using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
    const std::string pem = folder.read(name + ".key");
    const std::unique_ptr<BIO, decltype(&BIO_free)> in(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())),
                                                       BIO_free);
    const Key key(PEM_read_bio_PrivateKey(in.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
    BIGNUM* number = nullptr;
    ASSERT_EQ(EVP_PKEY_get_bn_param(key.get(), OSSL_PKEY_PARAM_PRIV_KEY, &number), 1);
    const Number secret(number, BN_free);
    number = nullptr;
    BN_hex2bn(&number, "FFFFFFFF00000000FFFFFFFFFFFFFFFFBCE6FAADA7179E84F3B9CAC2FC632551");
    const Number negative(number, BN_free);
    BN_sub(negative.get(), negative.get(), secret.get());
    unsigned char* point = nullptr;
    ASSERT_EQ(EVP_PKEY_get1_encoded_public_key(key.get(), &point), 65U);
    point[0] = (point[64] & 1U) == 0 ? 3 : 2; // compressed, with the other y of the same x
    constexpr std::size_t size = 33;
    const std::unique_ptr<OSSL_PARAM_BLD, decltype(&OSSL_PARAM_BLD_free)> builder(OSSL_PARAM_BLD_new(),
                                                                                  OSSL_PARAM_BLD_free);
    OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, "P-256", 0);
    OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, point, size);
    OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_PRIV_KEY, negative.get());
    const std::unique_ptr<OSSL_PARAM, decltype(&OSSL_PARAM_free)> parameters(OSSL_PARAM_BLD_to_param(builder.get()),
                                                                             OSSL_PARAM_free);
    const std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
        EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr), EVP_PKEY_CTX_free);
    EVP_PKEY* made = nullptr;
    ASSERT_EQ(EVP_PKEY_fromdata_init(context.get()), 1);
    ASSERT_EQ(EVP_PKEY_fromdata(context.get(), &made, EVP_PKEY_KEYPAIR, parameters.get()), 1);
    OPENSSL_free(point);
    const Key other(made, EVP_PKEY_free);
    const std::unique_ptr<BIO, decltype(&BIO_free)> text(BIO_new(BIO_s_mem()), BIO_free);
    PEM_write_bio_PrivateKey(text.get(), other.get(), nullptr, nullptr, 0, nullptr, nullptr);
    char* octets = nullptr;
    const long written = BIO_get_mem_data(text.get(), &octets);
    folder.write(out + ".key", std::string(octets, static_cast<std::size_t>(written)));
}

TEST_F(VerifySigners, APointAndItsNegativeAreOneKey) {
    const auto& openssl = place_.openssl();
    openssl.must({"genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-out", "e.key"});
    writeNegative(place_.folder(), "e", "e2");
    openssl.must({"req", "-x509", "-key", "e.key", "-out", "e.pem", "-subj", "/CN=one", "-days", "2"});
    openssl.must({"req", "-x509", "-key", "e2.key", "-out", "e2.pem", "-subj", "/CN=two", "-days", "2"});
    place_.sign("negative.p7s", {"e", "e2"}, {"-nodetach"});
    ASSERT_EQ(verdict("negative.p7s", {}, 0)["signers"].size(), 2U);
    verdict("negative.p7s", {"--require", "2"}, 1);
}

TEST_F(VerifySigners, TheGivenCertificateMustHaveSignedWhateverOthersDid) {
    const Json any = verdict("one-bad.p7s", {"--require", "any"}, 0);
    const bool firstIsBad = any["signers"][0]["valid"] == false;
    const std::string bad = any["signers"][firstIsBad ? 0 : 1]["subject"] == "CN=a" ? "a" : "b";
    const std::string good = bad == "a" ? "b" : "a";
    verdict("one-bad.p7s", {"--require", "any", "--signer-cert", good + ".pem"}, 0);
    const Json refused = verdict("one-bad.p7s", {"--require", "any", "--signer-cert", bad + ".pem"}, 1);
    EXPECT_EQ(refused["valid"], false);
    EXPECT_THAT(refused["reason"].get<std::string>(), HasSubstr("signature"));
}

TEST_F(VerifySigners, TooManyCertificatesOfOneNumberAreTheReason) {
    const auto& openssl = place_.openssl();
    std::string others;
    for (int i = 0; i < 6; ++i) {
        const std::string name = "twin" + std::to_string(i);
        openssl.must({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout",
                      name + ".key", "-out", name + ".pem", "-subj", "/CN=twin", "-set_serial", "7", "-days", "2"});
        others += i > 0 ? place_.folder().read(name + ".pem") : "";
    }
    place_.folder().write("others.pem", others);
    place_.sign("twins.p7s", {"twin0"}, {"-nodetach", "-nocerts", "-certfile", "others.pem"});
    const Outcome outcome = place_.cli({"verify", "twins.p7s"});
    EXPECT_EQ(outcome.exit, 4) << outcome.out;
    EXPECT_THAT(outcome.out, testing::HasSubstr("more certificates have the signer's issuer and serial number"));
}

TEST_F(VerifySigners, ThumbprintsNameWhoMustBeValid) {
    const std::string a = place_.thumbprint("a");
    const std::string b = place_.thumbprint("b");
    verdict("ab.p7s", {"--require", a}, 0);
    verdict("ab.p7s", {"--require", a, b}, 0);
    verdict("ab.p7s", {"--require", a + "," + b}, 0);
    verdict("ab.p7s", {"--require", a, "--require", b}, 0);
    const Json missing = verdict("ab.p7s", {"--require", std::string(40, '0')}, 1);
    EXPECT_THAT(missing["reason"].get<std::string>(), HasSubstr("not among the signers"));
    // Which of the two was broken is the encoding's order; exactly one of them is still met.
    const Json document = verdict("one-bad.p7s", {"--require", "any"}, 0);
    for (const Json& signer : document["signers"]) {
        verdict("one-bad.p7s", {"--require", signer["thumbprint"]}, signer["valid"] == true ? 0 : 1);
    }
    verdict("one-bad.p7s", {"--require", a, b}, 1);
}

TEST_F(VerifySigners, WordsThatRequireNothingAreWrongUsage) {
    for (const char* word : {"none", "0", "-1", "abcdef", "99999999", ""}) {
        EXPECT_EQ(place_.cli({"verify", "ab.p7s", std::string("--require=") + word}).exit, 2) << word;
    }
    EXPECT_EQ(place_.cli({"verify", "ab.p7s", "--require", "any,all"}).exit, 2);
}

TEST_F(VerifySigners, WithChainsASignerCountsOnlyWhenTrusted) {
    ASSERT_EQ(place_.cli({"certs", "add", "a.pem", "--store", "root"}).exit, 0);
    const Json all = verdict("ab.p7s", {"--chain"}, 8);
    EXPECT_EQ(all["valid"], true);
    EXPECT_EQ(all["chain"]["trusted"], false);
    for (const Json& signer : all["signers"]) {
        EXPECT_EQ(signer["chain"]["trusted"], signer["subject"] == "CN=a");
    }
    EXPECT_EQ(verdict("ab.p7s", {"--chain", "--require", "any"}, 0)["chain"]["trusted"], true);
    verdict("ab.p7s", {"--chain", "--require", "2"}, 8);
    verdict("ab.p7s", {"--chain", "--require", place_.thumbprint("a")}, 0);
    verdict("ab.p7s", {"--chain", "--require", place_.thumbprint("b")}, 8);
}

TEST_F(VerifySigners, TheGivenCertificateMustBeThatOfASigner) {
    verdict("ab.p7s", {"--signer-cert", "a.pem"}, 0);
    place_.makeIdentity("c");
    const Json other = verdict("ab.p7s", {"--signer-cert", "c.pem"}, 4);
    EXPECT_EQ(other["valid"], nullptr);
    EXPECT_THAT(other["reason"].get<std::string>(), HasSubstr("--signer-cert"));
}

TEST_F(VerifySigners, TheGivenCertificateDecidesAgainstOneOfTheSameNumber) {
    // Two keys under one issuer and serial number: the message's own certificate is not the one the user knows.
    place_.makeIdentity("x", "gost2012_256", {"-set_serial", "77", "-subj", "/CN=same"});
    place_.makeIdentity("y", "gost2012_256", {"-set_serial", "77", "-subj", "/CN=same"});
    place_.sign("x.p7s", {"x"});
    verdict("x.p7s", {}, 0);
    verdict("x.p7s", {"--signer-cert", "x.pem"}, 0);
    const Json refused = verdict("x.p7s", {"--signer-cert", "y.pem"}, 1);
    EXPECT_EQ(refused["signers"][0]["thumbprint"], place_.thumbprint("y"));
}

TEST_F(VerifySigners, OneThatNamesAnotherSigningCertificateIsRefusedForThat) {
    place_.makeIdentity("x", "gost2012_256", {"-set_serial", "77"});
    place_.openssl().must(
        {"req", "-x509", "-key", "x.key", "-out", "other.pem", "-subj", "/CN=x", "-set_serial", "77", "-days", "9"});
    place_.sign("x.p7s", {"x"}, {"-nodetach", "-cades"});
    verdict("x.p7s", {}, 0);
    const Json refused = verdict("x.p7s", {"--signer-cert", "other.pem"}, 1);
    EXPECT_EQ(refused["signers"][0]["reason"], "the signature names another signing certificate");
}

} // namespace
} // namespace cli_test
