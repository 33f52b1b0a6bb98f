#include "cli/pki.hpp"
#include "cli/workplace.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::HasSubstr;

/// Documents that openssl signs, with whatever certificate; "root" is trusted.
class SignerUsage : public testing::Test {
protected:
    SignerUsage() : pki_(place_.folder(), place_.openssl()) {
        pki_.root("root");
        EXPECT_EQ(place_.cli({"certs", "add", "root.pem", "--store", "root"}).exit, 0);
    }

    void sign(const std::string& name) const {
        place_.openssl().must({"cms", "-sign", "-binary", "-in", "report.txt", "-signer", name + ".pem", "-inkey",
                               name + ".key", "-outform", "DER", "-out", name + ".sig"});
    }

    void signer(const std::string& name, const std::vector<std::string>& extensions) const {
        pki_.issue(name, "root", serial_++, extensions);
        sign(name);
    }

    [[nodiscard]] Outcome verify(const std::string& name, std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {"verify", name + ".sig", "--content", "report.txt", "--chain"});
        return place_.cli(options);
    }

    Workplace place_;
    test_support::Pki pki_;

private:
    mutable int serial_ = 16;
};

TEST_F(SignerUsage, AcceptsCertificatesForDocuments) {
    const std::vector<std::vector<std::string>> fit{
        {"keyUsage=digitalSignature"},
        {"keyUsage=nonRepudiation"},
        {"subjectKeyIdentifier=hash"},
        {"extendedKeyUsage=emailProtection"},
        {"extendedKeyUsage=clientAuth,emailProtection"},
        {"extendedKeyUsage=1.3.6.1.5.5.7.3.36"},
        {"extendedKeyUsage=1.3.6.1.4.1.311.10.3.12"},
        {"extendedKeyUsage=1.2.840.113583.1.1.5"},
        {"extendedKeyUsage=anyExtendedKeyUsage"},
    };
    for (const auto& extensions : fit) {
        signer("fit", extensions);
        const Outcome result = verify("fit");
        EXPECT_EQ(result.exit, 0) << extensions.front() << result.out << result.err;
    }
}

TEST_F(SignerUsage, RefusesOtherCertificatesUnlessTheirUsageIsNamed) {
    struct Case {
        std::string extension;
        std::string usage; ///< with which it is accepted
        std::string why;
    };
    const std::vector<Case> unfit{
        {"extendedKeyUsage=serverAuth", "server-auth", "TLS server authentication"},
        {"extendedKeyUsage=clientAuth", "client-auth", "TLS client authentication"},
        {"extendedKeyUsage=codeSigning", "code-signing", "code signing"},
        {"extendedKeyUsage=OCSPSigning", "ocsp-signing", "OCSP signing"},
        {"extendedKeyUsage=1.2.3.4", "1.2.3.4", "1.2.3.4"},
        {"keyUsage=keyEncipherment", "server-auth", "its key is for keyEncipherment, not for signatures"},
        {"keyUsage=keyAgreement", "server-auth", "its key is for keyAgreement, not for signatures"},
        {"basicConstraints=critical,CA:TRUE", "any", "the certificate of an authority"},
    };
    for (const Case& one : unfit) {
        signer("unfit", {one.extension});
        const Outcome refused = verify("unfit");
        EXPECT_EQ(refused.exit, 8) << one.extension << refused.out << refused.err;
        EXPECT_THAT(refused.out, HasSubstr(one.why)) << one.extension;
        EXPECT_EQ(verify("unfit", {"--usage", one.usage}).exit, 0) << one.extension;
        EXPECT_EQ(verify("unfit", {"--usage", "time-stamping"}).exit, 8) << one.extension;
    }
}

TEST_F(SignerUsage, RefusesCertificatesForTimeStampsAlone) {
    signer("tsa", {"extendedKeyUsage=critical,timeStamping"});
    const Outcome refused = verify("tsa");
    EXPECT_EQ(refused.exit, 8) << refused.out << refused.err;
    EXPECT_THAT(refused.out, HasSubstr("time-stamping"));
    EXPECT_EQ(verify("tsa", {"--usage", "time-stamping"}).exit, 0);
}

TEST_F(SignerUsage, RefusesAKeyUsageThatCannotBeRead) {
    signer("odd", {"2.5.29.15=DER:0403010203"});
    const Outcome refused = verify("odd");
    EXPECT_EQ(refused.exit, 8) << refused.out << refused.err;
    EXPECT_THAT(refused.out, HasSubstr("its key usage allows nothing that can be read"));
}

TEST_F(SignerUsage, RefusesAnExtendedUsageThatCannotBeRead) {
    signer("odd", {"2.5.29.37=DER:0403010203"});
    const Outcome refused = verify("odd");
    EXPECT_EQ(refused.exit, 8) << refused.out << refused.err;
    EXPECT_THAT(refused.out, HasSubstr("its extended key usage cannot be read"));
    EXPECT_EQ(place_.cli({"certs", "add", "odd.pem"}).exit, 0);
    const auto listed = place_.json({"certs", "list"});
    EXPECT_TRUE(listed["certificates"][0]["enhanced_key_usage"].is_null()) << listed;
}

TEST_F(SignerUsage, IsLimitedByTheIssuers) {
    pki_.issue(
        "servers", "root", 2,
        {"basicConstraints=critical,CA:TRUE", "keyUsage=critical,keyCertSign,cRLSign", "extendedKeyUsage=serverAuth"});
    pki_.issue("end", "servers", 3);
    sign("end");
    const Outcome refused = verify("end", {"--with", "servers.pem"});
    EXPECT_EQ(refused.exit, 8) << refused.out;
    EXPECT_THAT(refused.out, HasSubstr("is not for this usage"));
    EXPECT_EQ(verify("end", {"--with", "servers.pem", "--usage", "server-auth"}).exit, 0);
}

TEST_F(SignerUsage, IsRevokedByAListThatIsBrought) {
    signer("one", {"keyUsage=digitalSignature"}); // serial number 0x10
    pki_.list("root", {});
    const Outcome good = verify("one", {"--with", "root.crl"});
    EXPECT_EQ(good.exit, 0) << good.out;
    EXPECT_THAT(good.out, HasSubstr("revocation"));
    EXPECT_THAT(good.out, HasSubstr("good"));
    EXPECT_EQ(verify("one", {"--require-revocation"}).exit, 8);
    pki_.list("root", {"10"});
    const Outcome revoked = verify("one", {"--with", "root.crl"});
    EXPECT_EQ(revoked.exit, 8) << revoked.out;
    EXPECT_THAT(revoked.out, HasSubstr("revoked since 2026-01-02T03:04:05Z"));
}

TEST_F(SignerUsage, ChainsThroughTheCertificatesOfTheMessage) {
    pki_.authority("mid", "root", 2);
    pki_.issue("end", "mid", 3);
    sign("end");
    EXPECT_EQ(verify("end").exit, 8) << "nobody brings the issuer";
    place_.openssl().must({"cms", "-sign", "-binary", "-in", "report.txt", "-signer", "end.pem", "-inkey", "end.key",
                           "-certfile", "mid.pem", "-outform", "DER", "-out", "end.sig"});
    const Outcome result = verify("end");
    EXPECT_EQ(result.exit, 0) << result.out << result.err;
}

TEST_F(SignerUsage, WarnsThatASigningTimeIsTheSignersOwnStatement) {
    signer("one", {"keyUsage=digitalSignature"});
    const Outcome result = verify("one", {"--at", "signing"});
    EXPECT_EQ(result.exit, 0) << result.out;
    EXPECT_THAT(result.err, HasSubstr("own statement"));
}

} // namespace
} // namespace cli_test
