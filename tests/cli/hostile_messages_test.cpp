// Forged signers beside good ones, and messages made to cost memory or time.

#include "cli/hostile.hpp"
#include "cli/message_parts.hpp"

namespace cli_test {
namespace {

using testing::AnyOf;

class HostileMessage : public HostileSize {
protected:
    /// A message of one signer with an elliptic curve key, made by openssl.
    Parts genuine() {
        files_.write("content", "the content");
        openssl_.must({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout",
                       "key.pem", "-out", "signer.pem", "-subj", "/CN=signer"});
        openssl_.must({"cms", "-sign", "-binary", "-nodetach", "-in", "content", "-signer", "signer.pem", "-inkey",
                       "key.pem", "-outform", "DER", "-out", "message"});
        return Parts(files_.read("message"));
    }

    test_support::Openssl openssl_{files_};
};

/// The SignerInfo with the last octet of its signature value changed.
std::string forged(std::string signer) {
    signer.back() = static_cast<char>(signer.back() ^ 1);
    return signer;
}

TEST_F(HostileMessage, TheGenuineOneIsValid) {
    const Parts parts = genuine();
    EXPECT_EQ(verify("m.p7s", parts.message(parts.certificates, parts.signer)).exit, 0);
}

TEST_F(HostileMessage, AForgedSignerAfterAGoodOneIsSeen) {
    const Parts parts = genuine();
    EXPECT_EQ(verify("m.p7s", parts.message(parts.certificates, parts.signer + forged(parts.signer))).exit, 1);
}

TEST_F(HostileMessage, ManyForgedSignersAfterAGoodOneAreSeen) {
    const Parts parts = genuine();
    const std::string signers = parts.signer + repeated(forged(parts.signer), 40);
    EXPECT_THAT(verify("m.p7s", parts.message(parts.certificates, signers)).exit, AnyOf(1, 3));
}

// All certificates have one name and one key: the service tries a few and says so (4).
TEST_F(HostileMessage, HundredsOfSignersWithThousandsOfCertificates) {
    const Parts parts = genuine();
    std::string certificates;
    for (int i = 0; i < 4096; ++i) {
        std::string other = parts.certificates;
        other[other.size() - 1] = static_cast<char>(i);
        other[other.size() - 2] = static_cast<char>(i >> 8);
        certificates += other;
    }
    const auto outcome = verify("m.p7s", parts.message(certificates, repeated(forged(parts.signer), 256)));
    EXPECT_THAT(outcome.exit, AnyOf(1, 3, 4));
}

TEST_F(HostileMessage, AnAttributeWithMillionsOfValues) {
    const Parts parts = genuine();
    const std::string type("\x06\x03\x2A\x03\x04", 5);
    const std::string attribute = element(0x30, type + element(0x31, repeated(std::string("\x05\x00", 2), 7900000)));
    const std::string signer = element(0x30, Parts::content(parts.signer) + element(0xA1, attribute));
    EXPECT_EQ(verify("m.p7s", parts.message(parts.certificates, signer)).exit, 4);
}

} // namespace
} // namespace cli_test
