// Time-stamps on signed XML documents: put there, judged, and damaged.

#include "cli/workplace.hpp"
#include "support/servers/authority.hpp"

#include <gmock/gmock.h>

#include <set>
#include <sstream>
#include <utility>

namespace cli_test {
namespace {

using test_servers::Authority;
using test_servers::KeyKind;
using testing::HasSubstr;

/// What stands between two texts, of which the second may be anywhere after the first.
std::string between(const std::string& text, const std::string& before, const std::string& after) {
    const auto begin = text.find(before) + before.size();
    return text.substr(begin, text.find(after, begin) - begin);
}

class XmlTimestamp : public testing::Test {
protected:
    XmlTimestamp() {
        place_.makeSigner("one");
        place_.folder().write("root.pem", authority_.rootPem());
        place_.folder().write("issuer.pem", authority_.issuerPem());
        place_.folder().write("order.xml", "<?xml version=\"1.0\"?>\n<order><sum>100</sum></order>\n");
        const Outcome signing = place_.cliWithPin(
            {"sign", "order.xml", "--cert", "Signer one", "--format", "xmldsig", "--out", "signed.xml"});
        EXPECT_EQ(signing.exit, 0) << signing.err;
    }

    [[nodiscard]] Outcome stamp(const std::vector<std::string>& paths, const std::string& out = "stamped.xml") const {
        std::vector<std::string> words{"timestamp", "signed.xml", "--out", out};
        for (const std::string& path : paths) {
            words.insert(words.end(), {"--url", authority_.url(path)});
        }
        return place_.cli(words);
    }

    [[nodiscard]] Json verify(std::vector<std::string> more = {}, const std::string& file = "stamped.xml") const {
        more.insert(more.begin(), {"verify", file});
        return place_.json(more);
    }

    /// The stamped document with another text in the place of the token's Base64.
    [[nodiscard]] std::string withToken(const std::string& text) const {
        std::string document = place_.folder().read("stamped.xml");
        const std::string own = tokenText();
        return document.replace(document.find(own), own.size(), text);
    }

    [[nodiscard]] std::string tokenText() const {
        return between(place_.folder().read("stamped.xml"), "<xades:EncapsulatedTimeStamp>",
                       "</xades:EncapsulatedTimeStamp>");
    }

    Workplace place_;
    Authority authority_{KeyKind::gost2012_256};
};

TEST_F(XmlTimestamp, IsForTheCanonicalSignatureValueAndOpensslAcceptsIt) {
    const Outcome made = stamp({"/tsa"});
    ASSERT_EQ(made.exit, 0) << made.err;
    const std::string text = place_.folder().read("stamped.xml");
    place_.folder().write("token.txt", tokenText());
    place_.openssl().must({"base64", "-d", "-A", "-in", "token.txt", "-out", "token.der"});
    // The exclusive canonical form of an element without attributes whose namespace is the default one.
    place_.folder().write("value.bin", "<SignatureValue xmlns=\"http://www.w3.org/2000/09/xmldsig#\">" +
                                           between(text, "<SignatureValue>", "</SignatureValue>") +
                                           "</SignatureValue>");
    const Outcome accepted = place_.openssl().run({"ts", "-verify", "-token_in", "-in", "token.der", "-data",
                                                   "value.bin", "-CAfile", "root.pem", "-untrusted", "issuer.pem"});
    EXPECT_EQ(accepted.exit, 0) << accepted.err;
    const Json verdict = verify();
    EXPECT_EQ(verdict["valid"], true) << verdict;
    EXPECT_EQ(verdict["timestamp"]["valid"], true) << verdict;
    EXPECT_EQ(verdict["timestamp"]["authority"], "CN=Time-stamp authority");
    EXPECT_EQ(verdict["signers"][0]["timestamps"].size(), 1U);
    EXPECT_EQ(verdict["not_checked"],
              Json::array({"certificate chain", "certificate chain of the time-stamp authority"}));
}

TEST_F(XmlTimestamp, OfATrustedAuthorityGivesTheTimeOfTheSignersChain) {
    ASSERT_EQ(stamp({"/tsa"}).exit, 0);
    const std::vector<std::string> chain{"--chain",  "--anchor", "ca.pem",    "--anchor",
                                         "root.pem", "--with",   "issuer.pem"};
    const Json verdict = verify(chain);
    EXPECT_EQ(verdict["timestamp"]["chain"]["trusted"], true) << verdict;
    EXPECT_EQ(verdict["chain"]["trusted"], true) << verdict;
    EXPECT_EQ(verdict["signers"][0]["chain_time"], verdict["timestamp"]["time"]);
    EXPECT_EQ(verdict["not_checked"], Json::array());
}

TEST_F(XmlTimestamp, ComesFromTheFirstAuthorityThatGivesOne) {
    EXPECT_EQ(stamp({"/tsa?500", "/tsa?other-imprint", "/tsa"}).exit, 0);
    EXPECT_EQ(verify()["timestamp"]["valid"], true);
    for (const char* word : {"/tsa?rejected", "/tsa?other-nonce", "/tsa?other-imprint", "/tsa?usage-not-critical"}) {
        EXPECT_EQ(stamp({word}, "none.xml").exit, 7) << word;
        EXPECT_FALSE(place_.folder().has("none.xml")) << word;
    }
}

TEST_F(XmlTimestamp, IsAddedWhenADocumentIsSigned) {
    const Outcome signing =
        place_.cliWithPin({"sign", "order.xml", "--cert", "Signer one", "--format", "xmldsig", "--timestamp",
                           authority_.url("/tsa"), "--no-signing-certificate", "--out", "stamped.xml"});
    ASSERT_EQ(signing.exit, 0) << signing.err;
    const Json verdict = verify();
    EXPECT_EQ(verdict["valid"], true) << verdict;
    EXPECT_EQ(verdict["timestamp"]["valid"], true) << verdict;
}

TEST_F(XmlTimestamp, OnAnotherSignatureIsNotValid) {
    ASSERT_EQ(stamp({"/tsa"}).exit, 0);
    const Outcome again =
        place_.cliWithPin({"sign", "order.xml", "--cert", "Signer one", "--format", "xmldsig", "--out", "other.xml"});
    ASSERT_EQ(again.exit, 0) << again.err;
    std::string other = place_.folder().read("other.xml");
    const std::string properties =
        "<xades:UnsignedProperties>" +
        between(place_.folder().read("stamped.xml"), "<xades:UnsignedProperties>", "</xades:UnsignedProperties>") +
        "</xades:UnsignedProperties>";
    place_.folder().write("moved.xml", other.insert(other.find("</xades:QualifyingProperties>"), properties));
    const Json verdict = verify({}, "moved.xml");
    EXPECT_EQ(verdict["valid"], true) << "anybody can add a time-stamp";
    EXPECT_EQ(verdict["timestamp"]["valid"], false) << verdict;
    EXPECT_EQ(place_.cli({"verify", "moved.xml", "--strict"}).exit, 1);
}

TEST_F(XmlTimestamp, ThatIsDamagedIsNamed) {
    ASSERT_EQ(stamp({"/tsa"}).exit, 0);
    const std::string token = tokenText();
    std::vector<std::string> words{"verify", "--json-lines"};
    const auto add = [&](const std::string& name, const std::string& damaged) {
        place_.folder().write(name, withToken(damaged));
        words.push_back(name);
    };
    for (std::size_t at = 0; at < token.size(); at += 8) { // characters of six bits
        std::string damaged = token;
        damaged[at] = damaged[at] == 'A' ? 'B' : 'A';
        add("changed" + std::to_string(at) + ".xml", damaged);
        add("cut" + std::to_string(at) + ".xml", token.substr(0, at));
    }
    add("more.xml", token + "AAAA");
    add("text.xml", "text");
    const Outcome judged = place_.cli(words);
    EXPECT_EQ(judged.exit, 0) << judged.err;
    std::istringstream lines(judged.out);
    std::size_t count = 0;
    std::set<std::string> accepted;
    for (std::string line; std::getline(lines, line); ++count) {
        const Json verdict = Json::parse(line);
        ASSERT_EQ(verdict["valid"], true) << line;
        const Json& timestamp = verdict["timestamp"];
        ASSERT_TRUE(timestamp.is_object()) << line;
        if (timestamp["valid"] == true) {
            accepted.insert(line);
        } else {
            EXPECT_NE(timestamp["reason"], "") << line;
        }
    }
    EXPECT_EQ(count, words.size() - 2);
    EXPECT_THAT(accepted, testing::IsEmpty());
}

} // namespace
} // namespace cli_test
