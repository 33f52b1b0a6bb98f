// Forged signers beside an honest one, judged by the plug-in over the embedded service.

#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/tools_verify.hpp"

#include "asn1/der.hpp"
#include "crafted.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace klunortredi::test;
namespace der = klunortredi::csp::der;
namespace tools = orvik::plugin::wincrypt::tools;
using orvik::plugin::wincrypt::Certificate;
using tools::SignatureVerdict;
using CertificatePtr = boost::shared_ptr<orvik::plugin::crypto::ICertificate>;

std::string text(const Bytes& octets) {
    return {octets.begin(), octets.end()};
}

std::vector<tools::SignerVerdict> judge(const Bytes& message, const CertificatePtr& outside = {}) {
    std::istringstream in(text(message));
    tools::VerifyHooks hooks;
    hooks.certificate = outside;
    return tools::verifySigners(in, boost::none, hooks);
}

class JudgeSigners : public testing::Test {
protected:
    Signer signer = makeSigner(KeyKind::Gost256);
    Bytes content = bytes("content");
    Crafted message = honest(signer, content);
    Crafted forged = message;
};

TEST_F(JudgeSigners, ForgedOnesAfterAGoodOneAreInvalid) {
    forged.signatureValue = Bytes{};
    message.moreSignerInfos.push_back(encodeSignerInfo(signer, forged));
    forged.signatureValue.reset();
    forged.sentAttributes = forged.attributes;
    forged.sentAttributes[1] =
        attribute("1.2.840.113549.1.9.5", {der::element(der::tag::UtcTime, bytes("200101000000Z"))});
    message.moreSignerInfos.insert(message.moreSignerInfos.end(), 200, encodeSignerInfo(signer, forged));
    const auto verdicts = judge(encode(signer, message));
    ASSERT_EQ(verdicts.size(), 202U);
    EXPECT_EQ(verdicts[0].verdict, SignatureVerdict::valid);
    for (std::size_t i = 1; i < verdicts.size(); ++i) {
        EXPECT_EQ(verdicts[i].verdict, SignatureVerdict::invalid) << i;
        EXPECT_EQ(verdicts[i].code, capi::NTE_BAD_SIGNATURE) << i;
    }
}

TEST_F(JudgeSigners, UnknownDigestOfOneSignerIsNotAForgery) {
    forged.signerDigest = algorithm("1.2.3.4");
    message.moreSignerInfos = {encodeSignerInfo(signer, forged)};
    const auto verdicts = judge(encode(signer, message));
    EXPECT_EQ(verdicts[0].verdict, SignatureVerdict::valid);
    EXPECT_EQ(verdicts[1].verdict, SignatureVerdict::unknown);
    EXPECT_EQ(verdicts[1].code, capi::CRYPT_E_UNKNOWN_ALGO);
}

TEST_F(JudgeSigners, SignersCertificateMayComeFromOutside) {
    message.certificates.clear();
    const Bytes encoded = encode(signer, message);
    EXPECT_EQ(judge(encoded)[0].code, capi::CRYPT_E_SIGNER_NOT_FOUND);
    const auto outside = boost::make_shared<Certificate>(text(signer.certificate));
    EXPECT_EQ(judge(encoded, outside)[0].verdict, SignatureVerdict::valid);
    const auto other = boost::make_shared<Certificate>(text(makeSigner(KeyKind::Gost256).certificate));
    EXPECT_EQ(judge(encoded, other)[0].verdict, SignatureVerdict::unknown) << "it names another signer";
}

/// Another certificate of the signer's issuer and serial number, with a key of somebody else.
Bytes twinOf(const Signer& signer) {
    return certificateFor(makeSigner(KeyKind::Gost256), serialOf(signer.certificate));
}

TEST_F(JudgeSigners, TheCertificateShownIsTheOneThatVerified) {
    message.certificates = {twinOf(signer), twinOf(signer), signer.certificate};
    const auto verdicts = judge(encode(signer, message));
    EXPECT_EQ(verdicts[0].verdict, SignatureVerdict::valid);
    EXPECT_EQ(verdicts[0].certificate->raw(), text(signer.certificate));
}

TEST_F(JudgeSigners, CallersCertificateDecidesOverOneOfTheMessageOfTheSameName) {
    const Bytes encoded = encode(signer, message);
    const auto twin = boost::make_shared<Certificate>(text(twinOf(signer)));
    const auto verdicts = judge(encoded, twin);
    EXPECT_EQ(verdicts[0].verdict, SignatureVerdict::invalid);
    EXPECT_EQ(verdicts[0].certificate, twin);
    message.certificates = {twinOf(signer)};
    const auto own = boost::make_shared<Certificate>(text(signer.certificate));
    EXPECT_EQ(judge(encode(signer, message), own)[0].verdict, SignatureVerdict::valid);
}

TEST_F(JudgeSigners, NoMoreThanFourCertificatesOfOneNameAreTried) {
    message.certificates = {twinOf(signer), twinOf(signer), twinOf(signer), signer.certificate};
    EXPECT_EQ(judge(encode(signer, message))[0].verdict, SignatureVerdict::valid);
    message.certificates.insert(message.certificates.begin(), 50, message.certificates.front());
    EXPECT_EQ(judge(encode(signer, message))[0].verdict, SignatureVerdict::valid) << "the same one is tried once";
    message.certificates.insert(message.certificates.begin(), twinOf(signer));
    const auto verdicts = judge(encode(signer, message));
    EXPECT_EQ(verdicts[0].verdict, SignatureVerdict::unknown);
    EXPECT_EQ(verdicts[0].code, capi::CRYPT_E_ASN1_LARGE);
}

/// Forged signers of one certificate of which the message has thousands of copies: one search serves them all.
TEST_F(JudgeSigners, ManyCopiesOfACertificateDoNotHideAForgery) {
    forged.signatureValue = Bytes{};
    message.moreSignerInfos.assign(255, encodeSignerInfo(signer, forged));
    message.certificates.assign(4000, signer.certificate);
    const auto verdicts = judge(encode(signer, message));
    EXPECT_EQ(verdicts[0].verdict, SignatureVerdict::valid);
    for (std::size_t i = 1; i < verdicts.size(); ++i) {
        EXPECT_EQ(verdicts[i].verdict, SignatureVerdict::invalid) << i;
    }
}

TEST_F(JudgeSigners, CounterSignaturesAreJudgedApart) {
    Crafted counter = honest(signer, bytes("another value"));
    counter.attributes.erase(counter.attributes.begin());
    message.unsignedAttributes = {attribute("1.2.840.113549.1.9.6", {encodeSignerInfo(signer, counter)})};
    std::istringstream in(text(encode(signer, message)));
    std::vector<tools::CounterSignature> counters;
    tools::VerifyHooks hooks;
    hooks.inspect = [&](void* open) { counters = tools::counterSignatures(open, 0); };
    EXPECT_EQ(tools::verifySigners(in, boost::none, hooks)[0].verdict, SignatureVerdict::valid);
    ASSERT_EQ(counters.size(), 1U);
    EXPECT_EQ(counters[0].verdict, SignatureVerdict::invalid);
    EXPECT_EQ(counters[0].code, capi::CRYPT_E_HASH_VALUE);
    EXPECT_EQ(counters[0].certificate->raw(), text(signer.certificate));
    EXPECT_FALSE(counters[0].parent);
    EXPECT_FALSE(counters[0].signingTime.empty());
    EXPECT_FALSE(counters[0].digestAlgorithm.empty());
    EXPECT_FALSE(counters[0].signatureAlgorithm.empty());
}

} // namespace
