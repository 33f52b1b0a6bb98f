// Each signer judged alone, by its index.

#include "asn1/der.hpp"
#include "crafted.hpp"
#include "exports/export.hpp"
#include "x509/cert_info.hpp"

#include <gtest/gtest.h>

namespace klunortredi::test {
namespace {

namespace der = csp::der;
namespace api = csp::exports;

constexpr std::size_t signingTime = 1; ///< its place among the attributes of an honest message

class VerifySigner : public testing::TestWithParam<KeyKind> {
protected:
    /// An honest message with these SignerInfos after the honest one.
    [[nodiscard]] Msg with(std::vector<Bytes> more) const {
        Crafted message = honest(signer, content);
        message.moreSignerInfos = std::move(more);
        Msg msg = Msg::decode();
        EXPECT_EQ(msg.feed(encode(signer, message)), 0U);
        return msg;
    }
    [[nodiscard]] static DWORD control(const Msg& msg, CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA parameters) {
        return api::CryptMsgControl(msg.handle(), 0, capi::CMSG_CTRL_VERIFY_SIGNATURE_EX, &parameters) != 0
                   ? 0
                   : api::GetLastError();
    }

    Signer signer = makeSigner(GetParam());
    Bytes content = bytes("content");
};

TEST_P(VerifySigner, FindsAnEmptySignatureValueInvalid) {
    Crafted forged = honest(signer, content);
    forged.signatureValue = Bytes{};
    const Msg msg = with({encodeSignerInfo(signer, forged)});
    EXPECT_EQ(msg.verifySigner(0, signer.certificate), 0U);
    EXPECT_EQ(msg.verifySigner(1, signer.certificate), capi::NTE_BAD_SIGNATURE);
}

TEST_P(VerifySigner, FindsAnAlteredSigningTimeOfTheSameCertificateInvalid) {
    Crafted forged = honest(signer, content);
    forged.sentAttributes = forged.attributes;
    forged.sentAttributes[signingTime] =
        attribute("1.2.840.113549.1.9.5", {der::element(der::tag::UtcTime, bytes("200101000000Z"))});
    const Msg msg = with({encodeSignerInfo(signer, forged)});
    EXPECT_EQ(msg.verifySigner(0, signer.certificate), 0U);
    EXPECT_EQ(msg.verifySigner(1, signer.certificate), capi::NTE_BAD_SIGNATURE);
}

TEST_P(VerifySigner, FindsEachOfManyForgedSignersInvalid) {
    constexpr std::size_t many = 200;
    Crafted forged = honest(signer, content);
    forged.signatureValue = Bytes(64, 0x01);
    const Msg msg = with(std::vector<Bytes>(many, encodeSignerInfo(signer, forged)));
    EXPECT_EQ(msg.verifySigner(0, signer.certificate), 0U);
    for (DWORD index = 1; index <= many; ++index) {
        EXPECT_EQ(msg.verifySigner(index, signer.certificate), capi::NTE_BAD_SIGNATURE) << index;
    }
}

TEST_P(VerifySigner, JudgesEachSignerByItsOwnCertificate) {
    const Signer other = makeSigner(GetParam() == KeyKind::Rsa ? KeyKind::Gost256 : KeyKind::Rsa);
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(sign({signer, other}, content)), 0U);
    for (DWORD index = 0; index < 2; ++index) {
        const bool own = msg.verifySigner(index, signer.certificate) == 0;
        EXPECT_EQ(msg.verifySigner(index, other.certificate), own ? capi::CRYPT_E_SIGNER_NOT_FOUND : 0U);
    }
}

TEST_P(VerifySigner, TakesAPublicKeyInPlaceOfACertificate) {
    const Msg msg = with({});
    csp::CertInfo info(signer.certificate);
    CERT_PUBLIC_KEY_INFO key = info.get().SubjectPublicKeyInfo;
    EXPECT_EQ(control(msg, {32, 0, 0, capi::CMSG_VERIFY_SIGNER_PUBKEY, &key}), 0U);
    const Signer other = makeSigner(GetParam());
    const csp::CertInfo otherInfo(other.certificate);
    key = otherInfo.get().SubjectPublicKeyInfo;
    EXPECT_EQ(control(msg, {32, 0, 0, capi::CMSG_VERIFY_SIGNER_PUBKEY, &key}), capi::NTE_BAD_SIGNATURE);
}

TEST_P(VerifySigner, RefusesWrongParameters) {
    const Msg msg = with({});
    const csp::CertInfo info(signer.certificate);
    CERT_PUBLIC_KEY_INFO key = info.get().SubjectPublicKeyInfo;
    EXPECT_EQ(msg.verifySigner(1, signer.certificate), capi::CRYPT_E_INVALID_INDEX);
    EXPECT_EQ(control(msg, {31, 0, 0, capi::CMSG_VERIFY_SIGNER_PUBKEY, &key}), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(control(msg, {32, 0, 0, capi::CMSG_VERIFY_SIGNER_PUBKEY, nullptr}), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(control(msg, {32, 0, 0, capi::CMSG_VERIFY_SIGNER_CERT, &key}), capi::ERROR_INVALID_PARAMETER)
        << "not a certificate context";
    EXPECT_EQ(control(msg, {32, 0, 0, capi::CMSG_VERIFY_SIGNER_CHAIN, &key}), capi::NTE_BAD_TYPE);
    EXPECT_EQ(control(msg, {32, 0, 0, capi::CMSG_VERIFY_SIGNER_NULL, &key}), capi::NTE_BAD_TYPE);
}

INSTANTIATE_TEST_SUITE_P(Keys, VerifySigner, testing::Values(KeyKind::Gost256, KeyKind::Rsa),
                         [](const auto& row) { return row.index == 0 ? "Gost256" : "Rsa"; });

} // namespace
} // namespace klunortredi::test
