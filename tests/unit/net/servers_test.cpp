// The test servers, judged by the openssl command: what should be good is, and each misbehaviour shows.

#include "net/fetch.hpp"
#include "support/openssl.hpp"
#include "support/servers/authority.hpp"

#include <gmock/gmock.h>

namespace {

using namespace std::chrono_literals;
using klunortredi::net::fetch;
using klunortredi::net::HttpRequest;
using klunortredi::net::NetworkError;
using test_servers::Authority;
using test_servers::KeyKind;
using testing::HasSubstr;

class Servers : public testing::Test {
protected:
    std::string answer(const Authority& authority, const std::string& path, const std::string& body = {}) const {
        HttpRequest request;
        request.url = authority.url(path);
        request.method = body.empty() ? "GET" : "POST";
        request.body = body;
        request.contentType = "application/octet-stream";
        request.privateAddressesAllowed = true;
        request.limits.totalTimeout = 2s;
        return fetch(request).body;
    }

    /// The words of openssl about the token of /tsa?word.
    std::string judgeToken(Authority& authority, const std::string& word) const {
        folder_.write("root.pem", authority.rootPem());
        folder_.write("data", "data");
        openssl_.must({"ts", "-query", "-data", "data", "-sha256", "-cert", "-out", "q"});
        const auto query = test_support::readFile(folder_ / "q");
        folder_.write("r", answer(authority, "/tsa?" + word, query));
        const auto verdict = openssl_.run({"ts", "-verify", "-queryfile", "q", "-in", "r", "-CAfile", "root.pem"});
        return verdict.out + verdict.err;
    }

    std::string judgeOcsp(Authority& authority, const std::string& word) const {
        folder_.write("root.pem", authority.rootPem());
        folder_.write("ca.pem", authority.issuerPem());
        openssl_.must({"ocsp", "-issuer", "ca.pem", "-serial", "0x65", "-reqout", "q"});
        folder_.write("r", answer(authority, "/ocsp?" + word, test_support::readFile(folder_ / "q")));
        const auto verdict = openssl_.run(
            {"ocsp", "-issuer", "ca.pem", "-serial", "0x65", "-respin", "r", "-CAfile", "root.pem", "-no_nonce"});
        return verdict.out + verdict.err;
    }

    test_support::TempFolder folder_;
    test_support::Openssl openssl_{folder_};
};

TEST_F(Servers, GiveTokensThatOpensslAccepts) {
    for (const auto kind : {KeyKind::rsa, KeyKind::gost2012_256, KeyKind::gost2012_512, KeyKind::ec}) {
        Authority authority(kind);
        EXPECT_THAT(judgeToken(authority, ""), HasSubstr("Verification: OK")) << static_cast<int>(kind);
    }
}

TEST_F(Servers, GiveTokensThatOpensslRefuses) {
    Authority authority;
    for (const char* word :
         {"no-certificate", "other-nonce", "no-nonce", "other-imprint", "other-imprint-algorithm", "rejected",
          "rejected-with-token", "no-token", "expired", "missing-usage", "usage-not-critical", "more-usages",
          "other-key", "other-certificate-id", "no-certificate-id", "untrusted", "garbage", "html", "empty"}) {
        EXPECT_THAT(judgeToken(authority, word), testing::Not(HasSubstr("Verification: OK"))) << word;
    }
}

TEST_F(Servers, GiveOcspAnswers) {
    Authority authority(KeyKind::gost2012_256);
    EXPECT_THAT(judgeOcsp(authority, ""), testing::AllOf(HasSubstr("verify OK"), HasSubstr("0x65: good")));
    EXPECT_THAT(judgeOcsp(authority, "revoked"), HasSubstr("0x65: revoked"));
    EXPECT_THAT(judgeOcsp(authority, "unknown"), HasSubstr("0x65: unknown"));
    EXPECT_THAT(judgeOcsp(authority, "expired"), HasSubstr("status expired"));
    EXPECT_THAT(judgeOcsp(authority, "other-certificate"), HasSubstr("No Status found"));
    EXPECT_THAT(judgeOcsp(authority, "try-later"), HasSubstr("trylater"));
    for (const char* word : {"unauthorised", "no-responder", "damaged"}) {
        EXPECT_THAT(judgeOcsp(authority, word), HasSubstr("Verify Failure")) << word;
    }
}

TEST_F(Servers, GiveListsAndCertificates) {
    Authority authority;
    const auto leaf = authority.issue();
    folder_.write("ca.pem", authority.issuerPem());
    folder_.write("crl", answer(authority, "/crl"));
    const auto good = openssl_.run({"crl", "-inform", "DER", "-in", "crl", "-CAfile", "ca.pem", "-noout", "-text"});
    EXPECT_THAT(good.out + good.err, testing::AllOf(HasSubstr("verify OK"), HasSubstr("No Revoked")));
    authority.revoke(leaf.certificate);
    folder_.write("crl", answer(authority, "/crl"));
    EXPECT_THAT(openssl_.run({"crl", "-inform", "DER", "-in", "crl", "-noout", "-text"}).out,
                HasSubstr("Serial Number: 64"));
    folder_.write("root.pem", authority.rootPem());
    folder_.write("leaf.pem", test_servers::toPem(leaf.certificate));
    EXPECT_THAT(openssl_.run({"verify", "-CAfile", "root.pem", "-untrusted", "ca.pem", "leaf.pem"}).out,
                HasSubstr("leaf.pem: OK"));
    folder_.write("ca.p7c", answer(authority, "/ca.p7c"));
    EXPECT_THAT(openssl_.run({"pkcs7", "-inform", "DER", "-in", "ca.p7c", "-print_certs", "-noout"}).out,
                HasSubstr("Test issuer"));
    EXPECT_EQ(answer(authority, "/ca.cer?pem"), authority.issuerPem());
}

TEST_F(Servers, MisbehaveAsHttpServersDo) {
    Authority authority;
    for (const char* word : {"404", "500", "slow", "cut", "loop", "to-file", "to-private", "huge", "endless"}) {
        HttpRequest request;
        request.url = authority.url(std::string("/crl?") + word);
        request.privateAddressesAllowed = true;
        request.limits.totalTimeout = 200ms;
        EXPECT_THROW(fetch(request), NetworkError) << word;
    }
}

} // namespace
