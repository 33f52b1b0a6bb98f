// Counter-signers are judged as signers are: weak algorithms, chains. A signature stays valid whatever somebody added
// to it, except with --strict.

#include "cli/counter_signed.hpp"
#include "cli/pki.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class CounterSigners : public CounterSigned {
protected:
    /// m.p7s, counter-signed by NAME.
    void counterSign(const std::string& name, const std::string& digest = "sha256") {
        const std::string signer = plain().signer;
        write(countered(signer, counter(name, valueOf(signer), digest)), {name});
    }
    Outcome strict(const std::vector<std::string>& more = {}) {
        std::vector<std::string> words{"verify", "m.p7s", "--strict"};
        words.insert(words.end(), more.begin(), more.end());
        return place_.cli(words);
    }
    Json first(const std::vector<std::string>& words) {
        return place_.json(words)["signers"][0]["counter_signatures"][0];
    }
    /// Of m.p7s, where the author and the certificates of these names are trusted.
    static std::vector<std::string> withChain(const std::vector<std::string>& anchors) {
        std::vector<std::string> words{"verify", "m.p7s", "--chain", "--anchor", "author.pem"};
        for (const std::string& name : anchors) {
            words.insert(words.end(), {"--anchor", name + ".pem"});
        }
        return words;
    }
    test_support::Pki pki_{place_.folder(), place_.openssl()};
};

TEST_F(CounterSigners, AreShownWithTheFieldsOfASigner) {
    counterSign("witness");
    const Json counter = shown()[0];
    EXPECT_EQ(counter["issuer"], "CN=witness");
    EXPECT_EQ(counter["digest_algorithm"], "2.16.840.1.101.3.4.2.1");
    EXPECT_EQ(counter["weak"], Json::array());
    EXPECT_EQ(counter["chain"], nullptr);
    EXPECT_EQ(counter["chain_time"], "");
}

TEST_F(CounterSigners, WithWeakAlgorithmsAreValidAndSayWhatIsWeak) {
    place_.makeIdentity("short", "rsa:1024");
    counterSign("short", "sha1");
    const Json counter = shown()[0];
    EXPECT_EQ(counter["valid"], true) << counter;
    EXPECT_THAT(counter["weak"].dump(), HasSubstr("SHA-1 digest: "));
    EXPECT_THAT(counter["weak"].dump(), HasSubstr("RSA key under 2048 bits: "));
    EXPECT_THAT(words(), HasSubstr("counter-signed by CN=short: valid\n    weak: SHA-1 digest: "));
}

TEST_F(CounterSigners, OverABrokenDigestAreNeverValid) {
    place_.makeIdentity("rsa", "rsa:2048");
    counterSign("rsa", "md5");
    EXPECT_EQ(shown()[0]["valid"], false);
    EXPECT_THAT(words(), HasSubstr("counter-signed by CN=rsa: INVALID: MD5 digest is broken: "));
}

TEST_F(CounterSigners, WithAShortKeyAreNeverValid) {
    place_.makeIdentity("tiny", "rsa:768");
    counterSign("tiny");
    EXPECT_EQ(shown()[0]["valid"], false);
    EXPECT_THAT(words(), HasSubstr("counter-signed by CN=tiny: INVALID: RSA key under 1024 bits is broken: "));
}

TEST_F(CounterSigners, ThatAreGoodPassStrictChecks) {
    counterSign("witness");
    EXPECT_EQ(strict().exit, 0);
}

TEST_F(CounterSigners, ThatAreWeakAreRefusedByStrictChecks) {
    place_.makeIdentity("rsa", "rsa:2048");
    counterSign("rsa", "sha1");
    const Outcome outcome = strict();
    EXPECT_EQ(outcome.exit, 1);
    EXPECT_THAT(outcome.out, HasSubstr("refused by --strict: counter-signature of CN=rsa: SHA-1 digest: "));
}

TEST_F(CounterSigners, ThatAreInvalidAreRefusedByStrictChecks) {
    const std::string signer = plain().signer;
    write(countered(signer, timedCounter("witness", "another value")));
    const Outcome outcome = strict();
    EXPECT_EQ(outcome.exit, 1);
    EXPECT_THAT(outcome.out, HasSubstr("counter-signature of CN=witness: it is over another signature value"));
}

TEST_F(CounterSigners, ThatAreNotJudgedMakeStrictChecksUndecided) {
    const std::string signer = plain().signer;
    write(countered(signer, counter("witness", valueOf(signer))), {});
    EXPECT_EQ(strict().exit, 4);
    EXPECT_EQ(place_.json({"verify", "m.p7s", "--strict"})["valid"], nullptr);
}

TEST_F(CounterSigners, OfCounterSignersCountForStrictChecksToo) {
    place_.makeIdentity("rsa", "rsa:2048");
    const std::string signer = plain().signer;
    const std::string inner = counter("witness", valueOf(signer));
    write(countered(signer, countered(inner, counter("rsa", valueOf(inner), "sha1"))), {"witness", "rsa"});
    const Outcome outcome = strict();
    EXPECT_EQ(outcome.exit, 1);
    EXPECT_THAT(outcome.out, HasSubstr("counter-signature of CN=rsa: SHA-1 digest: "));
}

TEST_F(CounterSigners, HaveChainsThatAreNotCheckedUnlessAskedFor) {
    counterSign("witness");
    EXPECT_THAT(notChecked(), Contains("certificate chain of the counter-signer"));
    EXPECT_THAT(place_.json(withChain({"witness"}))["not_checked"],
                Not(Contains("certificate chain of the counter-signer")));
}

TEST_F(CounterSigners, HaveChainsThroughTheCertificatesOfTheMessage) {
    pki_.root("root");
    pki_.authority("middle", "root", 2);
    pki_.issue("notary", "middle", 3);
    const std::string signer = plain().signer;
    write(countered(signer, counter("notary", valueOf(signer))), {"notary", "middle"});
    const Json counter = first(withChain({"root"}));
    EXPECT_EQ(counter["chain"]["trusted"], true) << counter;
    EXPECT_EQ(counter["chain"]["elements"].size(), 3U);
    const Outcome outcome = place_.cli(withChain({"root"}));
    EXPECT_EQ(outcome.exit, 0);
    EXPECT_THAT(outcome.out, HasSubstr("counter-signed by CN=notary: valid\n    chain        trusted\n"
                                       "    revocation   not known\n"));
}

TEST_F(CounterSigners, ThatNobodyTrustsAreShownAndDoNotChangeTheExitCode) {
    counterSign("witness");
    const Outcome outcome = place_.cli(withChain({}));
    EXPECT_EQ(outcome.exit, 0) << outcome.out;
    EXPECT_THAT(outcome.out, HasSubstr("CN=witness: valid\n    chain        not trusted: CN=witness: "));
    EXPECT_EQ(first(withChain({}))["chain"]["trusted"], false);
}

TEST_F(CounterSigners, ThatAreForgedHaveNoChain) {
    const std::string signer = plain().signer;
    write(countered(signer, timedCounter("witness", "another value")));
    EXPECT_EQ(first(withChain({"witness"}))["chain"], nullptr);
}

TEST_F(CounterSigners, WhoseKeyIsNotForSignaturesAreNotTrusted) {
    pki_.root("root");
    pki_.issue("server", "root", 2, {"keyUsage=critical,digitalSignature", "extendedKeyUsage=serverAuth"});
    counterSign("server");
    EXPECT_EQ(first(withChain({"root"}))["chain"]["trusted"], false);
}

TEST_F(CounterSigners, OfWeakCertificatesAreRefusedByStrictChecksOfChains) {
    pki_.root("root");
    place_.makeIdentity("notary", "ec",
                        {"-pkeyopt", "ec_paramgen_curve:P-256", "-CA", "root.pem", "-CAkey", "root.key", "-sha1",
                         "-addext", "basicConstraints=CA:FALSE"});
    counterSign("notary");
    EXPECT_EQ(strict().exit, 0) << "the chain is not asked for";
    const std::vector<std::string> chain{"--chain", "--anchor", "author.pem", "--anchor", "root.pem"};
    const Outcome outcome = strict(chain);
    EXPECT_EQ(outcome.exit, 1) << outcome.out;
    EXPECT_THAT(outcome.out, HasSubstr("counter-signature of CN=notary: CN=notary: SHA-1 digest: "));
    EXPECT_THAT(outcome.out, HasSubstr("    weak: certificate of CN=notary: SHA-1 digest: "));
}

TEST_F(CounterSigners, HaveChainsAtTheTimeThatIsAskedFor) {
    const std::string signer = plain().signer;
    write(countered(signer, timedCounter("witness", valueOf(signer))));
    auto words = withChain({"witness"});
    words.insert(words.end(), {"--at", "signing"});
    EXPECT_EQ(first(words)["chain_time"], "2026-11-20T12:00:00Z");
    words.back() = "2001-01-01";
    EXPECT_EQ(first(words)["chain_time"], "2001-01-01T00:00:00Z");
    words.back() = "timestamp"; // none covers what was added after it
    const Json counter = first(words);
    EXPECT_THAT(counter["chain"]["status_names"], Contains("CERT_TRUST_IS_NOT_TIME_VALID")) << counter;
}

} // namespace
} // namespace cli_test
