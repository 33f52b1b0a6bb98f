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

    /// order.xml signed with these options.
    [[nodiscard]] Outcome signOrder(const std::vector<std::string>& options, const std::string& out) const {
        std::vector<std::string> words{"sign",     "order.xml", "--cert", "Signer one",
                                       "--format", "xmldsig",   "--out",  out};
        words.insert(words.end(), options.begin(), options.end());
        return place_.cliWithPin(words);
    }

    Workplace place_;
};

TEST_F(VerifyXml, NamesTheSigner) {
    const Outcome checking = place_.cli({"verify", "signed.xml"});
    EXPECT_EQ(checking.exit, 0) << checking.out << checking.err;
    EXPECT_THAT(checking.out, HasSubstr("valid xmldsig signature"));
    EXPECT_THAT(checking.out, HasSubstr("CN=Signer one"));
    EXPECT_THAT(checking.out, HasSubstr("certificate chain\n"));
    EXPECT_EQ(place_.json({"verify", "signed.xml"})["signers"][0]["subject"], "CN=Signer one");
}

TEST_F(VerifyXml, JudgesTheChainWhenAsked) {
    const Outcome before = place_.cli({"verify", "signed.xml", "--chain"});
    EXPECT_EQ(before.exit, 8) << before.out << before.err;
    EXPECT_THAT(before.out, HasSubstr("not trusted"));
    ASSERT_EQ(place_.cli({"certs", "add", "ca.pem", "--store", "root"}).exit, 0);
    const Outcome after = place_.cli({"verify", "signed.xml", "--chain"});
    EXPECT_EQ(after.exit, 0) << after.out << after.err;
}

TEST_F(VerifyXml, AKeyWithoutCertificateIsNotJudged) {
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
    EXPECT_EQ(checking.exit, 4) << checking.out << checking.err;
    EXPECT_THAT(checking.out, HasSubstr("UNKNOWN: "));
    EXPECT_THAT(checking.out, HasSubstr("nothing says whose key it is: the signature carries no certificate"));
    const Json document = place_.json({"verify", "bare.xml"});
    EXPECT_TRUE(document["valid"].is_null());
    EXPECT_EQ(document["verdict"], "unknown");
    EXPECT_TRUE(document["signers"][0]["valid"].is_null());
}

TEST_F(VerifyXml, APartIsValidOnlyWhenAskedAndIsListed) {
    place_.folder().write("template.xml", R"(<order><sum Id="s1">100</sum>
<Signature xmlns="http://www.w3.org/2000/09/xmldsig#"><SignedInfo>
<CanonicalizationMethod Algorithm="http://www.w3.org/TR/2001/REC-xml-c14n-20010315"/>
<SignatureMethod Algorithm="http://www.w3.org/2001/04/xmldsig-more#rsa-sha256"/><Reference URI="#s1">
<DigestMethod Algorithm="http://www.w3.org/2001/04/xmlenc#sha256"/><DigestValue/></Reference></SignedInfo>
<SignatureValue/><KeyInfo><X509Data/></KeyInfo></Signature></order>)");
    const auto& folder = place_.folder();
    place_.openssl().must({"req", "-x509", "-newkey", "rsa:2048", "-noenc", "-keyout", "part.key", "-out", "part.pem",
                           "-subj", "/CN=Part", "-days", "2"});
    const Outcome signing = test_support::run({"xmlsec1", "--sign", "--id-attr:Id", "sum", "--privkey-pem",
                                               (folder / "part.key") + "," + (folder / "part.pem"), "--output",
                                               folder / "part.xml", folder / "template.xml"});
    ASSERT_EQ(signing.exit, 0) << signing.err;
    const Outcome refused = place_.cli({"verify", "part.xml"});
    EXPECT_EQ(refused.exit, 1) << refused.out << refused.err;
    EXPECT_THAT(refused.out, HasSubstr("covers only a part of the document"));
    const Outcome taken = place_.cli({"verify", "part.xml", "--allow-partial"});
    EXPECT_EQ(taken.exit, 0) << taken.out << taken.err;
    EXPECT_THAT(taken.out, HasSubstr("the signer's certificate (not signed)"));
    EXPECT_THAT(taken.out, HasSubstr("covered      /order/sum[1] (Id s1)"));
    EXPECT_THAT(taken.out, HasSubstr("the rest of the document (not signed)"));
}

TEST_F(VerifyXml, ShowsTheSigningTimeAndThatTheCertificateIsProtected) {
    const Outcome checking = place_.cli({"verify", "signed.xml"});
    EXPECT_THAT(checking.out, testing::Not(HasSubstr("(not signed)")));
    EXPECT_THAT(checking.out, HasSubstr("(the signer's own statement)"));
    EXPECT_THAT(checking.out, HasSubstr("covered      the whole document\n"));
    const Json document = place_.json({"verify", "signed.xml"});
    EXPECT_EQ(document["covered"], Json::array({"/"}));
    EXPECT_EQ(document["not_checked"], Json::array({"certificate chain"}));
    EXPECT_THAT(document["signers"][0]["signing_time"].get<std::string>(), testing::MatchesRegex("20.*Z"));
}

TEST_F(VerifyXml, SaysThatACertificateWithoutPropertiesIsNotProtected) {
    const Outcome signing = place_.cliWithPin({"sign", "order.xml", "--cert", "Signer one", "--format", "xmldsig",
                                               "--no-signing-certificate", "--out", "plain.xml"});
    ASSERT_EQ(signing.exit, 0) << signing.err;
    EXPECT_THAT(place_.folder().read("plain.xml"), testing::Not(HasSubstr("01903")));
    const Outcome checking = place_.cli({"verify", "plain.xml"});
    EXPECT_EQ(checking.exit, 0) << checking.out;
    EXPECT_THAT(checking.out, HasSubstr("the signer's certificate (not signed)"));
}

TEST_F(VerifyXml, ReadsUtf16) {
    std::string wide = "\xFF\xFE";
    for (const char c : std::string("<order><sum>100</sum></order>")) {
        wide += {c, '\0'};
    }
    place_.folder().write("wide.xml", wide);
    const Outcome signing = place_.cliWithPin(
        {"sign", "wide.xml", "--cert", "Signer one", "--format", "xmldsig", "--out", "wide.signed.xml"});
    ASSERT_EQ(signing.exit, 0) << signing.err;
    EXPECT_EQ(place_.folder().read("wide.signed.xml").substr(0, 3), std::string("\xFF\xFE<"));
    const Outcome checking = place_.cli({"verify", "wide.signed.xml"});
    EXPECT_EQ(checking.exit, 0) << checking.out << checking.err;
    EXPECT_EQ(place_.cli({"verify", "wide.xml"}).exit, 1) << "no signature";
    const std::string blanks("\n\0 \0", 4);
    place_.folder().write("wide.signed.xml", place_.folder().read("wide.signed.xml").insert(2, blanks));
    const Outcome afterBlanks = place_.cli({"verify", "wide.signed.xml"});
    EXPECT_THAT(afterBlanks.out + afterBlanks.err, HasSubstr("XML")) << "recognised";
    EXPECT_THAT(afterBlanks.err, testing::Not(HasSubstr("CMS"))) << "recognised";
}

TEST_F(VerifyXml, RecognisesUtf16WithoutByteOrderMark) {
    const auto wide = [](const std::string& text, bool bigEndian) {
        std::string octets;
        for (const char c : text) {
            octets += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
        }
        return octets;
    };
    for (const bool bigEndian : {false, true}) {
        place_.folder().write("own.xml", wide("<?xml version='1.0' encoding='UTF-16'?><a>100</a>", bigEndian));
        const Outcome signing = place_.cliWithPin(
            {"sign", "own.xml", "--cert", "Signer one", "--format", "xmldsig", "--out", "own.sgn", "--force"});
        ASSERT_EQ(signing.exit, 0) << signing.err;
        EXPECT_EQ(place_.cli({"verify", "own.sgn"}).exit, 0);
        EXPECT_EQ(place_.cli({"verify", "own.xml"}).exit, 1) << "no signature";
        place_.folder().write("odd.xml", wide("<a>100</a>", bigEndian));
        const Outcome checking = place_.cli({"verify", "odd.xml"});
        const Outcome refused =
            place_.cliWithPin({"sign", "odd.xml", "--cert", "Signer one", "--format", "xmldsig", "--out", "odd.sgn"});
        for (const Outcome* outcome : {&checking, &refused}) {
            EXPECT_EQ(outcome->exit, 3) << outcome->out;
            EXPECT_THAT(outcome->err, HasSubstr("neither a byte order mark nor a declaration of its encoding"));
        }
    }
}

TEST_F(VerifyXml, TakesTheSignersCertificateFromTheUser) {
    const Outcome given = place_.cli({"verify", "signed.xml", "--signer-cert", "one.pem"});
    EXPECT_EQ(given.exit, 0) << given.out << given.err;
    EXPECT_THAT(given.out, HasSubstr("CN=Signer one"));
    std::string text = place_.folder().read("signed.xml");
    const auto keyInfo = text.find("<KeyInfo");
    text.erase(keyInfo, text.find("</KeyInfo>") + 10 - keyInfo);
    place_.folder().write("without.xml", text);
    EXPECT_EQ(place_.cli({"verify", "without.xml"}).exit, 4);
    const Outcome outside = place_.cli({"verify", "without.xml", "--signer-cert", "one.pem"});
    EXPECT_EQ(outside.exit, 0) << outside.out << outside.err;
    EXPECT_THAT(outside.out, HasSubstr("CN=Signer one"));
    const Outcome other = place_.cli({"verify", "without.xml", "--signer-cert", "ca.pem"});
    EXPECT_EQ(other.exit, 1) << other.out;
    const Outcome notHis = place_.cli({"verify", "signed.xml", "--signer-cert", "ca.pem"});
    EXPECT_EQ(notHis.exit, 4) << notHis.out;
    EXPECT_THAT(notHis.out, HasSubstr("is not that of a signer"));
    EXPECT_EQ(place_.cli({"verify", "signed.xml", "--signer-cert", "order.xml"}).exit, 3);
}

TEST_F(VerifyXml, WhatIsNotOneDocumentIsAnInputError) {
    const std::string text = place_.folder().read("signed.xml");
    const std::pair<const char*, std::string> rows[] = {
        {"document type declaration", "<!DOCTYPE order><order/>"},
        {"zero octet", text + '\0' + "<order/>"},
        {"not a well-formed", "<order>&unknown;</order>"},
        {"levels of elements",
         [] {
             std::string deep;
             for (int i = 0; i < 60000; ++i) {
                 deep += "<a>";
             }
             return deep;
         }()},
    };
    for (const auto& [reason, document] : rows) {
        place_.folder().write("odd.xml", document);
        const Outcome checking = place_.cli({"verify", "odd.xml"});
        EXPECT_EQ(checking.exit, 3) << reason << checking.out;
        EXPECT_THAT(checking.err, HasSubstr(reason));
        const Outcome signing = place_.cliWithPin(
            {"sign", "odd.xml", "--cert", "Signer one", "--format", "xmldsig", "--out", "odd.signed.xml"});
        EXPECT_EQ(signing.exit, 3) << reason << signing.err;
    }
}

TEST_F(VerifyXml, NoOctetOfADocumentReachesTheTerminal) {
    const std::string bell = "\xC2\x9B";
    place_.folder().write("odd.xml", "<a" + bell + "31m></b>\x1B[31m");
    const Outcome checking = place_.cli({"verify", "odd.xml", "--format", "xmldsig"});
    EXPECT_EQ(checking.exit, 3);
    EXPECT_EQ((checking.out + checking.err).find_first_of("\x1B\xC2\x9B"), std::string::npos);
}

TEST_F(VerifyXml, SigningTwiceAndSignedAttributesAreRefused) {
    const Outcome twice =
        place_.cliWithPin({"sign", "signed.xml", "--cert", "Signer one", "--format", "xmldsig", "--out", "twice.xml"});
    EXPECT_EQ(twice.exit, 3) << twice.err;
    EXPECT_THAT(twice.err, HasSubstr("already signed"));
    const std::string time = "1.2.840.113549.1.9.5=UTCTime:1700000000";
    const std::string other = "1.2.3.4=UTF8String:text";
    const std::vector<std::string> refusals[] = {{"--attribute", other},
                                                 {"--attribute", time, "--attribute", other},
                                                 {"--attribute", time, "--attribute", time},
                                                 {"--attribute", time, "--no-signing-certificate"}};
    for (const std::vector<std::string>& options : refusals) {
        const Outcome refused = signOrder(options, "attributes.xml");
        EXPECT_EQ(refused.exit, 2) << refused.err;
        EXPECT_THAT(refused.err, HasSubstr("cannot use --attribute"));
    }
    EXPECT_EQ(signOrder({"--attribute", "1.2.840.113549.1.9.5=UTCTime:yesterday"}, "attributes.xml").exit, 2);
    EXPECT_FALSE(place_.folder().has("attributes.xml"));
}

TEST_F(VerifyXml, SigningTimeIsTheOneThatIsAskedFor) {
    for (const char* const text : {"1700000000", "2023-11-14T22:13:20Z"}) {
        const Outcome signing =
            signOrder({"--attribute", std::string("1.2.840.113549.1.9.5=UTCTime:") + text, "--force"}, "timed.xml");
        ASSERT_EQ(signing.exit, 0) << signing.err;
        const Json verdict = place_.json({"verify", "timed.xml"});
        EXPECT_EQ(verdict["valid"], true);
        EXPECT_EQ(verdict["signers"][0]["signing_time"], "2023-11-14T22:13:20Z");
    }
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
    for (const char* option : {"--content", "--extract"}) {
        const Outcome checking = place_.cli({"verify", "signed.xml", option, "one.pem"});
        EXPECT_EQ(checking.exit, 2) << option;
        EXPECT_THAT(checking.err, HasSubstr(option));
    }
}

} // namespace
} // namespace cli_test
