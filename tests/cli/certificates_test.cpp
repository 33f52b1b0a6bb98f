#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(Certificates, AreFoundByThumbprintSerialAndSubject) {
    Workplace place;
    place.makeSigner("one");
    place.makeSigner("two");
    const Json list = place.json({"certs", "list"});
    ASSERT_EQ(list["certificates"].size(), 2U);
    for (const Json& certificate : list["certificates"]) {
        const auto thumbprint = certificate["thumbprint"].get<std::string>();
        for (const std::string& which : {thumbprint, thumbprint.substr(0, 12), certificate["serial"].get<std::string>(),
                                         certificate["subject"].get<std::string>()}) {
            EXPECT_EQ(place.json({"certs", "show", which})["certificates"][0]["thumbprint"], thumbprint) << which;
        }
    }
    EXPECT_EQ(place.json({"certs", "show", "SIGNER ONE"})["certificates"].size(), 1U);
    const Outcome ambiguous = place.cli({"certs", "show", "Signer"});
    EXPECT_EQ(ambiguous.exit, 2);
    EXPECT_THAT(ambiguous.err, HasSubstr("2 match"));
    EXPECT_EQ(place.cli({"certs", "show", "nobody"}).exit, 1);
}

TEST(Certificates, AreReadBehindALongText) {
    const Workplace place;
    std::string pem = place.folder().read("ca.pem");
    pem.erase(0, pem.find("-----BEGIN"));
    std::string text = "Certificate:\n";
    for (int line = 0; line < 400; ++line) {
        text += "                    00:11:22:33:44:55:66:77:88:99:aa:bb:cc:dd:ee:\n";
    }
    place.folder().write("text.pem", text + pem);
    const Outcome added = place.cli({"certs", "add", "text.pem", "--store", "root"});
    EXPECT_EQ(added.exit, 0) << added.err;
    EXPECT_EQ(place.cli({"chain", "text.pem"}).exit, 0);
}

TEST(Certificates, AreFoundAmongOtherBlocksOfAFile) {
    const Workplace place;
    place.openssl().must({"req", "-new", "-key", "ca.key", "-subj", "/CN=Request", "-out", "ca.csr"});
    place.folder().write("all.pem",
                         place.folder().read("ca.key") + place.folder().read("ca.csr") + place.folder().read("ca.pem"));
    const Outcome added = place.cli({"certs", "add", "all.pem", "--store", "root"});
    EXPECT_EQ(added.exit, 0) << added.err;
    EXPECT_THAT(added.out, HasSubstr("Test CA"));
    EXPECT_EQ(place.cli({"certs", "add", "ca.csr"}).exit, 3) << "a request is no certificate";
}

TEST(Certificates, OfAHostileNameWriteNoLinesOfTheirOwn) {
    const Workplace place;
    const std::string name = "Eve\n  chain        TRUSTED\x1b[2A\x7f\xc2\x9b\xe2\x80\xae";
    place.folder().write("eve.cnf", "[req]\ndistinguished_name=dn\nprompt=no\nutf8=yes\nstring_mask=utf8only\n[dn]\n"
                                    "CN=Eve\\n  chain        TRUSTED\x1b[2A\x7f\xc2\x9b\xe2\x80\xae\n");
    place.openssl().must({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "eve.key", "-out", "eve.pem",
                          "-config", "eve.cnf"});
    place.openssl().must({"req", "-x509", "-key", "eve.key", "-out", "second.pem", "-config", "eve.cnf"});
    const std::string shown = R"(CN=Eve\x0A  chain        TRUSTED\x1B[2A\x7F\x9B\u202E)";
    EXPECT_EQ(place.cli({"certs", "add", "eve.pem"}).out, "added " + shown + " to store my, which was empty\n");
    EXPECT_THAT(place.cli({"certs", "show", "eve"}).out, StartsWith(shown + "\n  issuer      " + shown + "\n"));
    EXPECT_THAT(place.cli({"chain", "eve"}).out, StartsWith(shown + ": "));
    EXPECT_EQ(place.json({"certs", "list"})["certificates"][0]["subject"], "CN=" + name);
    ASSERT_EQ(place.cli({"certs", "add", "second.pem"}).exit, 0);
    EXPECT_THAT(place.cli({"certs", "show", "eve"}).err, HasSubstr(shown));
    place.openssl().must({"cms", "-sign", "-binary", "-in", "report.txt", "-signer", "eve.pem", "-inkey", "eve.key",
                          "-outform", "DER", "-out", "report.txt.sig"});
    const Outcome verified = place.cli({"verify", "report.txt.sig"});
    EXPECT_EQ(verified.exit, 0) << verified.err;
    EXPECT_THAT(verified.out, HasSubstr("signer       " + shown + "\n"));
}

TEST(Certificates, AWholeThumbprintIsNotTheSerialNumberOfAnother) {
    const Workplace place;
    ASSERT_EQ(place.cli({"certs", "add", "ca.pem"}).exit, 0);
    const std::string thumbprint = place.json({"certs", "list"})["certificates"][0]["thumbprint"];
    place.openssl().must({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "other.key", "-out", "other.pem",
                          "-subj", "/CN=Other", "-set_serial", "0x" + thumbprint});
    ASSERT_EQ(place.cli({"certs", "add", "other.pem"}).exit, 0);
    EXPECT_THAT(place.cli({"certs", "show", thumbprint}).out, StartsWith("CN=Test CA\n"));
    EXPECT_EQ(place.cli({"certs", "show", thumbprint.substr(0, 39)}).out.substr(0, 10), "CN=Test CA");
    EXPECT_EQ(place.cli({"certs", "delete", thumbprint}).out, "deleted CN=Test CA from store my\n");
    EXPECT_THAT(place.cli({"certs", "show", thumbprint}).out, StartsWith("CN=Other\n")) << "now it is a serial number";
}

TEST(Certificates, GoInAndOutOfStores) {
    const Workplace place;
    EXPECT_EQ(place.cli({"certs", "add", "ca.pem", "--store", "root"}).out,
              "added CN=Test CA to store root, which was empty\n");
    EXPECT_EQ(place.cli({"certs", "add", "ca.pem", "--store", "root"}).out, "store root has CN=Test CA already\n");
    EXPECT_EQ(place.json({"certs", "list", "--store", "root"})["certificates"].size(), 1U);
    EXPECT_EQ(place.json({"certs", "list"})["certificates"].size(), 0U);
    const Outcome exported = place.cli({"certs", "export", "Test CA", "--store", "root", "--pem"});
    EXPECT_EQ(exported.exit, 0) << exported.err;
    EXPECT_THAT(exported.out, StartsWith("-----BEGIN CERTIFICATE-----\n"));
    EXPECT_EQ(place.cli({"certs", "delete", "Test CA", "--store", "root"}).exit, 0);
    EXPECT_EQ(place.json({"certs", "list", "--store", "root"})["certificates"].size(), 0U);
    EXPECT_EQ(place.cli({"certs", "delete", "Test CA", "--store", "root"}).exit, 1);
}

TEST(Certificates, ACertificateWithAKeyIsNotReplacedByOneOfAnotherKey) {
    Workplace place;
    place.makeSigner("one");
    const auto& openssl = place.openssl();
    const std::string serial = place.json({"certs", "list"})["certificates"][0]["serial"];
    // Another authority of the same name, a certificate of the same serial number and subject.
    openssl.must({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "eve.key", "-out", "eve.pem", "-subj",
                  "/CN=Test CA", "-days", "2"});
    openssl.must({"req", "-new", "-newkey", "rsa:2048", "-nodes", "-keyout", "forged.key", "-out", "forged.csr",
                  "-subj", "/CN=Signer one"});
    openssl.must({"x509", "-req", "-in", "forged.csr", "-CA", "eve.pem", "-CAkey", "eve.key", "-set_serial",
                  "0x" + serial, "-out", "forged.pem", "-days", "2"});
    const Json before = place.json({"certs", "list"})["certificates"];
    const Outcome added = place.cli({"certs", "add", "forged.pem"});
    EXPECT_EQ(added.exit, 4);
    EXPECT_THAT(added.err, HasSubstr("with its private key, and this one is of another key"));
    EXPECT_EQ(place.json({"certs", "list"})["certificates"], before);
    const Json again = place.json({"certs", "add", "one.pem"});
    EXPECT_EQ(again["certificates"][0]["outcome"], "already_there");
    EXPECT_EQ(place.json({"certs", "list"})["certificates"], before) << "with its link to the container";
    ASSERT_EQ(place.cli({"certs", "add", "one.pem", "--store", "ca"}).exit, 0);
    const Json replaced = place.json({"certs", "add", "forged.pem", "--store", "ca"});
    EXPECT_EQ(replaced["certificates"][0]["outcome"], "replaced");
    EXPECT_EQ(replaced["certificates"][0]["replaced"]["thumbprint"], before[0]["thumbprint"])
        << "without a key it is, and reported";
}

TEST(Certificates, AllOfABundleAreAddedOrNone) {
    Workplace place;
    place.makeSigner("one");
    const auto& openssl = place.openssl();
    openssl.must(
        {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "b.key", "-out", "b.pem", "-subj", "/CN=B"});
    openssl.must(
        {"crl2pkcs7", "-nocrl", "-certfile", "ca.pem", "-certfile", "b.pem", "-outform", "DER", "-out", "two.p7b"});
    place.folder().write("two.pem", place.folder().read("ca.pem") + place.folder().read("b.pem"));
    for (const char* file : {"two.p7b", "two.pem"}) {
        const std::string store = std::string("of") + (file[4] == '7' || file[5] == '7' ? "p7b" : "pem");
        const Json added = place.json({"certs", "add", file, "--store", store});
        ASSERT_EQ(added["certificates"].size(), 2U) << added;
        EXPECT_EQ(added["certificates"][1]["outcome"], "added");
        EXPECT_EQ(place.json({"certs", "list", "--store", store})["certificates"].size(), 2U);
    }
    // The second is a forged one, of the issuer and serial number of one that has its key.
    const std::string serial = place.json({"certs", "list"})["certificates"][0]["serial"];
    openssl.must(
        {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "e.key", "-out", "e.pem", "-subj", "/CN=Test CA"});
    openssl.must(
        {"req", "-new", "-newkey", "rsa:2048", "-nodes", "-keyout", "f.key", "-out", "f.csr", "-subj", "/CN=F"});
    openssl.must({"x509", "-req", "-in", "f.csr", "-CA", "e.pem", "-CAkey", "e.key", "-set_serial", "0x" + serial,
                  "-out", "f.pem", "-days", "2"});
    place.folder().write("bad.pem", place.folder().read("b.pem") + place.folder().read("f.pem"));
    EXPECT_EQ(place.cli({"certs", "add", "bad.pem"}).exit, 4);
    EXPECT_EQ(place.json({"certs", "list"})["certificates"].size(), 1U) << "the first one was not added either";
}

TEST(Certificates, AreFoundByNumbersAsOtherProgramsWriteThem) {
    Workplace place;
    place.makeSigner("one");
    const Json own = place.json({"certs", "list"})["certificates"][0];
    const auto separated = [](const std::string& digits, char separator) {
        std::string text;
        for (std::size_t i = 0; i < digits.size(); i += 2) {
            text += (text.empty() ? "" : std::string(1, separator)) + digits.substr(i, 2);
        }
        return text;
    };
    const std::string thumbprint = own["thumbprint"];
    const std::string serial = own["serial"];
    std::string upper = separated(thumbprint, ':');
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
    for (const std::string& which :
         {thumbprint, separated(thumbprint, ':'), separated(thumbprint, ' '), upper,
          separated(thumbprint, ':').substr(0, 23), serial, "0x" + serial, "0x00" + serial, separated(serial, ':')}) {
        EXPECT_EQ(place.json({"certs", "show", which})["certificates"][0]["thumbprint"], thumbprint) << which;
    }
    for (const char* which : {":", "0x"}) {
        EXPECT_NE(place.cli({"certs", "show", which}).exit, 0) << which;
    }
}

/// A key in container `name` and its certificate in NAME.pem, not installed.
void makeKey(Workplace& place, const std::string& name) {
    ASSERT_EQ(place.cliWithPin({"request", "--container", name, "--subject", "CN=Signer " + name}).exit, 0);
    place.openssl().issue(name + ".csr", name + ".pem");
}

TEST(Installing, FindsTheContainerByThePublicKey) {
    Workplace place;
    makeKey(place, "one");
    makeKey(place, "two");
    const Outcome installed = place.cliWithPin({"install", "two.pem"});
    ASSERT_EQ(installed.exit, 0) << installed.err;
    EXPECT_THAT(installed.out, HasSubstr("into container two and store my"));
    EXPECT_EQ(place.json({"certs", "list"})["certificates"][0]["container"], "two");
    const Outcome foreign = place.cliWithPin({"install", "ca.pem"});
    EXPECT_EQ(foreign.exit, 1);
    EXPECT_THAT(foreign.err, HasSubstr("no container has the key of the certificate"));
    EXPECT_NE(place.cliWithPin({"install", "two.pem", "--container", "one"}).exit, 0) << "the key of another container";
}

TEST(Installing, TakesABundleWithItsIssuersButTrustsNoRoot) {
    Workplace place;
    const auto& openssl = place.openssl();
    makeKey(place, "one");
    openssl.must(
        {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "top.key", "-out", "top.pem", "-subj", "/CN=Top"});
    openssl.must({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-CA", "top.pem", "-CAkey", "top.key", "-keyout",
                  "mid.key", "-out", "mid.pem", "-subj", "/CN=Middle"});
    openssl.must({"crl2pkcs7", "-nocrl", "-certfile", "top.pem", "-certfile", "mid.pem", "-certfile", "one.pem",
                  "-outform", "DER", "-out", "chain.p7b"});
    const Outcome installed = place.cliWithPin({"install", "chain.p7b"});
    ASSERT_EQ(installed.exit, 0) << installed.err;
    EXPECT_THAT(installed.out, HasSubstr("added CN=Middle to store ca"));
    EXPECT_THAT(installed.err, HasSubstr("the root CN=Top in the file was not added"));
    const auto subjects = [&](const char* store) {
        std::vector<std::string> names;
        const Json listed = place.json({"certs", "list", "--store", store});
        for (const Json& one : listed["certificates"]) {
            names.push_back(one["subject"]);
        }
        return names;
    };
    EXPECT_THAT(subjects("my"), testing::ElementsAre("CN=Signer one"));
    EXPECT_THAT(subjects("ca"), testing::ElementsAre("CN=Middle"));
    EXPECT_THAT(subjects("root"), testing::IsEmpty());
    openssl.must({"crl2pkcs7", "-nocrl", "-certfile", "top.pem", "-certfile", "mid.pem", "-outform", "DER", "-out",
                  "others.p7b"});
    EXPECT_EQ(place.cliWithPin({"install", "others.p7b"}).exit, 1);
}

TEST(Installing, TwoCertificatesForOwnKeysInOneBundleAreNotGuessed) {
    Workplace place;
    makeKey(place, "one");
    makeKey(place, "two");
    place.folder().write("both.pem", place.folder().read("one.pem") + place.folder().read("two.pem"));
    EXPECT_EQ(place.cliWithPin({"install", "both.pem"}).exit, 2);
    EXPECT_TRUE(place.json({"certs", "list"})["certificates"].empty());
    const Outcome named = place.cliWithPin({"install", "both.pem", "--container", "two"});
    EXPECT_EQ(named.exit, 0) << named.err;
    EXPECT_EQ(place.json({"certs", "list"})["certificates"][0]["subject"], "CN=Signer two");
}

TEST(Signing, TakesTheOnlyUsableOfSeveralCertificatesOfOneSubject) {
    Workplace place;
    place.makeSigner("one");
    place.openssl().must({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "k", "-out", "old.pem", "-subj",
                          "/CN=Signer one"});
    ASSERT_EQ(place.cli({"certs", "add", "old.pem"}).exit, 0);
    EXPECT_EQ(place.cli({"certs", "show", "Signer one"}).exit, 2) << "showing and deleting do not guess";
    EXPECT_EQ(place.cli({"certs", "delete", "Signer one"}).exit, 2);
    const Outcome signing = place.cliWithPin({"sign", "report.txt", "--cert", "Signer one"});
    EXPECT_EQ(signing.exit, 0) << signing.err;
    EXPECT_THAT(signing.err, HasSubstr("2 certificates match; signing with "));
    EXPECT_EQ(place.cli({"verify", "report.txt.sig", "--content", "report.txt"}).exit, 0);
}

TEST(Certificates, OneThatIsTooLargeIsRefusedAsThatAndNotStored) {
    const Workplace place;
    place.folder().write("big.cnf", "[req]\ndistinguished_name=d\nx509_extensions=e\nprompt=no\n[d]\nCN=Big\n[e]\n"
                                    "1.2.3.4=ASN1:SEQUENCE:s\n[s]\n");
    std::string rows;
    for (int i = 0; i < 60; ++i) {
        rows += "f" + std::to_string(i) + "=UTF8:" + std::string(1700, 'x') + "\n";
    }
    place.folder().write("big.cnf", place.folder().read("big.cnf") + rows);
    place.openssl().must(
        {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-config", "big.cnf", "-keyout", "k", "-out", "big.pem"});
    for (const auto& words :
         {std::vector<std::string>{"certs", "add", "big.pem"}, std::vector<std::string>{"chain", "big.pem"}}) {
        const Outcome outcome = place.cli(words);
        EXPECT_EQ(outcome.exit, 3) << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr("octets, the library takes at most 102400"));
    }
    EXPECT_TRUE(place.json({"certs", "list"})["certificates"].empty());
}

TEST(Certificates, ANameThatIsGivenStays) {
    Workplace place;
    place.makeSigner("one");
    ASSERT_EQ(place.cli({"certs", "set-name", "Signer one", "Подпись 2026"}).exit, 0);
    const Json listed = place.json({"certs", "list"})["certificates"][0];
    EXPECT_EQ(listed["friendly_name"], "Подпись 2026");
    EXPECT_EQ(listed["container"], "one") << "the link to the key stays";
    EXPECT_EQ(place.cli({"certs", "set-name", "Signer one", ""}).exit, 2);
    EXPECT_EQ(place.cli({"certs", "set-name", "Signer one", "a\xFF"}).exit, 2);
    EXPECT_EQ(place.cli({"certs", "set-name", "nobody", "x"}).exit, 1);
    EXPECT_EQ(place.json({"certs", "list"})["certificates"][0]["friendly_name"], "Подпись 2026");
}

TEST(Certificates, ThoseThatEndSoonAreListed) {
    const Workplace place;
    for (const char* days : {"5", "20", "400"}) {
        const std::string name = std::string("in") + days;
        place.openssl().must({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "k", "-out", name + ".pem",
                              "-subj", "/CN=" + name, "-days", days});
        ASSERT_EQ(place.cli({"certs", "add", name + ".pem"}).exit, 0);
    }
    const auto count = [&](const char* days) {
        return place.json({"certs", "list", "--expiring", days})["certificates"].size();
    };
    EXPECT_EQ(count("4d"), 0U);
    EXPECT_EQ(count("6d"), 1U);
    EXPECT_EQ(count("30d"), 2U);
    EXPECT_EQ(count("99999d"), 3U);
    for (const char* wrong : {"30", "d", "-1d", "30days", "1 d", "100000d", ""}) {
        EXPECT_EQ(place.cli({"certs", "list", "--expiring", wrong}).exit, 2) << wrong;
    }
}

TEST(Certificates, APkcs12FileIsNamedAsWhatItIs) {
    const Workplace place;
    place.openssl().must(
        {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "k", "-out", "c.pem", "-subj", "/CN=x"});
    place.openssl().must({"pkcs12", "-export", "-in", "c.pem", "-inkey", "k", "-passout", "pass:x", "-out", "x.p12"});
    for (const auto& words : {std::vector<std::string>{"install", "x.p12"},
                              std::vector<std::string>{"chain", "c.pem", "--with", "x.p12"}}) {
        const Outcome outcome = place.cli(words);
        EXPECT_EQ(outcome.exit, 3);
        EXPECT_THAT(outcome.err, HasSubstr("klunortredi-csp container import"));
    }
}

TEST(Certificates, AddTakesTheCertificatesOfAPkcs12FileAndNotItsKeys) {
    const Workplace place;
    for (const char* name : {"one", "two"}) {
        place.openssl().must({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", std::string(name) + ".key",
                              "-out", std::string(name) + ".pem", "-subj", std::string("/CN=") + name});
    }
    place.openssl().must({"pkcs12", "-export", "-in", "one.pem", "-inkey", "one.key", "-certfile", "two.pem",
                          "-passout", "pass:secret", "-out", "x.p12"});
    place.folder().write("password", "secret\n");
    place.folder().write("wrong", "other\n");
    const Outcome wrong = place.cli({"certs", "add", "x.p12", "--store", "ca", "--password-file", "wrong"});
    EXPECT_EQ(wrong.exit, 6) << wrong.err;
    EXPECT_THAT(wrong.err, HasSubstr("the password is wrong"));
    EXPECT_EQ(place.json({"certs", "list", "--store", "ca"})["certificates"].size(), 0U);
    const Outcome added = place.cli({"certs", "add", "x.p12", "--store", "ca", "--password-file", "password"});
    ASSERT_EQ(added.exit, 0) << added.err;
    EXPECT_THAT(added.err, HasSubstr("the private keys in x.p12 were not added"));
    EXPECT_EQ(place.json({"certs", "list", "--store", "ca"})["certificates"].size(), 2U);
    EXPECT_EQ(place.json({"containers"})["containers"].size(), 0U);
    // Without a terminal and without a source nothing hangs.
    const Outcome none = place.cli({"certs", "add", "x.p12", "--store", "ca"});
    EXPECT_EQ(none.exit, 2) << none.err;
    EXPECT_THAT(none.err, HasSubstr("--password-file"));
    RunOptions piped;
    piped.input = place.folder().read("x.p12");
    EXPECT_EQ(place.cli({"certs", "add", "-"}, piped).exit, 2);
}

TEST(Certificates, AddTakesTheCrlsBesideTheCertificates) {
    const Workplace place;
    place.openssl().must({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "ca.key", "-out", "ca.pem",
                          "-subj", "/CN=ca", "-addext", "keyUsage=critical,keyCertSign,cRLSign"});
    place.folder().write("index", "");
    place.folder().write("ca.cnf", "[ca]\ndefault_ca=own\n[own]\ndatabase=index\ndefault_md=sha256\n"
                                   "default_crl_days=30\ncrlnumber=number\n");
    place.folder().write("number", "01\n");
    std::string lists;
    for (const char* name : {"first", "second"}) {
        const std::string begin = name == std::string("first") ? "20260101000000Z" : "20260102000000Z";
        place.openssl().must({"ca", "-crl_lastupdate", begin, "-crl_nextupdate", "20990101000000Z", "-config", "ca.cnf",
                              "-gencrl", "-keyfile", "ca.key", "-cert", "ca.pem", "-out", std::string(name) + ".crl"});
        lists += place.folder().read(std::string(name) + ".crl");
    }
    place.folder().write("bundle.pem", place.folder().read("ca.pem") + place.folder().read("first.crl"));
    const auto bundle = place.json({"certs", "add", "bundle.pem", "--store", "ca"});
    EXPECT_EQ(bundle["certificates"].size(), 1U);
    ASSERT_EQ(bundle["crls"].size(), 1U);
    EXPECT_EQ(bundle["crls"][0]["added_crl"]["number"], "01");
    EXPECT_EQ(bundle["crls"][0]["verified"], true);
    EXPECT_EQ(bundle["crls_left_out"], 0);
    RunOptions piped;
    piped.input = lists;
    const auto several = Json::parse(place.cli({"certs", "add", "-", "--store", "ca", "--json"}, piped).out);
    ASSERT_EQ(several["crls"].size(), 2U);
    EXPECT_TRUE(several["crls"][0]["added_crl"].is_null()) << "it is there";
    EXPECT_EQ(several["crls"][1]["added_crl"]["number"], "02");
}

TEST(Certificates, StoresAreNotChangedThroughAProvider) {
    Workplace place;
    place.makeSigner("one");
    for (const char* verb : {"add", "delete"}) {
        const Outcome outcome = place.cli({"certs", verb, "one.pem", "--provider", "80"});
        EXPECT_EQ(outcome.exit, 2) << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr(std::string("cannot use --provider with certs ") + verb));
    }
    EXPECT_EQ(place.json({"certs", "list"})["certificates"].size(), 1U);
}

TEST(Certificates, AnAmbiguousProviderIsNotGuessed) {
    const Workplace place;
    const Outcome outcome = place.cli({"certs", "list", "--provider", "GOST"});
    EXPECT_EQ(outcome.exit, 2);
    EXPECT_THAT(outcome.err, HasSubstr("several match"));
    EXPECT_THAT(outcome.err, HasSubstr("(80)"));
    EXPECT_EQ(place.cli({"certs", "list", "--provider", "80"}).exit, 0);
    const Json all = place.json({"providers"})["providers"];
    for (const Json& provider : all) {
        EXPECT_EQ(place.cli({"containers", "--provider", provider["name"]}).exit, 0) << "a whole name is one provider";
    }
}

TEST(Certificates, AChainIsJudgedByTheStores) {
    Workplace place;
    place.makeSigner("one");
    const Json before = place.json({"chain", "one.pem"});
    EXPECT_EQ(before["trusted"], false);
    EXPECT_FALSE(before["status_names"].empty());
    ASSERT_EQ(place.cli({"certs", "add", "ca.pem", "--store", "root"}).exit, 0);
    const Json after = place.json({"chain", "Signer one"});
    EXPECT_EQ(after["trusted"], true) << after.dump();
    EXPECT_EQ(after["status"], 0);
    EXPECT_EQ(place.cli({"chain", "one.pem"}).exit, 0);
}

TEST(Certificates, ThoseInContainersAreSeenThroughTheProvider) {
    Workplace place;
    place.makeSigner("one");
    const Json list = place.json({"certs", "list", "--provider", "80"});
    ASSERT_EQ(list["certificates"].size(), 1U);
    EXPECT_EQ(list["certificates"][0]["subject"], "CN=Signer one");
}

TEST(Certificates, AreFoundByAPartOfTheSubjectInAnyCaseOfAnyScript) {
    Workplace place;
    place.makeSigner("Печать Отдела");
    for (const char* which : {"печать", "ПЕЧАТЬ ОТДЕЛА", "sIGNER"}) {
        EXPECT_EQ(place.cli({"certs", "show", which}).exit, 0) << which;
    }
    EXPECT_EQ(place.cli({"certs", "show", "печаль"}).exit, 1);
    EXPECT_EQ(place.cli({"certs", "show", "\xff\xfe"}).exit, 1);
}

} // namespace
} // namespace cli_test
