#include "cli/workplace.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(Keys, OpensslReadsTheRequestWithEveryExtension) {
    Workplace place;
    const Outcome made =
        place.cliWithPin({"request", "--container", "full", "--subject",
                          "2.5.4.3=Иванов Иван;2.5.4.6=RU;1.2.840.113549.1.9.1=ivan@example.org;"
                          "1.2.643.3.131.1.1=007707083893;2.5.4.10=О",
                          "--key-usage", "digitalSignature,keyEncipherment", "--eku", "1.3.6.1.5.5.7.3.4", "--eku",
                          "1.3.6.1.5.5.7.3.2", "--policy", "1.2.643.100.113.1", "--dns", "host.example.org", "--upn",
                          "ivan@corp.example.org", "--out", "full.csr"});
    ASSERT_EQ(made.exit, 0) << made.err;
    const Outcome shown = place.openssl().run(
        {"req", "-inform", "DER", "-in", "full.csr", "-verify", "-noout", "-text", "-nameopt", "utf8,sep_comma_plus"});
    EXPECT_EQ(shown.exit, 0) << shown.err;
    for (const char* part : {"Иванов Иван", "C=RU", "ivan@example.org", "007707083893", "Digital Signature",
                             "Key Encipherment", "E-mail Protection", "TLS Web Client Authentication",
                             "Class of Signing Tool KC1", "DNS:host.example.org", "Subject Key Identifier"}) {
        EXPECT_THAT(shown.out, HasSubstr(part));
    }
    EXPECT_THAT(shown.err + shown.out, HasSubstr("verify OK"));
}

TEST(Keys, AnyCharacterMayStandInTheValuesOfTheSubject) {
    Workplace place;
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {"CN=Ivan;o=Horns;INN=123456789012;2.5.4.6=RU",
         {"commonName=Ivan", "organizationName=Horns", "INN=123456789012", "countryName=RU"}},
        {R"(O="Horns; Hooves = Co";OU=x)", {"organizationName=Horns; Hooves = Co", "organizationalUnitName=x"}},
        {R"(O=ООО "Рога; копыта";CN=a)", {R"(organizationName=ООО "Рога; копыта")", "commonName=a"}},
        {R"(O="a ""b"" c")", {R"(organizationName=a "b" c)"}},
        {R"(O=a\;b\=c\\d\"e;CN=x)", {R"(organizationName=a;b=c\d"e)", "commonName=x"}},
        {R"(CN=DOMAIN\user)", {R"(commonName=DOMAIN\user)"}},
        {R"(CN=5" disk)", {R"(commonName=5" disk)"}},
        {"CN=, + < > # a=b", {"commonName=, + < > # a=b"}},
    };
    int number = 0;
    for (const auto& [subject, expected] : rows) {
        const std::string name = "c" + std::to_string(++number);
        const Outcome made = place.cliWithPin({"request", "--container", name, "--subject", subject});
        ASSERT_EQ(made.exit, 0) << subject << made.err;
        const Outcome shown = place.openssl().run({"req", "-inform", "DER", "-in", name + ".csr", "-noout", "-subject",
                                                   "-nameopt", "utf8,sep_multiline,lname"});
        for (const std::string& line : expected) {
            EXPECT_THAT(shown.out, HasSubstr(line + "\n")) << subject;
        }
    }
}

TEST(Keys, ASubjectThatIsNotOneMakesNoKey) {
    Workplace place;
    const std::pair<const char*, const char*> rows[] = {
        {"", "it is empty"},
        {";", "it is empty"},
        {"Ivan", "'Ivan' is not an attribute"},
        {"XN=Ivan", "'XN' is not an attribute"},
        {"CN=", "the attribute 'CN' has no value"},
        {"CN=Ivan;C=RUS", "a country (C, 2.5.4.6) has two letters"},
        {"25=Ivan", "'25' is not an attribute"},
    };
    for (const auto& [subject, why] : rows) {
        const Outcome made = place.cliWithPin({"request", "--container", "c", "--subject", subject});
        EXPECT_EQ(made.exit, 2) << subject;
        EXPECT_THAT(made.err, HasSubstr(why)) << subject;
    }
    EXPECT_EQ(place.json({"containers"})["containers"].size(), 0U);
}

TEST(Keys, TheRequestHasWhatItsOptionsName) {
    Workplace place;
    const Outcome made = place.cliWithPin({"request", "--container", "more", "--subject", "CN=X", "--email",
                                           "a@example.org", "--email", "b@example.org", "--dns", "host.example.org",
                                           "--identification", "passport", "--key-days", "450", "--no-client-info"});
    ASSERT_EQ(made.exit, 0) << made.err;
    const auto text = [&](const char* name) {
        return place.openssl()
            .run({"req", "-inform", "DER", "-in", std::string(name) + ".csr", "-verify", "-noout", "-text"})
            .out;
    };
    const std::string more = text("more");
    EXPECT_THAT(more, HasSubstr("DNS:host.example.org, email:a@example.org, email:b@example.org"));
    EXPECT_THAT(more, HasSubstr("1.2.643.100.114"));
    EXPECT_THAT(more, HasSubstr("X509v3 Private Key Usage Period"));
    EXPECT_THAT(more, Not(HasSubstr("1.3.6.1.4.1.311.13.2.3"))) << "the system";
    EXPECT_THAT(more, Not(HasSubstr("1.3.6.1.4.1.311.21.20"))) << "machine and user";
    ASSERT_EQ(place.cliWithPin({"request", "--container", "usual", "--subject", "CN=X"}).exit, 0);
    const std::string usual = text("usual");
    EXPECT_THAT(usual, HasSubstr("1.3.6.1.4.1.311.13.2.3"));
    EXPECT_THAT(usual, HasSubstr("1.3.6.1.4.1.311.21.20"));
    EXPECT_THAT(usual, Not(HasSubstr("1.2.643.100.114")));
    EXPECT_THAT(usual, Not(HasSubstr("X509v3 Private Key Usage Period")));
    for (const auto& wrong : std::vector<std::vector<std::string>>{
             {"--identification", "4"}, {"--key-days", "0"}, {"--key-days", "36501"}, {"--container", ""}}) {
        std::vector<std::string> words{"request", "--container", "wrong", "--subject", "CN=X"};
        words.insert(words.end(), wrong.begin(), wrong.end());
        EXPECT_EQ(place.cliWithPin(words).exit, 2) << wrong[0];
    }
    EXPECT_EQ(place.cli({"request", "--subject", "CN=X"}).exit, 2) << "no container";
}

TEST(Keys, RequestsForEveryListedKeyAreAcceptedByOtherTools) {
    Workplace place;
    const Json keys = place.json({"request", "--list"})["keys"];
    EXPECT_EQ(keys.size(), place.json({"providers"})["providers"].size());
    // certtool knows these with GOST R 34.10-2012 and no other curves.
    const std::set<std::string> ofCerttool{"1.2.840.113549.1.1.1", "1.2.643.7.1.2.1.1.2", "1.2.643.7.1.2.1.2.1"};
    std::size_t made = 0;
    for (const Json& row : keys) {
        ASSERT_FALSE(row["param_sets"].empty()) << row;
        const std::string type = std::to_string(row["type"].get<int>());
        for (const Json& set : row["param_sets"]) {
            const auto oid = set["oid"].get<std::string>();
            const std::string name = type + '-' + oid;
            const Outcome making = place.cliWithPin({"request", "--container", name, "--subject", "CN=X", "--provider",
                                                     type, "--param-set", oid, "--dns", "a.example"});
            ASSERT_EQ(making.exit, 0) << name << making.err;
            ++made;
            const Outcome openssl =
                place.openssl().run({"req", "-inform", "DER", "-in", name + ".csr", "-verify", "-noout"});
            EXPECT_THAT(openssl.out + openssl.err, HasSubstr("verify OK")) << name;
            if (ofCerttool.contains(oid)) {
                RunOptions there;
                there.folder = place.folder().path();
                const Outcome certtool =
                    test_support::run({"certtool", "--crq-info", "--inder", "--infile", name + ".csr"}, there);
                EXPECT_THAT(certtool.out, AllOf(HasSubstr("Self signature: verified"), HasSubstr("a.example"))) << name;
            }
        }
    }
    EXPECT_EQ(place.json({"containers"})["containers"].size(), made);
}

TEST(Keys, ContainersAreListedAndDeleted) {
    Workplace place;
    for (const char* name : {"one", "два"}) {
        ASSERT_EQ(place
                      .cliWithPin({"request", "--container", name, "--subject", "2.5.4.3=X", "--out",
                                   std::string(name) + ".csr"})
                      .exit,
                  0);
    }
    EXPECT_EQ(place.json({"containers"})["containers"].size(), 2U);
    EXPECT_EQ(place.cli({"containers", "delete", "два", "--yes"}).exit, 0);
    const Json left = place.json({"containers", "list"});
    ASSERT_EQ(left["containers"].size(), 1U);
    EXPECT_EQ(left["containers"][0]["name"], "one");
}

TEST(Keys, ACyrillicContainerSigns) {
    Workplace place;
    place.makeSigner("Печать отдела");
    EXPECT_EQ(place.json({"certs", "list"})["certificates"][0]["container"], "Печать отдела");
    const Outcome signing = place.cliWithPin({"sign", "report.txt", "--cert", "Signer"});
    EXPECT_EQ(signing.exit, 0) << signing.err;
    EXPECT_EQ(place.cli({"verify", "report.txt.sig"}).exit, 0);
}

TEST(Keys, EveryParameterSetMakesAWorkingKey) {
    Workplace place;
    const std::vector<std::pair<const char*, std::vector<const char*>>> sets = {
        {"80", {"1.2.643.2.2.36.0", "1.2.643.2.2.35.1", "1.2.643.2.2.35.2", "1.2.643.2.2.35.3", "1.2.643.7.1.2.1.1.1"}},
        {"81", {"1.2.643.7.1.2.1.2.1", "1.2.643.7.1.2.1.2.2", "1.2.643.7.1.2.1.2.3"}},
    };
    for (const auto& [provider, oids] : sets) {
        for (const char* oid : oids) {
            const std::string name = oid;
            const Outcome made =
                place.cliWithPin({"request", "--container", name, "--provider", provider, "--param-set", oid,
                                  "--subject", "2.5.4.3=X", "--out", name + ".csr"});
            EXPECT_EQ(made.exit, 0) << oid << ": " << made.err;
            const Outcome judged =
                place.openssl().run({"req", "-inform", "DER", "-in", name + ".csr", "-verify", "-noout"});
            EXPECT_EQ(judged.exit, 0) << oid << ": " << judged.err;
        }
    }
    const Outcome foreign = place.cliWithPin({"request", "--container", "x", "--provider", "80", "--param-set",
                                              "1.2.643.7.1.2.1.2.1", "--subject", "2.5.4.3=X"});
    EXPECT_EQ(foreign.exit, 4) << foreign.err;
}

TEST(SmallThings, HashAgreesWithOpenssl) {
    const Workplace place;
    const std::pair<const char*, const char*> names[] = {{"streebog256", "md_gost12_256"},
                                                         {"streebog512", "md_gost12_512"},
                                                         {"md_gost94", "md_gost94"},
                                                         {"sha1", "sha1"},
                                                         {"SHA-256", "sha256"},
                                                         {"sha256", "sha256"},
                                                         {"sha512", "sha512"}};
    for (const auto& [ours, theirs] : names) {
        const Outcome hashed = place.cli({"hash", "report.txt", "--algorithm", ours});
        ASSERT_EQ(hashed.exit, 0) << ours << hashed.err;
        const Outcome judged = place.openssl().run({"dgst", "-r", std::string("-") + theirs, "report.txt"});
        EXPECT_EQ(hashed.out.substr(0, hashed.out.find(' ')), judged.out.substr(0, judged.out.find(' '))) << ours;
    }
    EXPECT_EQ(place.cli({"hash", "report.txt", "--algorithm", "rot13"}).exit, 2);
}

TEST(SmallThings, RandomOctetsComeInTheFormAskedFor) {
    const Workplace place;
    EXPECT_EQ(place.cli({"random", "16"}).out.size(), 16U);
    const std::string first = place.cli({"random", "16", "--hex"}).out;
    EXPECT_EQ(first.size(), 33U);
    EXPECT_NE(first, place.cli({"random", "16", "--hex"}).out);
    EXPECT_EQ(place.cli({"random", "0", "--hex"}).out, "\n");
    for (const char* none : {"nonsense", "-5", "1.5"}) {
        const Outcome refused = place.cli({"random", none});
        EXPECT_EQ(refused.exit, 2) << none;
        EXPECT_THAT(refused.err, HasSubstr("is no number of octets")) << none;
    }
}

// ---- requests from a template, and for a key that is there

class Request : public testing::Test {
protected:
    /// What openssl reads in a request, its signature checked.
    [[nodiscard]] std::string text(const std::string& file) const {
        const Outcome shown = place_.openssl().run(
            {"req", "-inform", "DER", "-in", file, "-verify", "-noout", "-text", "-nameopt", "utf8,sep_comma_plus"});
        EXPECT_THAT(shown.err + shown.out, HasSubstr("verify OK"));
        return shown.out;
    }
    /// The part of the text between two lines; what both a request and a certificate show.
    static std::string part(const std::string& text, const std::string& from, const std::string& to) {
        const auto begin = text.find(from);
        return begin == std::string::npos ? "no " + from : text.substr(begin, text.find(to, begin) - begin);
    }
    /// The line after the one with an extension's name; empty without the extension.
    static std::string valueOf(const std::string& text, const std::string& extension) {
        const auto name = text.find(extension);
        const auto line = name == std::string::npos ? name : text.find('\n', name);
        const auto begin = line == std::string::npos ? line : text.find_first_not_of(" \n", line);
        return begin == std::string::npos ? "" : text.substr(begin, text.find('\n', begin) - begin);
    }
    [[nodiscard]] std::string issuedText() const {
        return place_.openssl()
            .run({"x509", "-in", "one.pem", "-noout", "-text", "-nameopt", "utf8,sep_comma_plus"})
            .out;
    }
    [[nodiscard]] Outcome renew(std::vector<std::string> more = {}) const {
        std::vector<std::string> words{"request", "--renew", "--container", "one", "--out", "new.csr"};
        words.insert(words.end(), more.begin(), more.end());
        return place_.cliWithPin(words);
    }

    Workplace place_;
};

TEST_F(Request, TemplateSaysWhatTheCommandLineDoesNot) {
    place_.folder().write("person.json", R"({"subject": "CN=Иванов Иван;O=\"Рога; копыта\"", "key_days": 450,
        "eku": ["1.3.6.1.5.5.7.3.4", "1.3.6.1.5.5.7.3.2"], "email": "a@example.org", "dns": ["of.template"],
        "identification": "passport", "key_usage": "digitalSignature", "no_client_info": true})");
    const Outcome made =
        place_.cliWithPin({"request", "--container", "c", "--template", "person.json", "--dns", "of.options"});
    ASSERT_EQ(made.exit, 0) << made.err;
    EXPECT_THAT(text("c.csr"),
                AllOf(HasSubstr("Иванов Иван"), HasSubstr("Рога; копыта"), HasSubstr("E-mail Protection, TLS Web"),
                      HasSubstr("DNS:of.options, email:a@example.org"), Not(HasSubstr("of.template")),
                      HasSubstr("1.2.643.100.114"), HasSubstr("X509v3 Private Key Usage Period"),
                      Not(HasSubstr("Non Repudiation")), Not(HasSubstr("1.3.6.1.4.1.311.21.20"))));
}

TEST_F(Request, FileThatIsNotATemplateMakesNoKey) {
    const std::pair<std::string, const char*> rows[] = {
        {"", "it is not a JSON object"},
        {"[]", "it is not a JSON object"},
        {R"({"subject": "CN=x")", "it is not a JSON object"},
        {R"({"subjekt": "CN=x"})", "'subjekt' is not an option of 'request'"},
        {R"({"subject": 7})", "'subject' is not a text"},
        {R"({"subject": ""})", "'subject' is empty"},
        {R"({"container": "a\u0000b"})", "'container' has a control character"},
        {R"({"dns": ["a", 7]})", "'dns' is not a text"},
        {R"({"key_days": 0})", "'key_days' is not a number from 1"},
        {R"({"key_days": -1})", "'key_days' is not a number from 1"},
        {R"({"key_days": 4294967297})", "'key_days' is not a number from 1"},
        {R"({"exportable": "yes"})", "'exportable' is not true or false"},
        {"{\"subject\": \"" + std::string(70'000, 'x') + "\"}", "it is longer than 65536 octets"},
        {"{\"subject\": \"\xFF\"}", "it is not a JSON object"},
        {std::string(60'000, '['), "it is not a JSON object"},
    };
    for (const auto& [content, why] : rows) {
        place_.folder().write("t.json", content);
        const Outcome made =
            place_.cliWithPin({"request", "--container", "c", "--subject", "CN=x", "--template", "t.json"});
        EXPECT_EQ(made.exit, 3) << content.substr(0, 80);
        EXPECT_THAT(made.err, HasSubstr(why)) << content.substr(0, 80);
    }
    EXPECT_EQ(place_.cliWithPin({"request", "--container", "c", "--template", "none.json"}).exit, 3);
    place_.folder().write("t.json", R"({"subject": "CN=x", "identification": "4"})");
    EXPECT_EQ(place_.cliWithPin({"request", "--container", "c", "--template", "t.json"}).exit, 2);
    EXPECT_EQ(place_.json({"containers"})["containers"].size(), 0U);
}

TEST_F(Request, RenewalHasTheKeyTheSubjectAndTheExtensionsOfTheCertificate) {
    place_.makeSigner("one");
    const auto before = place_.json({"certs", "list"});
    const Outcome made = renew();
    ASSERT_EQ(made.exit, 0) << made.err;
    EXPECT_THAT(made.out, HasSubstr("made a request for the key in container one"));
    const std::string request = text("new.csr");
    const std::string issued = issuedText();
    for (const char* const extension : {"X509v3 Key Usage", "X509v3 Extended Key Usage"}) {
        EXPECT_EQ(valueOf(request, extension), valueOf(issued, extension));
        EXPECT_NE(valueOf(request, extension), "") << extension;
    }
    EXPECT_THAT(request, Not(HasSubstr("X509v3 Authority Key Identifier"))) << "is the authority's";
    const auto publicKey = [&](const std::vector<std::string>& words) { return place_.openssl().run(words).out; };
    EXPECT_EQ(publicKey({"req", "-inform", "DER", "-in", "new.csr", "-noout", "-pubkey"}),
              publicKey({"x509", "-in", "one.pem", "-noout", "-pubkey"}));
    EXPECT_EQ(part(request, "Subject: ", "\n"), part(issued, "Subject: ", "\n"));
    EXPECT_EQ(place_.json({"certs", "list"}), before) << "nothing is replaced until the new certificate is installed";
    EXPECT_EQ(place_.json({"containers"})["containers"].size(), 1U);
    // The authority issues for it, and the new certificate goes where the old one was.
    EXPECT_EQ(place_.cliWithPin({"sign", "new.csr", "--cert", "Signer one"}).exit, 0) << "the key still signs";
}

TEST_F(Request, RenewalTakesWhatTheOptionsSay) {
    place_.makeSigner("one");
    ASSERT_EQ(renew({"--subject", "CN=Другая фамилия", "--key-usage", "keyEncipherment", "--dns", "new.name"}).exit, 0);
    EXPECT_THAT(text("new.csr"), AllOf(HasSubstr("Другая фамилия"), Not(HasSubstr("Signer one")),
                                       HasSubstr("Key Encipherment"), HasSubstr("DNS:new.name")));
    for (const auto& words : {std::vector<std::string>{"--exportable"}, {"--param-set", "1.2.643.7.1.2.1.1.1"}}) {
        const Outcome refused = renew(words);
        EXPECT_EQ(refused.exit, 2);
        EXPECT_THAT(refused.err, HasSubstr(words.front() + " is for a new key"));
    }
}

TEST_F(Request, RenewalThatFailsLeavesTheKeyAndNoFile) {
    place_.makeSigner("one");
    place_.folder().write("wrong", "00000000\n");
    const Outcome wrong =
        place_.cli({"request", "--renew", "--container", "one", "--out", "new.csr", "--pin-file", "wrong"});
    EXPECT_EQ(wrong.exit, 6) << wrong.err;
    EXPECT_EQ(place_.cliWithPin({"request", "--renew", "--container", "none"}).exit, 1);
    ASSERT_EQ(place_.cliWithPin({"request", "--container", "bare", "--subject", "CN=x"}).exit, 0);
    const Outcome bare = place_.cliWithPin({"request", "--renew", "--container", "bare", "--out", "bare2.csr"});
    EXPECT_EQ(bare.exit, 1);
    EXPECT_THAT(bare.err, HasSubstr("no certificate for its key is installed; name the subject with --subject"));
    EXPECT_EQ(place_.openssl().run({"req", "-in", "new.csr", "-noout"}).exit, 1) << "no file";
    const auto named =
        place_.cliWithPin({"request", "--renew", "--container", "bare", "--subject", "CN=named", "--out", "bare2.csr"});
    ASSERT_EQ(named.exit, 0) << named.err;
    EXPECT_THAT(text("bare2.csr"), AllOf(HasSubstr("CN=named"), HasSubstr("Digital Signature, Non Repudiation")));
    EXPECT_EQ(place_.cliWithPin({"sign", "bare2.csr", "--cert", "Signer one"}).exit, 0);
}

} // namespace
} // namespace cli_test
