// What an answer about a status must be to be believed.

#include "chains/ocsp.hpp"
#include "ocsp_maker.hpp"
#include "x509/x509_der.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

namespace csp = klunortredi::csp;

using csp::OcspAnswer;
using csp::OcspRequest;
using pki::Entity;
using pki::WantedAnswer;
using Nonce = OcspRequest::Nonce;

class Ocsp : public testing::Test {
protected:
    Entity responder(const std::string& usage, const Entity& issuer) const {
        return pki::make(
            {.subject = "Responder", .issuer = &issuer, .serial = 9, .extensions = {{NID_ext_key_usage, usage}}});
    }
    std::optional<OcspAnswer> read(WantedAnswer wanted, Nonce nonce = Nonce::OfThisRequest) const {
        wanted.issuer = &root_;
        return request_.read(pki::answerTo(request_.der(), wanted), nonce, lists_);
    }

    const std::time_t now_ = std::time(nullptr);
    Entity root_ = pki::root("Root");
    Entity leaf_ = pki::make({.subject = "Leaf", .issuer = &root_, .serial = 77});
    OcspRequest request_{leaf_.certificate.get(), root_.certificate.get()};
    std::vector<std::shared_ptr<X509_CRL>> lists_;
};

TEST_F(Ocsp, AnswersOfTheIssuerAreRead) {
    const auto good = read({.thisUpdate = now_ - 50, .nextUpdate = now_ + 50});
    ASSERT_TRUE(good);
    EXPECT_EQ(good->status, OcspAnswer::Status::Good);
    EXPECT_EQ(good->thisUpdate, now_ - 50);
    EXPECT_EQ(good->nextUpdate, now_ + 50);
    const auto revoked = read({.status = V_OCSP_CERTSTATUS_REVOKED, .revoked = now_ - 500, .reason = 1});
    ASSERT_TRUE(revoked);
    EXPECT_EQ(revoked->status, OcspAnswer::Status::Revoked);
    EXPECT_EQ(revoked->revoked, now_ - 500);
    EXPECT_EQ(revoked->reason, 1);
    const auto unknown = read({.status = V_OCSP_CERTSTATUS_UNKNOWN});
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->status, OcspAnswer::Status::Unknown);
}

TEST_F(Ocsp, AnswersOfADelegatedResponderAreRead) {
    const Entity delegate = responder("OCSPSigning", root_);
    EXPECT_TRUE(read({.signer = &delegate, .withCertificate = true}));
    EXPECT_FALSE(read({.signer = &delegate})) << "its certificate is not there";
    const Entity other = responder("clientAuth", root_);
    EXPECT_FALSE(read({.signer = &other, .withCertificate = true}));
    const Entity any = responder("anyExtendedKeyUsage", root_);
    EXPECT_FALSE(read({.signer = &any, .withCertificate = true}));
    const Entity plain = pki::make({.subject = "Plain", .issuer = &root_, .serial = 10});
    EXPECT_FALSE(read({.signer = &plain, .withCertificate = true}));
    const Entity stranger = pki::root("Root");
    EXPECT_FALSE(read({.signer = &stranger, .withCertificate = true})) << "the issuer's name, another key";
    const Entity ofStranger = responder("OCSPSigning", stranger);
    EXPECT_FALSE(read({.signer = &ofStranger, .withCertificate = true}));
    const Entity below = responder("OCSPSigning", pki::intermediate("Sub", root_));
    EXPECT_FALSE(read({.signer = &below, .withCertificate = true})) << "not of the issuer itself";
    const Entity expired = pki::make({.subject = "Expired",
                                      .issuer = &root_,
                                      .serial = 11,
                                      .notAfter = now_ - 10,
                                      .extensions = {{NID_ext_key_usage, "OCSPSigning"}}});
    EXPECT_FALSE(read({.signer = &expired, .withCertificate = true}));
    lists_.emplace_back(csp::ossl::X509CrlPtr([&] {
        const csp::Bytes der = pki::crl(root_, {9});
        const unsigned char* position = der.data();
        return d2i_X509_CRL(nullptr, &position, static_cast<long>(der.size()));
    }()));
    EXPECT_FALSE(read({.signer = &delegate, .withCertificate = true})) << "a list at hand revokes it";
}

TEST_F(Ocsp, AnswersAboutOtherThingsAreNot) {
    EXPECT_FALSE(read({.otherSerial = true}));
    EXPECT_FALSE(read({.twice = true}));
    EXPECT_FALSE(read({.criticalExtension = true}));
    EXPECT_FALSE(read({.digest = EVP_md5()}));
    EXPECT_FALSE(read({.otherNonce = true}));
    EXPECT_TRUE(read({.otherNonce = true}, Nonce::Any)) << "one that was kept";
    EXPECT_FALSE(request_.read(pki::refusal(OCSP_RESPONSE_STATUS_TRYLATER), Nonce::Any, lists_));
    EXPECT_FALSE(request_.read({}, Nonce::Any, lists_));
    EXPECT_FALSE(request_.read(leaf_.der, Nonce::Any, lists_));
}

/// A request names the certificate by its serial number and digests of its issuer's name and key. The issuer signs an
/// answer in which one of them differs, or the digest.
TEST_F(Ocsp, AnswersAboutACertificateOfAnotherIssuerAreNotBelieved) {
    const auto answerAbout = [&](const csp::Bytes& request) { return pki::answerTo(request, {.issuer = &root_}); };
    const auto isBelieved = [&](const csp::Bytes& request) {
        return request_.read(answerAbout(request), Nonce::Any, lists_).has_value();
    };
    const auto idOf = [&](const EVP_MD* digest, const Entity& issuer) {
        const std::unique_ptr<OCSP_REQUEST, csp::ossl::Deleter<OCSP_REQUEST_free>> request(OCSP_REQUEST_new());
        const X509* const named = issuer.certificate.get();
        OCSP_request_add0_id(request.get(),
                             OCSP_cert_id_new(digest, X509_get_subject_name(named), X509_get0_pubkey_bitstr(named),
                                              X509_get0_serialNumber(leaf_.certificate.get())));
        return csp::ossl::toDer(i2d_OCSP_REQUEST, request.get());
    };
    EXPECT_TRUE(isBelieved(idOf(EVP_sha1(), root_)));
    EXPECT_FALSE(isBelieved(idOf(EVP_sha1(), pki::root("Root")))) << "another key";
    EXPECT_FALSE(isBelieved(idOf(EVP_sha1(), pki::make({.subject = "Other", .reuseKey = root_.key.get()}))))
        << "another name";
    EXPECT_FALSE(isBelieved(idOf(EVP_sha256(), root_))) << "not as it was asked";
    csp::Bytes unknownDigest = idOf(EVP_sha1(), root_);
    const csp::Bytes sha1{0x2B, 0x0E, 0x03, 0x02, 0x1A};
    const auto found = std::ranges::search(unknownDigest, sha1);
    ASSERT_FALSE(found.empty());
    found.back() = 0x7F;
    EXPECT_FALSE(isBelieved(unknownDigest)) << "it may be of any issuer";
}

TEST_F(Ocsp, AnswersThatContradictThemselvesUnderAnotherDigestAreNotBelieved) {
    EXPECT_FALSE(read({.alsoRevokedUnder = EVP_sha256()}));
    EXPECT_FALSE(read({.alsoRevokedUnder = EVP_sha1()}));
    EXPECT_FALSE(read({.otherSerial = true, .alsoRevokedUnder = EVP_sha256()})) << "about another certificate alone";
}

TEST_F(Ocsp, AnswersOfTheCertificateAboutItselfAreNotBelieved) {
    const Entity itself = responder("OCSPSigning", root_);
    const OcspRequest request(itself.certificate.get(), root_.certificate.get());
    const WantedAnswer wanted{.issuer = &root_, .signer = &itself, .withCertificate = true};
    EXPECT_FALSE(request.read(pki::answerTo(request.der(), wanted), Nonce::OfThisRequest, lists_));
}

TEST_F(Ocsp, AnswersWithOneOctetChangedAreNotBelieved) {
    const csp::Bytes answer = pki::answerTo(request_.der(), {.issuer = &root_});
    for (std::size_t i = 0; i < answer.size(); ++i) {
        csp::Bytes changed = answer;
        changed[i] ^= 1U;
        const auto read = request_.read(changed, Nonce::OfThisRequest, lists_);
        // The identifier of the responder decides nothing: the signature does, which covers it.
        EXPECT_FALSE(read) << "octet " << i;
        EXPECT_FALSE(request_.read(csp::ByteView(answer).first(i), Nonce::OfThisRequest, lists_)) << i;
    }
}

TEST_F(Ocsp, AnswersProveTheStatusOfTheirTime) {
    using Status = OcspAnswer::Status;
    OcspAnswer answer;
    answer.status = Status::Good;
    answer.thisUpdate = now_;
    answer.nextUpdate = now_ + 1000;
    EXPECT_EQ(statusAt(answer, now_ + 1000), Status::Good);
    EXPECT_EQ(statusAt(answer, now_ + 1001), Status::Unknown);
    EXPECT_EQ(statusAt(answer, now_ - 300), Status::Good) << "the server's clock may be ahead";
    EXPECT_EQ(statusAt(answer, now_ - 301), Status::Unknown) << "an answer of a later time proves nothing";
    answer.nextUpdate.reset();
    EXPECT_EQ(statusAt(answer, now_ + 86400), Status::Good);
    EXPECT_EQ(statusAt(answer, now_ + 86401), Status::Unknown);
    answer.status = Status::Revoked;
    answer.revoked = now_ - 5000;
    EXPECT_EQ(statusAt(answer, now_ - 5000), Status::Revoked) << "an answer of a later time";
    EXPECT_EQ(statusAt(answer, now_ - 5001), Status::Unknown) << "revoked after the time asked about";
    EXPECT_EQ(statusAt(answer, now_ + 1000000), Status::Revoked) << "an old answer";
}

} // namespace
