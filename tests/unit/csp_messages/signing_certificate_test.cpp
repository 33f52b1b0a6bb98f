// signing-certificate and signing-certificate-v2: the certificate that a signer names in what it signs.

#include "asn1/der.hpp"
#include "crafted.hpp"
#include "crypto/digest.hpp"
#include "x509/blob.hpp"
#include "x509/cert_info.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace klunortredi::test {
namespace {

namespace der = csp::der;

constexpr const char* version1 = "1.2.840.113549.1.9.16.2.12";
constexpr const char* version2 = "1.2.840.113549.1.9.16.2.47";
constexpr const char* sha1 = "1.3.14.3.2.26";
constexpr const char* sha256 = "2.16.840.1.101.3.4.2.1";
constexpr const char* streebog256 = "1.2.643.7.1.1.2.2";

Bytes hash(const char* oid, const Bytes& certificate) {
    return der::octetString(csp::Digest::of(*csp::findDigest(std::string_view(oid)), certificate));
}

/// SigningCertificate of these ESSCertIDs.
Bytes value(const std::vector<Bytes>& ids) {
    return der::sequence({der::sequence(ids)});
}

Bytes issuerSerial(const Bytes& certificate) {
    const csp::CertInfo info(certificate);
    const ByteView littleEndian = csp::blobView(info.get().SerialNumber);
    const Bytes serial(littleEndian.rbegin(), littleEndian.rend());
    return der::sequence(
        {der::sequence({der::explicitTag(4, csp::blobView(info.get().Issuer))}), der::integer(serial)});
}

class SigningCertificate : public testing::Test {
protected:
    /// What the check says of a message with that attribute, by the message's own certificate.
    [[nodiscard]] DWORD errorWith(const Bytes& signedAttribute) const {
        return errorWith(signedAttribute, signer.certificate);
    }
    [[nodiscard]] DWORD errorWith(const Bytes& signedAttribute, const Bytes& certificate) const {
        Crafted changed = message;
        changed.attributes.push_back(signedAttribute);
        const Msg msg = Msg::decode();
        EXPECT_EQ(msg.feed(encode(signer, changed)), 0U);
        return msg.verifySigner(0, certificate);
    }

    Signer signer = makeSigner(KeyKind::Gost256);
    Crafted message = honest(signer, bytes("content"));
    /// Of the same key, issuer and serial number: what a signer identifier cannot tell apart.
    Bytes twin = certificateFor(signer, serialOf(signer.certificate));
};

TEST_F(SigningCertificate, NamedByItsHashHolds) {
    const Bytes& own = signer.certificate;
    EXPECT_EQ(errorWith(attribute(version1, {value({der::sequence({hash(sha1, own)})})})), 0U);
    EXPECT_EQ(errorWith(attribute(version2, {value({der::sequence({hash(sha256, own)})})})), 0U);
    EXPECT_EQ(errorWith(attribute(version2, {value({der::sequence({algorithm(sha256), hash(sha256, own)})})})), 0U)
        << "the default may be written";
    EXPECT_EQ(
        errorWith(attribute(version2, {value({der::sequence({algorithm(streebog256), hash(streebog256, own)})})})), 0U);
    EXPECT_EQ(errorWith(attribute(version2, {value({der::sequence({hash(sha256, own), issuerSerial(own)})})})), 0U);
}

TEST_F(SigningCertificate, MayBeFollowedByOthersAndByPolicies) {
    const Bytes first = der::sequence({hash(sha256, signer.certificate)});
    const Bytes second = der::sequence({hash(sha256, twin)});
    EXPECT_EQ(errorWith(attribute(version2, {value({first, second})})), 0U);
    EXPECT_EQ(errorWith(attribute(version2, {value({second, first})})), capi::CRYPT_E_NO_MATCH) << "the first counts";
    const Bytes policies = der::sequence({der::sequence({der::objectIdentifier("1.2.3")})});
    EXPECT_EQ(errorWith(attribute(version2, {der::sequence({der::sequence({first}), policies})})), 0U);
}

TEST_F(SigningCertificate, OfTheSameKeyCannotTakeItsPlace) {
    ASSERT_NE(twin, signer.certificate);
    for (const Bytes& named : {attribute(version1, {value({der::sequence({hash(sha1, signer.certificate)})})}),
                               attribute(version2, {value({der::sequence({hash(sha256, signer.certificate)})})})}) {
        EXPECT_EQ(errorWith(named), 0U);
        EXPECT_EQ(errorWith(named, twin), capi::CRYPT_E_NO_MATCH);
    }
}

TEST_F(SigningCertificate, HasTheIssuerAndSerialNumberThatAreGiven) {
    const Bytes other = certificateFor(signer, serialOf(signer.certificate) + 1000);
    const Bytes wrong = der::sequence({hash(sha256, signer.certificate), issuerSerial(other)});
    EXPECT_EQ(errorWith(attribute(version2, {value({wrong})})), capi::CRYPT_E_NO_MATCH);
}

TEST_F(SigningCertificate, MalformedIsRefused) {
    const Bytes good = hash(sha256, signer.certificate);
    for (const Bytes& malformed : {
             der::octetString(bytes("no structure")),
             der::sequence({}),                                 // no certificates
             value({}),                                         // none of them
             value({der::sequence({})}),                        // no hash
             value({der::sequence({good, good})}),              // a hash in the place of issuerSerial
             value({der::sequence({good, der::sequence({})})}), // empty issuerSerial
             der::sequence({der::sequence({der::sequence({good})}), der::sequence({}), der::null()}),
         }) {
        EXPECT_EQ(errorWith(attribute(version2, {malformed})), capi::CRYPT_E_BAD_ENCODE);
    }
    const Bytes withAlgorithm = value({der::sequence({algorithm(sha256), good})});
    EXPECT_EQ(errorWith(attribute(version1, {withAlgorithm})), capi::CRYPT_E_BAD_ENCODE) << "version 1 has none";
}

TEST_F(SigningCertificate, RepeatedOrWithSeveralValuesIsRefused) {
    const Bytes good = value({der::sequence({hash(sha256, signer.certificate)})});
    EXPECT_EQ(errorWith(attribute(version2, {good, good})), capi::CRYPT_E_AUTH_ATTR_MISSING);
    EXPECT_EQ(errorWith(attribute(version2, {})), capi::CRYPT_E_AUTH_ATTR_MISSING);
    message.attributes.push_back(attribute(version2, {good}));
    EXPECT_EQ(errorWith(attribute(version2, {good})), capi::CRYPT_E_AUTH_ATTR_MISSING);
}

TEST_F(SigningCertificate, AmongUnsignedAttributesIsRefused) {
    message.unsignedAttributes = {attribute(version2, {value({der::sequence({hash(sha256, signer.certificate)})})})};
    EXPECT_EQ(errorWith(attribute("1.2.3", {der::integer(1)})), capi::CRYPT_E_AUTH_ATTR_MISSING);
}

TEST_F(SigningCertificate, ByAnUnknownHashIsNotJudgedAndByABrokenOneRefused) {
    const Bytes some = der::octetString(Bytes(16));
    EXPECT_EQ(errorWith(attribute(version2, {value({der::sequence({algorithm("1.2.3.4"), some})})})),
              capi::CRYPT_E_UNKNOWN_ALGO);
    EXPECT_EQ(errorWith(attribute(version2, {value({der::sequence({algorithm("1.2.840.113549.2.5"), some})})})),
              capi::NTE_BAD_ALGID);
}

/// CMSG_CTRL_VERIFY_SIGNATURE has a CERT_INFO: the message's certificates stand for it.
TEST_F(SigningCertificate, IsLookedUpInTheMessageForACertInfo) {
    message.attributes.push_back(attribute(version2, {value({der::sequence({hash(sha256, signer.certificate)})})}));
    const auto errorWithCertificates = [&](const std::vector<Bytes>& carried) {
        message.certificates = carried;
        const Msg msg = Msg::decode();
        EXPECT_EQ(msg.feed(encode(signer, message)), 0U);
        return msg.verify(signer.certificate);
    };
    EXPECT_EQ(errorWithCertificates({signer.certificate}), 0U);
    EXPECT_EQ(errorWithCertificates({twin}), capi::CRYPT_E_NO_MATCH);
    EXPECT_EQ(errorWithCertificates({twin, signer.certificate}), 0U);
    EXPECT_EQ(errorWithCertificates({}), 0U) << "nothing to compare with";
}

} // namespace
} // namespace klunortredi::test
