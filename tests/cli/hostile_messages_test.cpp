// Forged signers beside good ones, and messages made to cost memory or time.

#include "cli/hostile.hpp"
#include "cli/message_parts.hpp"
#include "support/servers/pki.hpp"

#include <openssl/cms.h>

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

/// A message of many signers whose certificates lead to a long chain by several ways, with keys that are slow to use.
std::string messageOfSlowChains(int signers) {
    using namespace test_servers;
    const std::vector<std::pair<int, std::string>> authority{{NID_basic_constraints, "critical,CA:TRUE"}};
    const auto slow = KeyKind::gost2012_512;
    Identity issuer{{}, makeKey(slow)};
    std::vector<Certificate> certificates{makeCertificate({"Top", 1, -1, 365, authority}, issuer.key, nullptr, slow)};
    for (int level = 1; level < 60; ++level) {
        issuer.certificate = certificates.back();
        const std::string name = "Level " + std::to_string(level);
        certificates.push_back(makeCertificate({name, level, -1, 365, authority}, issuer.key, &issuer, slow));
    }
    issuer.certificate = certificates.back();
    for (long variant = 0; variant < 8; ++variant) {
        certificates.push_back(
            makeCertificate({"Variant", 100 + variant, -1, 365, authority}, issuer.key, &issuer, slow));
    }
    issuer.certificate = certificates.back();
    const Owned<BIO, BIO_free_all> content(BIO_new_mem_buf("x", 1));
    const Owned<CMS_ContentInfo, CMS_ContentInfo_free> message(
        CMS_sign(nullptr, nullptr, nullptr, nullptr, CMS_PARTIAL | CMS_BINARY));
    const Key key = makeKey(KeyKind::ec);
    for (int i = 0; i < signers; ++i) {
        const Certificate own = makeCertificate({"Signer", i + 1}, key, &issuer, slow);
        require(CMS_add1_signer(message.get(), own.get(), key.get(), nullptr, CMS_BINARY) != nullptr, "signer");
    }
    for (const Certificate& certificate : certificates) {
        require(CMS_add1_cert(message.get(), certificate.get()) == 1, "certificate");
    }
    require(CMS_final(message.get(), content.get(), nullptr, CMS_BINARY) == 1, "message");
    return toDer(message.get(), i2d_CMS_ContentInfo);
}

// Each chain is within the service's limits, all together would take more than half a minute.
TEST_F(HostileMessage, ManySignersWithSlowChainsShareTheTimeOfOneDocument) {
    const std::string message = messageOfSlowChains(120);
    EXPECT_EQ(verify("m.p7s", message).exit, 0);
    const Outcome outcome = verify("m.p7s", message, {"--chain", "--offline"}, 20);
    EXPECT_EQ(outcome.exit, 8) << outcome.err;
    EXPECT_THAT(outcome.out, testing::HasSubstr("not trusted"));
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
