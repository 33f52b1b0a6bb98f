// Time-stamps: put on signatures, and judged.

#include "cli/workplace.hpp"
#include "support/servers/authority.hpp"
#include "support/servers/openssl_objects.hpp"

#include <gmock/gmock.h>
#include <openssl/cms.h>
#include <openssl/pem.h>

#include <filesystem>
#include <sstream>

namespace cli_test {
namespace {

using test_servers::Authority;
using test_servers::KeyKind;
using test_servers::Owned;
using testing::HasSubstr;
using Message = Owned<CMS_ContentInfo, CMS_ContentInfo_free>;

Message message(const std::string& der) {
    const auto* at = reinterpret_cast<const unsigned char*>(der.data());
    return Message(d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(der.size())));
}

CMS_SignerInfo* firstSigner(const Message& of) {
    return sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(of.get()), 0);
}

ASN1_TYPE* tokenOf(const Message& of) {
    const int at = CMS_unsigned_get_attr_by_NID(firstSigner(of), NID_id_smime_aa_timeStampToken, -1);
    return at < 0 ? nullptr : X509_ATTRIBUTE_get0_type(CMS_unsigned_get_attr(firstSigner(of), at), 0);
}

/// The content of the token in a signature.
std::string timestampInfo(const std::string& signature) {
    const Message stamped = message(signature);
    const ASN1_STRING* const octets = tokenOf(stamped)->value.sequence;
    const Message token = message({reinterpret_cast<const char*>(ASN1_STRING_get0_data(octets)),
                                   static_cast<std::size_t>(ASN1_STRING_length(octets))});
    const ASN1_OCTET_STRING* const content = *CMS_get0_content(token.get());
    return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(content)),
            static_cast<std::size_t>(ASN1_STRING_length(content))};
}

class Timestamp : public testing::Test {
protected:
    Timestamp() {
        place_.makeSigner("one");
        place_.folder().write("root.pem", authority_.rootPem());
        sign("report.txt");
    }

    void sign(const std::string& file) const {
        const Outcome signing = place_.cliWithPin({"sign", file, "--cert", "Signer one"});
        ASSERT_EQ(signing.exit, 0) << signing.err;
    }
    [[nodiscard]] Outcome stamp(const std::vector<std::string>& paths, const std::string& out = "stamped.sig") const {
        std::vector<std::string> words{"timestamp", "report.txt.sig", "--out", out};
        for (const std::string& path : paths) {
            words.insert(words.end(), {"--url", authority_.url(path)});
        }
        return place_.cli(words);
    }
    [[nodiscard]] Json verify(std::vector<std::string> more = {}, const std::string& file = "stamped.sig") const {
        std::vector<std::string> words{"verify", file, "--content", "report.txt"};
        words.insert(words.end(), more.begin(), more.end());
        return place_.json(words);
    }
    [[nodiscard]] std::vector<std::string> chain(std::vector<std::string> more = {}) const {
        std::vector<std::string> words{"--chain", "--anchor", "ca.pem", "--anchor", "root.pem"};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
    [[nodiscard]] bool exists(const std::string& name) const { return std::filesystem::exists(place_.folder() / name); }
    /// The token of `from` on the signature `onto`.
    void moveToken(const std::string& from, const std::string& onto, const std::string& out) const {
        const Message source = message(place_.folder().read(from));
        const Message target = message(place_.folder().read(onto));
        const ASN1_STRING* const token = tokenOf(source)->value.sequence;
        ASSERT_EQ(CMS_unsigned_add1_attr_by_NID(firstSigner(target), NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                                ASN1_STRING_get0_data(token), ASN1_STRING_length(token)),
                  1);
        place_.folder().write(out, test_servers::toDer(target.get(), i2d_CMS_ContentInfo));
    }

    /// The CRL of the root, which issued the authority, with this reason in every entry; a negative one leaves it out.
    [[nodiscard]] std::string crlWithReason(int reason) {
        const std::string der = authority_.rootCrl();
        const auto* at = reinterpret_cast<const unsigned char*>(der.data());
        const Owned<X509_CRL, X509_CRL_free> list(d2i_X509_CRL(nullptr, &at, static_cast<long>(der.size())));
        const Owned<ASN1_ENUMERATED, ASN1_ENUMERATED_free> value(ASN1_ENUMERATED_new());
        ASN1_ENUMERATED_set(value.get(), reason);
        STACK_OF(X509_REVOKED)* const entries = X509_CRL_get_REVOKED(list.get());
        for (int i = 0; reason >= 0 && i < sk_X509_REVOKED_num(entries); ++i) {
            X509_REVOKED_add1_ext_i2d(sk_X509_REVOKED_value(entries, i), NID_crl_reason, value.get(), 0, 0);
        }
        EVP_PKEY* const key = authority_.root().key.get();
        EXPECT_GT(X509_CRL_sign(list.get(), key, test_servers::digestOf(authority_.kind())), 0);
        return test_servers::toDer(list.get(), i2d_X509_CRL);
    }

    /// DER of the authority's certificate.
    [[nodiscard]] std::string timestampCertificate() {
        const std::string pem = authority_.timestampPem();
        const Owned<BIO, BIO_free_all> in(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
        const Owned<X509, X509_free> certificate(PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr));
        return test_servers::toDer(certificate.get(), i2d_X509);
    }

    /// bare.sig: the signature with a token that does not carry its authority's certificate.
    void makeBare() {
        ASSERT_EQ(stamp({"/tsa"}).exit, 0);
        const std::string bare = test_servers::signedToken(
            authority_, timestampInfo(place_.folder().read("stamped.sig")), {"no-certificate"});
        const Message target = message(place_.folder().read("report.txt.sig"));
        ASSERT_EQ(CMS_unsigned_add1_attr_by_NID(firstSigner(target), NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE,
                                                bare.data(), static_cast<int>(bare.size())),
                  1);
        place_.folder().write("bare.sig", test_servers::toDer(target.get(), i2d_CMS_ContentInfo));
    }
    /// The message with more certificates (DER).
    void addCertificates(const std::string& to, const std::vector<std::string>& certificates, const std::string& out) {
        const Message target = message(place_.folder().read(to));
        for (const std::string& der : certificates) {
            const auto* at = reinterpret_cast<const unsigned char*>(der.data());
            const Owned<X509, X509_free> certificate(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
            ASSERT_EQ(CMS_add1_cert(target.get(), certificate.get()), 1);
        }
        place_.folder().write(out, test_servers::toDer(target.get(), i2d_CMS_ContentInfo));
    }

    Workplace place_;
    Authority authority_{KeyKind::gost2012_256};
};

TEST_F(Timestamp, IsPutOnASignatureAndOtherToolsAcceptBoth) {
    const Outcome made = stamp({"/tsa"});
    ASSERT_EQ(made.exit, 0) << made.err;
    EXPECT_THAT(made.out, HasSubstr("Time-stamp authority"));
    const Outcome judged = place_.openssl().run({"cms", "-verify", "-inform", "DER", "-in", "stamped.sig", "-content",
                                                 "report.txt", "-binary", "-CAfile", "ca.pem", "-out", "openssl.out"});
    EXPECT_EQ(judged.exit, 0) << judged.err;

    const Message stamped = message(place_.folder().read("stamped.sig"));
    const ASN1_STRING* const token = tokenOf(stamped)->value.sequence;
    const ASN1_STRING* const value = CMS_SignerInfo_get0_signature(firstSigner(stamped));
    const auto write = [&](const std::string& name, const ASN1_STRING* string) {
        place_.folder().write(name, {reinterpret_cast<const char*>(ASN1_STRING_get0_data(string)),
                                     static_cast<std::size_t>(ASN1_STRING_length(string))});
    };
    write("token.der", token);
    write("value.bin", value);
    place_.folder().write("issuer.pem", authority_.issuerPem());
    const Outcome token_ok = place_.openssl().run({"ts", "-verify", "-token_in", "-in", "token.der", "-data",
                                                   "value.bin", "-CAfile", "root.pem", "-untrusted", "issuer.pem"});
    EXPECT_EQ(token_ok.exit, 0) << token_ok.err;
}

TEST_F(Timestamp, IsJudgedForEverySignerAndShown) {
    ASSERT_EQ(stamp({"/tsa"}).exit, 0);
    const Json verdict = verify();
    EXPECT_EQ(verdict["valid"], true);
    EXPECT_EQ(verdict["timestamp"]["valid"], true);
    EXPECT_EQ(verdict["timestamp"]["time"].get<std::string>().size(), 20U);
    EXPECT_EQ(verdict["timestamp"]["authority"], "CN=Time-stamp authority");
    EXPECT_EQ(verdict["signers"][0]["timestamps"].size(), 1U);
    EXPECT_EQ(verdict["not_checked"],
              Json::array({"certificate chain", "certificate chain of the time-stamp authority"}));
}

TEST_F(Timestamp, OfATrustedAuthorityGivesTheTimeOfTheSignersChain) {
    ASSERT_EQ(stamp({"/tsa"}).exit, 0);
    const Json verdict = verify(chain());
    EXPECT_EQ(verdict["timestamp"]["chain"]["trusted"], true);
    EXPECT_EQ(verdict["chain"]["trusted"], true);
    EXPECT_EQ(verdict["signers"][0]["chain_time"], verdict["timestamp"]["time"]);
    EXPECT_EQ(verdict["not_checked"], Json::array());
}

TEST_F(Timestamp, OfAnUntrustedAuthorityProvesNoTime) {
    ASSERT_EQ(stamp({"/tsa?untrusted"}).exit, 0) << "trust is judged by who verifies";
    const Json now = verify(chain());
    EXPECT_EQ(now["timestamp"]["valid"], true);
    EXPECT_EQ(now["timestamp"]["chain"]["trusted"], false);
    EXPECT_EQ(now["signers"][0]["chain_time"], "");
    EXPECT_EQ(now["chain"]["trusted"], true) << "the signer's own, now";
    const Json demanded = verify(chain({"--at", "timestamp"}));
    EXPECT_EQ(demanded["chain"]["trusted"], false);
    EXPECT_EQ(demanded["chain"]["status_names"], Json::array({"CERT_TRUST_IS_NOT_TIME_VALID"}));
}

TEST_F(Timestamp, OfAnAuthorityWhoseKeyIsInDoubtProvesNoTime) {
    ASSERT_EQ(stamp({"/tsa?hour-ago"}).exit, 0);
    EXPECT_NE(verify(chain())["signers"][0]["chain_time"], "") << "trusted as long as nothing is revoked";
    authority_.revoke(authority_.timestamping({}).certificate);
    const auto judged = [&](int reason) {
        place_.folder().write("root.crl", crlWithReason(reason));
        return verify(chain({"--with", "root.crl"}));
    };
    constexpr int none = -1;
    for (const int reason : {none, CRL_REASON_KEY_COMPROMISE, CRL_REASON_CA_COMPROMISE, CRL_REASON_CERTIFICATE_HOLD,
                             CRL_REASON_PRIVILEGE_WITHDRAWN}) {
        const Json verdict = judged(reason);
        EXPECT_EQ(verdict["timestamp"]["chain"]["trusted"], false) << reason;
        EXPECT_EQ(verdict["timestamp"]["chain"]["revocation"]["status"], "revoked") << reason;
        EXPECT_EQ(verdict["signers"][0]["chain_time"], "") << reason;
    }
    for (const int reason : {CRL_REASON_UNSPECIFIED, CRL_REASON_AFFILIATION_CHANGED, CRL_REASON_SUPERSEDED,
                             CRL_REASON_CESSATION_OF_OPERATION}) {
        const Json verdict = judged(reason);
        EXPECT_EQ(verdict["timestamp"]["chain"]["trusted"], true) << reason;
        EXPECT_EQ(verdict["signers"][0]["chain_time"], verdict["timestamp"]["time"]) << reason;
    }
}

TEST_F(Timestamp, AtTimestampRequiresOne) {
    std::vector<std::string> words{"verify", "report.txt.sig"};
    const auto more = chain({"--at", "timestamp"});
    words.insert(words.end(), more.begin(), more.end());
    EXPECT_EQ(place_.cli(words).exit, 8);
}

TEST_F(Timestamp, MovedToAnotherSignatureIsNamedAndHarmsNothing) {
    ASSERT_EQ(stamp({"/tsa"}).exit, 0);
    place_.folder().write("other.txt", "Another report.\n");
    sign("other.txt");
    moveToken("stamped.sig", "other.txt.sig", "moved.sig");
    const Json verdict = place_.json({"verify", "moved.sig", "--content", "other.txt"});
    EXPECT_EQ(verdict["valid"], true);
    EXPECT_EQ(verdict["timestamp"]["valid"], false);
    EXPECT_THAT(verdict["timestamp"]["reason"].get<std::string>(), HasSubstr("imprint"));
    const Outcome shown = place_.cli({"verify", "moved.sig", "--content", "other.txt"});
    EXPECT_EQ(shown.exit, 0);
    EXPECT_THAT(shown.out, HasSubstr("INVALID"));
    const Outcome strict = place_.cli({"verify", "moved.sig", "--content", "other.txt", "--strict"});
    EXPECT_EQ(strict.exit, 1);
    EXPECT_THAT(strict.out, HasSubstr("time-stamp"));
}

/// One call judges a signature for each octet of its token. The token is not valid, or it states the same; the
/// signature stays valid, where the message as a whole is still well-formed.
TEST_F(Timestamp, WithAnyOctetChangedIsNotValidOrStatesTheSame) {
    ASSERT_EQ(stamp({"/tsa"}).exit, 0);
    const Json good = verify()["timestamp"];
    const std::string whole = place_.folder().read("stamped.sig");
    const Message stamped = message(whole);
    const ASN1_STRING* const octets = tokenOf(stamped)->value.sequence;
    const auto size = static_cast<std::size_t>(ASN1_STRING_length(octets));
    const std::size_t begin = whole.find({reinterpret_cast<const char*>(ASN1_STRING_get0_data(octets)), size});
    ASSERT_NE(begin, std::string::npos);
    std::string list;
    for (std::size_t at = 0; at < size; ++at) {
        std::string changed = whole;
        changed[begin + at] = static_cast<char>(changed[begin + at] ^ 1);
        const std::string name = std::to_string(at);
        place_.folder().write(name + ".sig", changed);
        std::filesystem::create_hard_link(place_.folder() / "report.txt", place_.folder() / name);
        list += name + ".sig\n";
    }
    place_.folder().write("list", list);

    std::istringstream lines(place_.cli({"verify", "--json-lines", "--files-from", "list"}).out);
    std::size_t judged = 0;
    std::size_t same = 0;
    for (std::string line; std::getline(lines, line); ++judged) {
        const Json verdict = Json::parse(line);
        if (!verdict.contains("valid")) {
            EXPECT_EQ(verdict["error"]["kind"], "input") << line;
            continue;
        }
        EXPECT_EQ(verdict["valid"], true) << line;
        const Json& timestamp = verdict["timestamp"];
        if (timestamp["valid"] == true) {
            ++same;
            EXPECT_EQ(timestamp, good) << line;
        }
    }
    EXPECT_EQ(judged, size);
    EXPECT_LE(same, 2U) << "the versions of the token and of its signer";
}

TEST_F(Timestamp, WithoutItsCertificateIsJudgedByOneOfTheStoresOrOfWith) {
    makeBare();
    place_.folder().write("tsa.pem", authority_.timestampPem());
    place_.folder().write("issuer.pem", authority_.issuerPem());

    const Json unknown = verify({}, "bare.sig")["timestamp"];
    EXPECT_EQ(unknown["valid"], nullptr);
    EXPECT_THAT(unknown["reason"].get<std::string>(), HasSubstr("neither in it nor at hand"));
    const Json with =
        verify(chain({"--offline", "--with", "tsa.pem", "--with", "issuer.pem"}), "bare.sig")["timestamp"];
    EXPECT_EQ(with["valid"], true) << with;
    EXPECT_EQ(with["chain"]["trusted"], true) << with;
    ASSERT_EQ(place_.cli({"certs", "add", "tsa.pem", "--store", "ca"}).exit, 0);
    EXPECT_EQ(verify({}, "bare.sig")["timestamp"]["valid"], true);
}

TEST_F(Timestamp, WithoutItsCertificateIsNotHarmedByCertificatesThatSomebodyAdded) {
    makeBare();
    place_.folder().write("tsa.pem", authority_.timestampPem());
    ASSERT_EQ(place_.cli({"certs", "add", "tsa.pem", "--store", "ca"}).exit, 0);
    const std::string own = timestampCertificate();
    std::vector<std::string> namesakes;
    for (char changed = 0; changed < 20; ++changed) {
        namesakes.push_back(own);
        namesakes.back().back() = changed;
    }
    addCertificates("bare.sig", namesakes, "crowded.sig");
    EXPECT_EQ(verify({}, "crowded.sig")["timestamp"]["valid"], true);

    std::string malformed = own;
    const std::size_t notBefore = malformed.find("\x17\x0D"); // UTCTime
    ASSERT_NE(notBefore, std::string::npos);
    malformed.replace(notBefore + 4, 2, "99"); // the month
    addCertificates("bare.sig", {malformed}, "malformed.sig");
    EXPECT_EQ(verify({}, "malformed.sig")["timestamp"]["valid"], true);
}

TEST_F(Timestamp, SecondOneIsKeptBesideTheFirst) {
    ASSERT_EQ(stamp({"/tsa"}).exit, 0);
    ASSERT_EQ(place_.cli({"timestamp", "stamped.sig", "--url", authority_.url("/tsa"), "--out", "twice.sig"}).exit, 0);
    const Json verdict = verify({}, "twice.sig");
    EXPECT_EQ(verdict["signers"][0]["timestamps"].size(), 2U);
    EXPECT_EQ(verdict["signers"][0]["timestamps"][0]["valid"], true);
    EXPECT_EQ(verdict["signers"][0]["timestamps"][1]["valid"], true);
}

TEST_F(Timestamp, NoAnswerThatIsNotAcceptableIsWritten) {
    const struct {
        const char* path;
        const char* reason;
    } rows[] = {
        {"/tsa?other-nonce", "nonce"},      {"/tsa?rejected", "status 2"},   {"/tsa?no-token", "no token"},
        {"/tsa?html", "text/html"},         {"/tsa?500", "HTTP status 500"}, {"/tsa?cut", ""},
        {"/tsa?garbage", "cannot be read"},
    };
    for (const auto& row : rows) {
        const Outcome failed = stamp({row.path});
        EXPECT_EQ(failed.exit, 7) << row.path << failed.err;
        EXPECT_THAT(failed.err, HasSubstr(row.reason));
        EXPECT_THAT(failed.err, HasSubstr(row.path)) << "which authority";
        EXPECT_FALSE(exists("stamped.sig")) << row.path;
    }
}

TEST_F(Timestamp, NextAuthorityIsAskedWhenOneFails) {
    const Outcome made = stamp({"/tsa?500", "/tsa?other-nonce", "/tsa"});
    EXPECT_EQ(made.exit, 0) << made.err;
    EXPECT_EQ(verify()["timestamp"]["valid"], true);
}

TEST_F(Timestamp, IsPutOnANewSignatureInOneGo) {
    for (const char* const format : {"detached", "attached"}) {
        const Outcome signing = place_.cliWithPin({"sign", "report.txt", "--cert", "Signer one", "--format", format,
                                                   "--out", "new.sig", "--force", "--timestamp",
                                                   authority_.url("/tsa?500"), "--timestamp", authority_.url("/tsa")});
        ASSERT_EQ(signing.exit, 0) << signing.err;
        const Json verdict = verify({}, "new.sig");
        EXPECT_EQ(verdict["valid"], true);
        EXPECT_EQ(verdict["timestamp"]["valid"], true);
        std::vector<std::string> words{"cms",     "-verify", "-inform", "DER",  "-in",        "new.sig",
                                       "-binary", "-CAfile", "ca.pem",  "-out", "openssl.out"};
        if (std::string(format) == "detached") {
            words.insert(words.end(), {"-content", "report.txt"});
        }
        const Outcome judged = place_.openssl().run(words);
        EXPECT_EQ(judged.exit, 0) << judged.err;
        EXPECT_EQ(place_.folder().read("openssl.out"), place_.folder().read("report.txt"));
    }
}

TEST_F(Timestamp, ThatCannotBeHadLeavesNoNewSignature) {
    const Outcome signing = place_.cliWithPin({"sign", "report.txt", "--cert", "Signer one", "--out", "new.sig",
                                               "--timestamp", authority_.url("/tsa?rejected")});
    EXPECT_EQ(signing.exit, 7) << signing.err;
    EXPECT_FALSE(exists("new.sig"));
    EXPECT_EQ(place_
                  .cliWithPin(
                      {"sign", "report.txt", "--cert", "Signer one", "--out", "new.sig", "--timestamp", "tsa.example"})
                  .exit,
              2);
}

TEST_F(Timestamp, NeedsAnAddressAndAnOutput) {
    EXPECT_EQ(place_.cli({"timestamp", "report.txt.sig"}).exit, 2);
    EXPECT_EQ(place_.cli({"timestamp", "report.txt.sig", "--url", "file:///etc/passwd", "--out", "x"}).exit, 2);
    EXPECT_EQ(place_.cli({"timestamp", "report.txt.sig", "--url", authority_.url("/tsa")}).exit, 2);
    EXPECT_EQ(place_.cli({"timestamp", "report.txt.sig", "--url", authority_.url("/tsa"), "--force"}).exit, 0);
    EXPECT_EQ(verify({}, "report.txt.sig")["timestamp"]["valid"], true);
    EXPECT_EQ(place_.cli({"timestamp", "report.txt", "--url", authority_.url("/tsa"), "--out", "x"}).exit, 3);
    EXPECT_FALSE(exists("x"));
}

} // namespace
} // namespace cli_test
