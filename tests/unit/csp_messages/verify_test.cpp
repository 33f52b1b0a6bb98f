// Which messages hold and which do not: the rules of RFC 5652 on attributes, algorithms and signers.

#include "asn1/der.hpp"
#include "crafted.hpp"
#include "crypto/digest.hpp"
#include "openssl_tool.hpp"
#include "x509/cert_info.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace klunortredi::test {
namespace {

namespace der = csp::der;

constexpr const char* contentTypeOid = "1.2.840.113549.1.9.3";
constexpr const char* messageDigestOid = "1.2.840.113549.1.9.4";
constexpr const char* signingTimeOid = "1.2.840.113549.1.9.5";
constexpr const char* countersignatureOid = "1.2.840.113549.1.9.6";
constexpr const char* timeStampInfo = "1.2.840.113549.1.9.16.1.4";

class VerifySignature : public testing::TestWithParam<KeyKind> {
protected:
    [[nodiscard]] DWORD errorOf(const Crafted& changed) const { return verifyStreamed(encode(signer, changed)).error; }
    [[nodiscard]] bool rsa() const { return GetParam() == KeyKind::Rsa; }

    Signer signer = makeSigner(GetParam());
    Bytes content = bytes("content");
    Crafted message = honest(signer, content);
};

TEST_P(VerifySignature, HoldsForAnHonestMessage) {
    EXPECT_EQ(errorOf(message), 0U);
}

TEST_P(VerifySignature, HoldsForAttributesThatAreNotSorted) {
    std::ranges::reverse(message.attributes);
    EXPECT_EQ(errorOf(message), 0U);
}

TEST_P(VerifySignature, HoldsForValuesThatWereSortedOnlyForSigning) {
    const Bytes first = der::integer(1);
    const Bytes second = der::integer(2);
    message.sentAttributes = message.attributes;
    message.attributes.push_back(attribute("1.2.3", {first, second}));
    message.sentAttributes.push_back(attribute("1.2.3", {second, first}));
    EXPECT_EQ(errorOf(message), 0U);
    const TempFolder folder;
    writeFile(folder.path() / "message", encode(signer, message));
    EXPECT_EQ(run(folder, "openssl cms -verify -binary -noverify -inform DER -in message"), 0) << output(folder);
}

TEST_P(VerifySignature, RefusesAMessageDigestOfOtherContent) {
    message.content = bytes("other content");
    EXPECT_EQ(errorOf(message), capi::CRYPT_E_HASH_VALUE);
}

TEST_P(VerifySignature, RefusesAMessageDigestWithAnOctetBehind) {
    Bytes hash = csp::Digest::of(*csp::findDigest(std::string_view(signer.digest)), content);
    hash.push_back(0);
    message.attributes[2] = attribute(messageDigestOid, {der::octetString(hash)});
    EXPECT_EQ(errorOf(message), capi::CRYPT_E_HASH_VALUE);
}

TEST_P(VerifySignature, RefusesOtherContentWithoutAttributes) {
    message.hasAttributes = false;
    EXPECT_EQ(errorOf(message), 0U);
    message.content = bytes("other content");
    EXPECT_EQ(errorOf(message), capi::NTE_BAD_SIGNATURE);
}

TEST_P(VerifySignature, RefusesAContentTypeAttributeOfAnotherType) {
    message.attributes[0] = attribute(contentTypeOid, {der::objectIdentifier(timeStampInfo)});
    EXPECT_EQ(errorOf(message), capi::CRYPT_E_UNEXPECTED_MSG_TYPE);
}

TEST_P(VerifySignature, RefusesAttributesWithoutMessageDigestOrContentType) {
    Crafted without = message;
    without.attributes.erase(without.attributes.begin() + 2);
    EXPECT_EQ(errorOf(without), capi::CRYPT_E_AUTH_ATTR_MISSING);
    without = message;
    without.attributes.erase(without.attributes.begin());
    EXPECT_EQ(errorOf(without), capi::CRYPT_E_AUTH_ATTR_MISSING);
    without.attributes.clear();
    EXPECT_EQ(errorOf(without), capi::CRYPT_E_AUTH_ATTR_MISSING);
}

TEST_P(VerifySignature, RefusesAttributesThatStandTwice) {
    for (std::size_t i = 0; i < message.attributes.size(); ++i) {
        Crafted twice = message;
        twice.attributes.push_back(twice.attributes[i]);
        EXPECT_EQ(errorOf(twice), capi::CRYPT_E_AUTH_ATTR_MISSING) << i;
    }
}

TEST_P(VerifySignature, RefusesSeveralValuesWhereThereIsOne) {
    const Bytes hash = csp::Digest::of(*csp::findDigest(std::string_view(signer.digest)), content);
    message.attributes[2] = attribute(messageDigestOid, {der::octetString(hash), der::octetString(hash)});
    EXPECT_EQ(errorOf(message), capi::CRYPT_E_AUTH_ATTR_MISSING);
    message.attributes[2] = attribute(messageDigestOid, {});
    EXPECT_EQ(errorOf(message), capi::CRYPT_E_AUTH_ATTR_MISSING);
}

TEST_P(VerifySignature, RefusesAttributesAmongTheWrongOnes) {
    Crafted misplaced = message;
    misplaced.unsignedAttributes = {
        attribute(signingTimeOid, {der::element(der::tag::UtcTime, bytes("261120120000Z"))})};
    EXPECT_EQ(errorOf(misplaced), capi::CRYPT_E_AUTH_ATTR_MISSING);
    misplaced = message;
    misplaced.attributes.push_back(attribute(countersignatureOid, {der::sequence({der::integer(1)})}));
    EXPECT_EQ(errorOf(misplaced), capi::CRYPT_E_AUTH_ATTR_MISSING);
}

TEST_P(VerifySignature, DemandsAttributesForOtherContentThanPlainData) {
    message.contentType = timeStampInfo;
    message.attributes[0] = attribute(contentTypeOid, {der::objectIdentifier(timeStampInfo)});
    EXPECT_EQ(errorOf(message), 0U);
    message.hasAttributes = false;
    EXPECT_EQ(errorOf(message), capi::CRYPT_E_AUTH_ATTR_MISSING);
}

TEST_P(VerifySignature, RefusesADigestThatTheMessageDoesNotList) {
    message.digestAlgorithms = {algorithm("1.3.14.3.2.26")};
    EXPECT_EQ(errorOf(message), capi::CRYPT_E_UNKNOWN_ALGO);
    message.digestAlgorithms = {};
    EXPECT_EQ(errorOf(message), capi::CRYPT_E_UNKNOWN_ALGO);
}

TEST_P(VerifySignature, RefusesADigestThatNobodyKnows) {
    message.digestAlgorithms = {algorithm("1.2.3.4"), algorithm(signer.digest)};
    EXPECT_EQ(errorOf(message), 0U) << "an unknown one beside the signer's does not matter";
    message.signerDigest = algorithm("1.2.3.4");
    EXPECT_EQ(errorOf(message), capi::CRYPT_E_UNKNOWN_ALGO);
}

TEST_P(VerifySignature, RefusesSignatureAlgorithmsThatDoNotFit) {
    const char* const otherKey = rsa() ? "1.2.643.7.1.1.1.1" : "1.2.840.113549.1.1.1";
    const char* const otherDigest = rsa() ? "1.2.840.113549.1.1.5" : "1.2.643.7.1.1.3.3";
    for (const char* const oid : {otherKey, otherDigest, "1.2.643.2.2.3"}) {
        message.signatureAlgorithm = algorithm(oid);
        EXPECT_EQ(errorOf(message), capi::NTE_BAD_SIGNATURE) << oid;
    }
    message.signatureAlgorithm = algorithm("1.2.3.4");
    EXPECT_EQ(errorOf(message), capi::CRYPT_E_UNKNOWN_ALGO);
    message.signatureAlgorithm = algorithm("1.2.643.7.1.1.6.1");
    EXPECT_EQ(errorOf(message), capi::CRYPT_E_UNKNOWN_ALGO) << "an agreement algorithm that the key is not under";
}

TEST_P(VerifySignature, RefusesASignatureUnderAnotherPadding) {
    message.signatureAlgorithm = algorithm("1.2.840.113549.1.1.10");
    EXPECT_EQ(errorOf(message), rsa() ? capi::NTE_BAD_SIGNATURE : capi::CRYPT_E_UNKNOWN_ALGO);
}

TEST_P(VerifySignature, TakesTheSignatureAlgorithmThatNamesTheDigest) {
    message.signatureAlgorithm = algorithm(rsa() ? "1.2.840.113549.1.1.11" : "1.2.643.7.1.1.3.2");
    EXPECT_EQ(errorOf(message), 0U);
}

TEST_P(VerifySignature, RefusesOctetsBehindTheSignatureValue) {
    message.behindSignature = {0};
    EXPECT_EQ(errorOf(message), capi::NTE_BAD_SIGNATURE);
}

TEST_P(VerifySignature, RefusesTheKeyOfAnotherCertificate) {
    const Signer other = makeSigner(GetParam());
    const Bytes encoded = encode(signer, message);
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(encoded), 0U);
    EXPECT_EQ(msg.verify(other.certificate), capi::CRYPT_E_SIGNER_NOT_FOUND);
    EXPECT_EQ(msg.verify(signer.certificate), 0U) << "a refusal leaves the message usable";
    // The right name over the wrong key.
    const csp::CertInfo right(signer.certificate);
    const csp::CertInfo wrong(other.certificate);
    CERT_INFO mixed = right.get();
    mixed.SubjectPublicKeyInfo = wrong.get().SubjectPublicKeyInfo;
    EXPECT_EQ(msg.verify(mixed), capi::NTE_BAD_SIGNATURE);
}

TEST_P(VerifySignature, FindsTheSignerByKeyIdentifier) {
    const csp::CertInfo info(signer.certificate);
    const CERT_EXTENSION& extension = info.get().rgExtension[0];
    const der::Element keyId = der::readOnly({extension.Value.pbData, extension.Value.cbData});
    message.signerId = der::element(der::tag::context(0), keyId.content);
    EXPECT_EQ(errorOf(message), 0U);
    message.signerId = der::element(der::tag::context(0), bytes("another key"));
    EXPECT_EQ(errorOf(message), capi::CRYPT_E_NO_SIGNER);
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(encode(signer, message)), 0U);
    EXPECT_EQ(msg.verify(signer.certificate), capi::CRYPT_E_SIGNER_NOT_FOUND);
}

TEST_P(VerifySignature, ChecksTheSignerThatTheCertificateNames) {
    const Signer other = makeSigner(GetParam() == KeyKind::Rsa ? KeyKind::Gost256 : KeyKind::Rsa);
    const Bytes encoded = sign({signer, other}, content);
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(encoded), 0U);
    EXPECT_EQ(msg.number(capi::CMSG_SIGNER_COUNT_PARAM), 2U);
    EXPECT_EQ(msg.verify(signer.certificate), 0U);
    EXPECT_EQ(msg.verify(other.certificate), 0U);
}

INSTANTIATE_TEST_SUITE_P(Keys, VerifySignature, testing::Values(KeyKind::Gost256, KeyKind::Rsa),
                         [](const auto& row) { return row.index == 0 ? "Gost256" : "Rsa"; });

class Detached : public testing::Test {
protected:
    Detached() {
        SignOptions options;
        options.detached = true;
        message = sign({signer}, content, options);
    }

    Signer signer = makeSigner(KeyKind::Gost256);
    Bytes content = bytes("content");
    Bytes message;
};

TEST_F(Detached, WithoutContentHasACodeOfItsOwn) {
    EXPECT_EQ(verifyStreamed(message).error, capi::CRYPT_E_STREAM_MSG_NOT_READY);
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    EXPECT_EQ(msg.verify(signer.certificate), capi::CRYPT_E_STREAM_MSG_NOT_READY);
    EXPECT_EQ(msg.param(capi::CMSG_ENCODED_MESSAGE), message) << "all but checking works";
}

TEST_F(Detached, BeforeItsContentEndsIsNotReady) {
    const Msg msg = Msg::decode(capi::CMSG_DETACHED_FLAG);
    ASSERT_EQ(msg.feed(message), 0U);
    EXPECT_EQ(msg.number(capi::CMSG_CERT_COUNT_PARAM), 1U) << "the certificates are wanted first";
    ASSERT_EQ(msg.feed(content, whole, false), 0U);
    EXPECT_EQ(msg.verify(signer.certificate), capi::CRYPT_E_STREAM_MSG_NOT_READY);
    ASSERT_EQ(msg.feed({}), 0U);
    EXPECT_EQ(msg.verify(signer.certificate), 0U);
    EXPECT_EQ(msg.feed(content), capi::CRYPT_E_MSG_ERROR) << "nothing may follow";
}

TEST_F(Detached, OfEmptyContentNeedsNoneToBeFed) {
    SignOptions options;
    options.detached = true;
    const Bytes empty = sign({signer}, {}, options);
    const Msg msg = Msg::decode(capi::CMSG_DETACHED_FLAG);
    ASSERT_EQ(msg.feed(empty), 0U);
    EXPECT_EQ(msg.verify(signer.certificate), 0U);
    const Msg full = Msg::decode(capi::CMSG_DETACHED_FLAG);
    ASSERT_EQ(full.feed(message), 0U);
    EXPECT_EQ(full.verify(signer.certificate), capi::NTE_BAD_SIGNATURE) << "of content it is another signature";
}

TEST_F(Detached, CheckOfAMessageWithContentWantsTheSameContent) {
    const Bytes attached = sign({signer}, content);
    VerifyOptions options;
    options.detachedContent = &content;
    const Verdict same = verifyStreamed(attached, options);
    EXPECT_EQ(same.error, 0U);
    EXPECT_EQ(same.content, Bytes{}) << "the content is the caller's already";
    const Bytes other = bytes("other content");
    options.detachedContent = &other;
    EXPECT_EQ(verifyStreamed(attached, options).error, capi::CRYPT_E_HASH_VALUE);
}

} // namespace
} // namespace klunortredi::test
