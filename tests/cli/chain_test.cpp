#include "cli/message_parts.hpp"
#include "cli/pki.hpp"
#include "cli/workplace.hpp"
#include "support/servers/http_server.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <thread>

namespace cli_test {
namespace {

using test_support::Pki;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// "root" issues "sub" (2), which issues "good" (3) and "bad" (4). Root is in store root; nothing else is in a store.
class Chain : public testing::Test {
protected:
    Chain() : pki(place.folder(), place.openssl()) {
        pki.root("root");
        pki.authority("sub", "root", 2);
        pki.issue("good", "sub", 3);
        pki.issue("bad", "sub", 4);
        EXPECT_EQ(place.cli({"certs", "add", "root.pem", "--store", "root"}).exit, 0);
    }

    void list() {
        pki.list("root", {});
        pki.list("sub", {"04"});
    }

    [[nodiscard]] std::string read(const std::string& name) const { return place.folder().read(name); }

    Workplace place;
    Pki pki;
};

TEST_F(Chain, ShowsEveryElementWithWhatIsWrongAndWhatToDo) {
    const Outcome missing = place.cli({"chain", "good.pem"});
    EXPECT_EQ(missing.exit, 8);
    EXPECT_THAT(missing.out, HasSubstr("CN=good: not trusted\n"));
    EXPECT_THAT(missing.out, HasSubstr("its issuer's certificate is missing (CN=sub)"));
    EXPECT_THAT(missing.out, HasSubstr("--with FILE"));
    EXPECT_THAT(missing.out, Not(HasSubstr("CERT_TRUST_")));
    EXPECT_THAT(place.cli({"chain", "good.pem", "-v"}).out, HasSubstr("CERT_TRUST_IS_PARTIAL_CHAIN"));
    const Json document = place.json({"chain", "good.pem"});
    EXPECT_EQ(document["trusted"], false);
    EXPECT_THAT(document["status_names"], ElementsAre("CERT_TRUST_IS_PARTIAL_CHAIN"));
    ASSERT_EQ(document["elements"].size(), 1U);
    EXPECT_EQ(document["elements"][0]["subject"], "CN=good");
    EXPECT_THAT(document["elements"][0]["status_names"], ElementsAre("CERT_TRUST_IS_PARTIAL_CHAIN"));

    pki.root("stranger");
    const Outcome untrusted = place.cli({"chain", "stranger.pem"});
    EXPECT_THAT(untrusted.out, HasSubstr("it is a root that this machine does not trust"));
    EXPECT_THAT(untrusted.out, HasSubstr("certs add FILE --store root"));
}

TEST_F(Chain, SaysGoodRevokedOrNotKnown) {
    const Outcome unknown = place.cli({"chain", "good.pem", "--with", "sub.pem"});
    EXPECT_EQ(unknown.exit, 0) << unknown.out;
    EXPECT_THAT(unknown.out, HasSubstr("\n  revocation  not known\n"));
    list();
    const std::vector<std::string> brought{"--with", "sub.pem", "--with", "sub.crl", "--with", "root.crl"};
    const auto judge = [&](const std::string& file) {
        std::vector<std::string> words{"chain", file};
        words.insert(words.end(), brought.begin(), brought.end());
        return words;
    };
    const Outcome good = place.cli(judge("good.pem"));
    EXPECT_EQ(good.exit, 0) << good.out;
    EXPECT_THAT(good.out, HasSubstr("\n  revocation  good\n"));
    const Outcome bad = place.cli(judge("bad.pem"));
    EXPECT_EQ(bad.exit, 8);
    EXPECT_THAT(bad.out, HasSubstr("\n  revocation  revoked since 2026-01-02T03:04:05Z (the key is compromised)\n"));
    const Json document = place.json(judge("bad.pem"));
    EXPECT_EQ(document["revocation"]["status"], "revoked");
    EXPECT_EQ(document["revocation"]["since"], "2026-01-02T03:04:05Z");
    EXPECT_EQ(document["elements"][0]["revocation"]["status"], "revoked");
    EXPECT_EQ(document["elements"][1]["revocation"]["status"], "good");
    EXPECT_EQ(place.json(judge("good.pem"))["revocation"], Json({{"status", "good"}}));
}

TEST_F(Chain, OfWhichOneListIsMissingIsNotKnown) {
    list();
    const Json document = place.json({"chain", "good.pem", "--with", "sub.pem", "--with", "sub.crl"});
    EXPECT_EQ(document["revocation"]["status"], "unknown") << "nobody knows about CN=sub";
    EXPECT_EQ(document["elements"][0]["revocation"]["status"], "good");
    EXPECT_EQ(document["elements"][1]["revocation"]["status"], "unknown");
}

TEST_F(Chain, WithoutARequiredRevocationStatusIsNotTrusted) {
    const Outcome unknown = place.cli({"chain", "good.pem", "--with", "sub.pem", "--require-revocation"});
    EXPECT_EQ(unknown.exit, 8);
    EXPECT_THAT(unknown.out, HasSubstr("no revocation list at hand says whether it is revoked"));
    list();
    EXPECT_EQ(place.cli({"chain", "good.pem", "--with", "sub.pem", "--with", "sub.crl", "--require-revocation"}).exit,
              8);
    EXPECT_EQ(place
                  .cli({"chain", "good.pem", "--with", "sub.pem", "--with", "sub.crl", "--with", "root.crl",
                        "--require-revocation"})
                  .exit,
              0);
}

TEST_F(Chain, KnowsTheListsOfTheStores) {
    list();
    ASSERT_EQ(place.cli({"certs", "add", "sub.pem", "--store", "ca"}).exit, 0);
    EXPECT_EQ(place.cli({"chain", "bad.pem"}).exit, 0);
    const Outcome added = place.cli({"certs", "add", "sub.crl", "--store", "ca"});
    EXPECT_EQ(added.exit, 0) << added.err;
    EXPECT_EQ(added.out, "added the CRL of CN=sub to store ca\n");
    EXPECT_EQ(place.cli({"chain", "bad.pem"}).exit, 8);
    EXPECT_EQ(place.cli({"chain", "good.pem"}).exit, 0);
    const Outcome again = place.cli({"certs", "add", "sub.crl", "--store", "ca"});
    EXPECT_EQ(again.exit, 0) << again.err;
    EXPECT_THAT(again.out, HasSubstr("already"));
    EXPECT_EQ(place.json({"certs", "add", "root.crl", "--store", "ca"})["added_crl"]["issuer"], "CN=root");
}

TEST_F(Chain, TakesAListOfTheStoresPlaceByAVerifiedNewerOneOnly) {
    pki.list("sub", {});
    ASSERT_EQ(place.cli({"certs", "add", "sub.pem", "--store", "ca"}).exit, 0);
    ASSERT_EQ(place.json({"certs", "add", "sub.crl", "--store", "ca"})["verified"], true);
    EXPECT_EQ(place.cli({"chain", "bad.pem"}).exit, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100)); // thisUpdate counts seconds
    pki.list("sub", {"04"}, "02");
    const Json newer = place.json({"certs", "add", "sub.crl", "--store", "ca"});
    EXPECT_EQ(newer["added_crl"]["number"], "02");
    EXPECT_EQ(place.cli({"chain", "bad.pem"}).exit, 8);
    pki.root("forger"); // of another key, with a list in sub's name
    place.openssl().must({"req", "-x509", "-key", "forger.key", "-subj", "/CN=sub", "-days", "9", "-out", "forger.pem",
                          "-addext", "subjectKeyIdentifier=hash"});
    pki.list("forger", {}, "03");
    const Outcome forged = place.cli({"certs", "add", "forger.crl", "--store", "ca"});
    EXPECT_EQ(forged.exit, 0) << forged.err;
    EXPECT_THAT(forged.out, HasSubstr("its signature is not verified"));
    EXPECT_EQ(place.cli({"chain", "bad.pem"}).exit, 8);
}

TEST_F(Chain, OfASignerIsNeverGoodWhileAListOfTheMessageIsNotRead) {
    list();
    place.folder().write("report.txt", "text");
    place.openssl().must({"cms", "-sign", "-binary", "-nodetach", "-in", "report.txt", "-signer", "good.pem", "-inkey",
                          "good.key", "-certfile", "sub.pem", "-outform", "DER", "-out", "report.p7s"});
    const Parts parts(read("report.p7s"));
    place.openssl().must({"crl", "-in", "sub.crl", "-outform", "DER", "-out", "list.der"});
    const std::string list = read("list.der");
    const auto withList = [&](std::size_t octets) {
        const auto der = [](char tag, const std::string& content) { // of 64 KiB to 16 MiB
            const auto octet = [&](unsigned shift) { return static_cast<char>(content.size() >> shift & 0xFFU); };
            return std::string{tag, '\x83', octet(16), octet(8), octet(0)} + content;
        };
        const std::vector<std::string> fields = Parts::children(Parts::content(list));
        const std::string crl = der(0x30, fields[0] + fields[1] + der(0x03, std::string(octets, '\0')));
        const std::string body = element(0xA0, parts.certificates) + element(0xA1, crl) + element(0x31, parts.signer);
        const std::string head("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02", 11);
        place.folder().write("list.p7s", element(0x30, head + element(0xA0, element(0x30, parts.head + body))));
    };
    const std::vector<std::string> words{"verify", "list.p7s", "--chain", "--with", "sub.crl", "--with", "root.crl"};
    std::vector<std::string> required = words;
    required.emplace_back("--require-revocation");
    constexpr std::size_t most = std::size_t{4} << 20U;
    withList(most / 2);
    EXPECT_EQ(place.json(words)["chain"]["revocation"]["status"], "good") << "read, and not signed by its issuer";
    EXPECT_EQ(place.cli(required).exit, 0);
    withList(most);
    const Json verdict = place.json(words);
    EXPECT_EQ(verdict["chain"]["revocation"]["status"], "unknown");
    EXPECT_THAT(verdict["not_checked"].dump(), HasSubstr("CRL 1 of the message"));
    EXPECT_EQ(place.cli(words).exit, 0) << "not known is not an error";
    const Outcome refused = place.cli(required);
    EXPECT_EQ(refused.exit, 8) << refused.out;
    EXPECT_THAT(refused.out, HasSubstr("no revocation list at hand"));
}

TEST_F(Chain, SaysThatTheLimitsOfItsSearchAreReached) {
    // More authorities of the issuer's name than are looked at, none of which signed the certificate.
    std::string crowd;
    for (int i = 0; i < 66; ++i) {
        place.openssl().must({"req", "-x509", "-key", "root.key", "-subj", "/CN=sub", "-days", "9", "-set_serial",
                              std::to_string(i + 1), "-out", "one.pem"});
        crowd += read("one.pem");
    }
    place.folder().write("crowd.pem", crowd);
    const Outcome limited = place.cli({"chain", "good.pem", "--with", "crowd.pem"});
    EXPECT_EQ(limited.exit, 8);
    EXPECT_THAT(limited.out, HasSubstr("the limits of the search for issuers are reached"));
}

TEST_F(Chain, RetrievesWhatItsCertificatesNameUnlessOffline) {
    const auto der = [this](const char* kind, const std::string& from) {
        place.openssl().must({kind, "-in", from, "-outform", "DER", "-out", "served.der"});
        return read("served.der");
    };
    list();
    const std::map<std::string, std::string> served{{"/sub.cer", der("x509", "sub.pem")},
                                                    {"/sub.crl", der("crl", "sub.crl")}};
    const test_servers::HttpServer server([&](const test_servers::Request& request) {
        const auto found = served.find(request.target);
        return found == served.end() ? test_servers::Reply{.status = "404 Not Found"}
                                     : test_servers::Reply{.body = found->second};
    });
    const auto online = [&](const std::string& name, int serial) {
        pki.issue(name, "sub", serial,
                  {"keyUsage=critical,digitalSignature", "authorityInfoAccess=caIssuers;URI:" + server.url("/sub.cer"),
                   "crlDistributionPoints=URI:" + server.url("/sub.crl")});
    };
    online("fine", 5);
    online("gone", 4);
    RunOptions options;
    options.environment = {{"XDG_CACHE_HOME", place.folder() / "cache"},
                           {"KLUNORTREDI_PRIVATE_ADDRESSES", "127.0.0.1"}};
    const Outcome offline = place.cli({"chain", "fine.pem", "--offline"}, options);
    EXPECT_EQ(offline.exit, 8) << offline.out;
    EXPECT_TRUE(server.requests().empty());
    const Outcome fine = place.cli({"chain", "fine.pem"}, options);
    EXPECT_EQ(fine.exit, 0) << fine.out << fine.err;
    EXPECT_THAT(fine.out, HasSubstr("revocation  good"));
    const Outcome gone = place.cli({"chain", "gone.pem"}, options);
    EXPECT_EQ(gone.exit, 8);
    EXPECT_THAT(gone.out, HasSubstr("revoked since 2026-01-02"));
    EXPECT_EQ(server.requests().size(), 2U) << "the second time, both are kept";
    EXPECT_EQ(place.cli({"chain", "fine.pem", "--require-revocation"}, options).exit, 8) << "of sub nothing is known";
}

TEST_F(Chain, IsJudgedAtATime) {
    ASSERT_EQ(place.cli({"certs", "add", "sub.pem", "--store", "ca"}).exit, 0);
    for (const char* time :
         {"2049-01-01", "2049-01-01T00:00:00Z", "2049-01-01t12:30:59.5z", "2049-01-01T00:00:00+00:00"}) {
        const Outcome late = place.cli({"chain", "good.pem", "--at", time});
        EXPECT_EQ(late.exit, 8) << time;
        EXPECT_THAT(late.out, HasSubstr("it has expired at 2049-01-01T")) << time;
    }
    EXPECT_THAT(place.cli({"chain", "good.pem", "--at", "2020-02-29"}).out, HasSubstr("it is not yet valid at 2020-"));
    for (const char* time : {"2026-02-30", "yesterday", "2026-11-20T12:00:00", "2026-11-20T12:00:00+03:00",
                             "1600-01-01", "2026-11-20T24:00:00Z", "timestamp", "signing", ""}) {
        EXPECT_EQ(place.cli({"chain", "good.pem", std::string("--at=") + time}).exit, 2) << time;
    }
}

TEST_F(Chain, TakesIssuersAndListsOfEveryForm) {
    list();
    const auto& openssl = place.openssl();
    openssl.must({"x509", "-in", "sub.pem", "-outform", "DER", "-out", "sub.der"});
    openssl.must({"crl2pkcs7", "-in", "sub.crl", "-certfile", "sub.pem", "-outform", "DER", "-out", "sub.p7b"});
    openssl.must({"crl2pkcs7", "-in", "sub.crl", "-certfile", "sub.pem", "-out", "p7b.pem"});
    openssl.must({"crl", "-in", "sub.crl", "-outform", "DER", "-out", "crl.der"});
    openssl.must({"base64", "-in", "sub.der", "-out", "sub.b64"});
    place.folder().write("many.pem", "Bag of\n" + read("good.key") + "text\n" + read("sub.pem") + read("root.crl") +
                                         read("sub.crl") + read("root.pem"));
    for (const char* file : {"sub.der", "sub.p7b", "p7b.pem", "sub.b64", "many.pem"}) {
        const Outcome result = place.cli({"chain", "good.pem", "--with", file});
        EXPECT_EQ(result.exit, 0) << file << result.out << result.err;
    }
    for (const char* file : {"sub.p7b", "p7b.pem", "many.pem"}) {
        EXPECT_EQ(place.json({"chain", "bad.pem", "--with", file})["revocation"]["status"], "revoked") << file;
    }
    EXPECT_EQ(place.json({"chain", "bad.pem", "--with", "sub.der", "--with", "crl.der"})["status"], 4);
}

TEST_F(Chain, DoesNotTrustWhatIsBrought) {
    pki.root("stranger");
    pki.issue("friend", "stranger", 9);
    const Outcome result = place.cli({"chain", "friend.pem", "--with", "stranger.pem"});
    EXPECT_EQ(result.exit, 8);
    EXPECT_THAT(result.out, HasSubstr("2 CN=stranger\n      it is a root that this machine does not trust"));
}

TEST_F(Chain, RefusesFilesThatBringNothing) {
    place.folder().write("empty.pem", "");
    place.folder().write("text.pem", "no certificate in here\n");
    place.folder().write("open.pem", "-----BEGIN CERTIFICATE-----\nMIIB\n");
    std::string wrong = read("sub.pem");
    for (auto at = wrong.find("CERTIFICATE"); at != std::string::npos; at = wrong.find("CERTIFICATE")) {
        wrong.replace(at, 11, "X509 CRL");
    }
    place.folder().write("label.pem", wrong);
    wrong.replace(wrong.find("X509 CRL"), 8, "CERTIFICATE"); // the END line keeps its label
    place.folder().write("labels.pem", wrong);
    place.openssl().must({"x509", "-in", "sub.pem", "-outform", "DER", "-out", "sub.der"});
    place.folder().write("more.der", read("sub.der") + "x");
    place.folder().write("cut.der", read("sub.der").substr(0, 100));
    for (const char* file : {"empty.pem", "text.pem", "open.pem", "label.pem", "labels.pem", "more.der", "cut.der",
                             "good.key", "missing.pem", "."}) {
        EXPECT_EQ(place.cli({"chain", "good.pem", "--with", file}).exit, 3) << file;
        EXPECT_EQ(place.cli({"certs", "add", file, "--store", "ca"}).exit, 3) << file;
    }
}

TEST_F(Chain, TrustsOnlyTheAnchorsThatAreNamed) {
    pki.root("other");
    pki.issue("friend", "other", 9);
    EXPECT_EQ(place.cli({"chain", "friend.pem", "--anchor", "other.pem"}).exit, 0);
    const Outcome instead = place.cli({"chain", "good.pem", "--with", "sub.pem", "--anchor", "other.pem"});
    EXPECT_EQ(instead.exit, 8) << "store root does not count";
    EXPECT_EQ(place.cli({"chain", "good.pem", "--anchor", "sub.pem"}).exit, 0) << "an anchor need not be a root";
    pki.list("other", {});
    EXPECT_EQ(place.cli({"chain", "friend.pem", "--anchor", "other.crl"}).exit, 3) << "a CRL is not an anchor";
}

TEST_F(Chain, RefusesAnchorsWithAnotherService) {
    const auto service = std::filesystem::path(KLUNORTREDI).parent_path().parent_path() / "lib/libklunortredi_csp.so";
    std::filesystem::copy(std::filesystem::canonical(service), place.folder() / "other.so");
    const Outcome result =
        place.cli({"chain", "good.pem", "--anchor", "root.pem", "--service", place.folder() / "other.so"});
    EXPECT_EQ(result.exit, 4) << result.out;
    EXPECT_THAT(result.err, HasSubstr("cannot use --anchor"));
}

TEST_F(Chain, IsJudgedForAUsage) {
    pki.issue("server", "root", 20, {"extendedKeyUsage=serverAuth"});
    for (const char* usage : {"server-auth", "1.3.6.1.5.5.7.3.1", "any"}) {
        EXPECT_EQ(place.cli({"chain", "server.pem", "--usage", usage}).exit, 0) << usage;
    }
    for (const char* usage :
         {"email", "client-auth", "code-signing", "time-stamping", "ocsp-signing", "document-signing", "1.2.3.4"}) {
        const Outcome result = place.cli({"chain", "server.pem", "--usage", usage});
        EXPECT_EQ(result.exit, 8) << usage;
        EXPECT_THAT(result.out, HasSubstr("is not for ")) << usage;
    }
    EXPECT_EQ(place.cli({"chain", "good.pem", "--with", "sub.pem", "--usage", "email"}).exit, 0)
        << "a certificate without extended key usage is for all";
    for (const char* usage : {"mail", "1.2.x", "1", "."}) {
        EXPECT_EQ(place.cli({"chain", "server.pem", "--usage", usage}).exit, 2) << usage;
    }
}

TEST_F(Chain, NamesWeakKeys) {
    pki.issue("weak", "root", 30, {"keyUsage=digitalSignature"}, "rsa:1024");
    pki.issue("broken", "root", 31, {"keyUsage=digitalSignature"}, "rsa:512");
    const Json weak = place.json({"chain", "weak.pem"});
    EXPECT_EQ(weak["trusted"], true) << weak.dump();
    EXPECT_THAT(weak["elements"][0]["weak"], Not(IsEmpty()));
    const Json broken = place.json({"chain", "broken.pem"});
    EXPECT_EQ(broken["trusted"], false);
    EXPECT_THAT(broken["status_names"], Contains("CERT_TRUST_HAS_WEAK_SIGNATURE"));
}

} // namespace
} // namespace cli_test
