// Signed XML documents.

#include "cli/workplace.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::HasSubstr;

class VerifyXml : public testing::Test {
protected:
    VerifyXml() {
        place_.makeSigner("one");
        place_.folder().write("order.xml", "<order><sum>100</sum></order>");
        const Outcome signing = place_.cliWithPin(
            {"sign", "order.xml", "--cert", "Signer one", "--format", "xmldsig", "--out", "signed.xml"});
        EXPECT_EQ(signing.exit, 0) << signing.err;
    }

    Workplace place_;
};

TEST_F(VerifyXml, NamesTheSigner) {
    const Outcome checking = place_.cli({"verify", "signed.xml"});
    EXPECT_EQ(checking.exit, 0) << checking.out << checking.err;
    EXPECT_THAT(checking.out, HasSubstr("valid xmldsig signature"));
    EXPECT_THAT(checking.out, HasSubstr("CN=Signer one"));
    EXPECT_THAT(checking.out, HasSubstr("not checked  certificate chain"));
    EXPECT_EQ(place_.json({"verify", "signed.xml"})["signers"][0]["subject"], "CN=Signer one");
}

TEST_F(VerifyXml, JudgesTheChainWhenAsked) {
    const Outcome before = place_.cli({"verify", "signed.xml", "--chain"});
    EXPECT_EQ(before.exit, 8) << before.out << before.err;
    EXPECT_THAT(before.out, HasSubstr("CERT_TRUST_"));
    ASSERT_EQ(place_.cli({"certs", "add", "ca.pem", "--store", "root"}).exit, 0);
    const Outcome after = place_.cli({"verify", "signed.xml", "--chain"});
    EXPECT_EQ(after.exit, 0) << after.out << after.err;
}

TEST_F(VerifyXml, AKeyWithoutCertificateIsNobodysAndHasNoChain) {
    place_.openssl().must({"genrsa", "-out", "bare.key", "2048"});
    place_.folder().write("template.xml", R"(<order><sum>100</sum><Signature xmlns="http://www.w3.org/2000/09/xmldsig#">
<SignedInfo><CanonicalizationMethod Algorithm="http://www.w3.org/TR/2001/REC-xml-c14n-20010315"/>
<SignatureMethod Algorithm="http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"/><Reference URI=""><Transforms>
<Transform Algorithm="http://www.w3.org/2000/09/xmldsig#enveloped-signature"/></Transforms>
<DigestMethod Algorithm="http://www.w3.org/2001/04/xmlenc#sha256"/><DigestValue/></Reference></SignedInfo>
<SignatureValue/><KeyInfo><KeyValue/></KeyInfo></Signature></order>)");
    const auto& folder = place_.folder();
    const Outcome signing = test_support::run({"xmlsec1", "--sign", "--privkey-pem", folder / "bare.key", "--output",
                                               folder / "bare.xml", folder / "template.xml"});
    ASSERT_EQ(signing.exit, 0) << signing.err;
    const Outcome checking = place_.cli({"verify", "bare.xml"});
    EXPECT_EQ(checking.exit, 0) << checking.out << checking.err;
    EXPECT_THAT(checking.out, HasSubstr("signer       unknown"));
    EXPECT_EQ(place_.cli({"verify", "bare.xml", "--chain"}).exit, 8);
}

TEST_F(VerifyXml, TellsWhyADocumentIsRefused) {
    std::string changed = place_.folder().read("signed.xml");
    changed.replace(changed.find("100"), 3, "999");
    place_.folder().write("changed.xml", changed);
    const Outcome refused = place_.cli({"verify", "changed.xml"});
    EXPECT_EQ(refused.exit, 1);
    EXPECT_THAT(refused.out, HasSubstr("has been changed"));
    const Outcome unsignedOne = place_.cli({"verify", "order.xml"});
    EXPECT_EQ(unsignedOne.exit, 1);
    EXPECT_THAT(unsignedOne.out, HasSubstr("carries no signature"));
}

TEST_F(VerifyXml, TakesNoOptionsOfMessages) {
    for (const char* option : {"--content", "--extract", "--signer-cert"}) {
        const Outcome checking = place_.cli({"verify", "signed.xml", option, "one.pem"});
        EXPECT_EQ(checking.exit, 2) << option;
        EXPECT_THAT(checking.err, HasSubstr(option));
    }
}

} // namespace
} // namespace cli_test
