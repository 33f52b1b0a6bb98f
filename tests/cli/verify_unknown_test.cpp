// What could not be judged is not called forged.

#include "cli/message_parts.hpp"
#include "cli/signers_place.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

class VerifyUnknown : public testing::Test {
protected:
    VerifyUnknown() { place_.makeIdentity("a"); }

    void expectUnknown(const std::vector<std::string>& words, const std::string& part) {
        const Outcome text = place_.cli(words);
        EXPECT_EQ(text.exit, 4) << text.out << text.err;
        EXPECT_THAT(text.err, HasSubstr(part));
        EXPECT_THAT(text.out + text.err, Not(HasSubstr("INVALID")));
        const Json document = place_.json(words);
        ASSERT_TRUE(document.contains("valid")) << document;
        EXPECT_EQ(document["valid"], nullptr) << document;
        EXPECT_EQ(document["verdict"], "unknown");
        EXPECT_THAT(document["reason"].get<std::string>(), HasSubstr(part));
    }

    std::string messageOf(const std::string& signer) {
        place_.sign("made.p7s", {signer});
        return place_.folder().read("made.p7s");
    }

    SignersPlace place_;
};

TEST_F(VerifyUnknown, AMissingCertificateIsAskedFor) {
    place_.sign("bare.p7s", {"a"}, {"-nodetach", "-nocerts"});
    expectUnknown({"verify", "bare.p7s"}, "name it with --signer-cert");
    EXPECT_EQ(place_.cli({"verify", "bare.p7s", "--signer-cert", "a.pem"}).exit, 0);
    expectUnknown({"verify", "bare.p7s", "--signer-cert", "ca.pem"}, "--signer-cert is not");
}

TEST_F(VerifyUnknown, OfABatchTheGravestCodeIsTheOneOfTheCall) {
    std::string octets = messageOf("a");
    octets[octets.find("The report.")] = 'X';
    place_.folder().write("changed.p7s", octets);
    place_.sign("bare.p7s", {"a"}, {"-nodetach", "-nocerts"});
    const std::vector<std::pair<std::string, int>> fromTheGravest{
        {"changed.p7s", 1}, {"bare.p7s", 4}, {"missing.p7s", 3}, {"made.p7s", 8}};
    for (std::size_t i = 0; i < fromTheGravest.size(); ++i) {
        const auto& [graver, code] = fromTheGravest[i];
        for (std::size_t k = i; k < fromTheGravest.size(); ++k) {
            const std::string& other = fromTheGravest[k].first;
            EXPECT_EQ(place_.cli({"verify", "--chain", graver, other}).exit, code) << graver << ' ' << other;
            EXPECT_EQ(place_.cli({"verify", "--chain", other, graver}).exit, code) << other << ' ' << graver;
        }
    }
}

TEST_F(VerifyUnknown, AMissingCertificateDoesNotHideAForgedSigner) {
    place_.makeIdentity("b");
    place_.sign("a.p7s", {"a"});
    place_.openssl().must({"cms", "-resign", "-inform", "DER", "-in", "a.p7s", "-signer", "b.pem", "-inkey", "b.key",
                           "-nocerts", "-outform", "DER", "-out", "ab.p7s"});
    const Json document = place_.json({"verify", "ab.p7s"});
    EXPECT_EQ(document["valid"], nullptr) << document;
    EXPECT_EQ(place_.cli({"verify", "ab.p7s", "--require", "any"}).exit, 0);
    EXPECT_EQ(place_.cli({"verify", "ab.p7s", "--require", "2"}).exit, 4);
    EXPECT_EQ(place_.cli({"verify", "ab.p7s", "--require", place_.thumbprint("b")}).exit, 4) << "it may be that one";
    std::string octets = place_.folder().read("ab.p7s");
    octets[octets.find("The report.")] = 'X';
    place_.folder().write("changed.p7s", octets);
    EXPECT_EQ(place_.cli({"verify", "changed.p7s"}).exit, 1);
}

TEST_F(VerifyUnknown, NoServiceIsNoVerdict) {
    place_.sign("a.p7s", {"a"});
    expectUnknown({"verify", "a.p7s", "--service", "/nowhere/lib.so"}, "no CryptoAPI service");
}

TEST_F(VerifyUnknown, AServiceThatIsNoneIsNoVerdict) {
    place_.sign("a.p7s", {"a"});
    place_.folder().write("broken.so", "not a library");
    const Json document = place_.json({"verify", "a.p7s", "--service", place_.folder() / "broken.so"});
    EXPECT_EQ(document["valid"], nullptr) << document;
    EXPECT_EQ(document["verdict"], "unknown");
}

TEST_F(VerifyUnknown, CertificatesAloneAreNotASignature) {
    place_.openssl().must({"crl2pkcs7", "-nocrl", "-certfile", "ca.pem", "-outform", "DER", "-out", "certs.p7b"});
    expectUnknown({"verify", "certs.p7b", "--content", "report.txt"}, "carries no signature");
}

TEST_F(VerifyUnknown, AnAlgorithmThatTheServiceDoesNotKnow) {
    // The digest's identifier is exchanged for one of the same arc that nobody has assigned.
    std::string octets = messageOf("a");
    const std::string known("\x2A\x85\x03\x07\x01\x01\x02\x02", 8);
    for (auto at = octets.find(known); at != std::string::npos; at = octets.find(known, at)) {
        octets[at + known.size() - 1] = '\x7F';
    }
    place_.folder().write("other.p7s", octets);
    expectUnknown({"verify", "other.p7s"}, "algorithm");
}

TEST_F(VerifyUnknown, AMessageOfDsa) {
    place_.openssl().must({"genpkey", "-genparam", "-algorithm", "DSA", "-pkeyopt", "dsa_paramgen_bits:1024",
                           "-pkeyopt", "dsa_paramgen_q_bits:160", "-out", "dsa.params"});
    place_.makeIdentity("dsa", "dsa:dsa.params");
    place_.sign("dsa.p7s", {"dsa"});
    expectUnknown({"verify", "dsa.p7s"}, "algorithm that the service does not know");
}

// The mathematics hold, but the encoding is not the one that DER allows: anybody can make such another message.
TEST_F(VerifyUnknown, AnEcdsaValueThatIsPaddedIsNamedForThat) {
    place_.makeIdentity("ec", "ec", {"-pkeyopt", "ec_paramgen_curve:P-256"});
    place_.sign("ec.p7s", {"ec"});
    const Parts parts(place_.folder().read("ec.p7s"));
    std::vector<std::string> members = Parts::children(Parts::content(parts.signer));
    const std::string value = Parts::content(members.back());
    members.pop_back();
    const std::vector<std::string> numbers = Parts::children(Parts::content(value));
    const std::string r = element(0x02, std::string(1, '\0') + Parts::content(numbers[0]));
    const std::string s = element(0x02, std::string(1, '\0') + Parts::content(numbers[1]));
    const auto verify = [&](const std::string& padded) {
        std::string signer;
        for (const std::string& member : members) {
            signer += member;
        }
        signer = element(0x30, signer + element(0x04, padded));
        place_.folder().write("padded.p7s", parts.message(parts.certificates, signer));
        return place_.cli({"verify", "padded.p7s"});
    };
    EXPECT_EQ(verify(value).exit, 0);
    const std::vector<std::string> paddedValues{element(0x30, r + numbers[1]), element(0x30, numbers[0] + s),
                                                value + '\0', value + value};
    for (const std::string& padded : paddedValues) {
        const Outcome outcome = verify(padded);
        EXPECT_EQ(outcome.exit, 1) << outcome.out << outcome.err;
        EXPECT_THAT(outcome.out, HasSubstr("malformed"));
    }
}

TEST_F(VerifyUnknown, ALineEndAfterTheMessageIsNamed) {
    place_.sign("a.p7s", {"a"});
    place_.sign("ber.p7s", {"a"}, {"-nodetach", "-stream"});
    for (const char* file : {"a.p7s", "ber.p7s"}) {
        for (const char* end : {"\n", "\r\n"}) {
            place_.folder().write("line.p7s", place_.folder().read(file) + end);
            const Outcome outcome = place_.cli({"verify", "line.p7s"});
            EXPECT_EQ(outcome.exit, 0) << file << outcome.out << outcome.err;
            EXPECT_THAT(outcome.out, HasSubstr("a line end after the message"));
        }
    }
}

TEST_F(VerifyUnknown, OtherOctetsAfterTheMessageAreRefusedWithTheirReason) {
    place_.sign("a.p7s", {"a"});
    place_.sign("ber.p7s", {"a"}, {"-nodetach", "-stream"});
    const std::string zeros(2, '\0');
    const std::vector<std::string> tails = {"x", "\n\n", "\r", "\nx", " ", zeros.substr(1), zeros, zeros + "\n"};
    for (std::size_t i = 0; i < 2 * tails.size(); ++i) {
        place_.folder().write("tail.p7s", place_.folder().read(i % 2 == 0 ? "a.p7s" : "ber.p7s") + tails[i / 2]);
        const Outcome outcome = place_.cli({"verify", "tail.p7s", "--extract", "out.txt"});
        EXPECT_EQ(outcome.exit, 3) << outcome.out;
        EXPECT_THAT(outcome.err, HasSubstr("octets follow the message"));
        EXPECT_FALSE(place_.folder().has("out.txt"));
    }
}

} // namespace
} // namespace cli_test
