// Signers described in the longer form: by key identifier, and with RSASSA-PSS.

#include "asn1/der.hpp"
#include "capi/signer_fields.h"
#include "signing.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace klunortredi::test {
namespace {

namespace der = csp::der;

constexpr const char* pss = "1.2.840.113549.1.1.10";

class SignerFields : public testing::Test {
protected:
    /// Options that put the longer form in place of the shorter one.
    SignOptions longer() {
        SignOptions options;
        options.contentSize = static_cast<DWORD>(content.size());
        options.spoil = [this](CMSG_SIGNED_ENCODE_INFO& info, CMSG_SIGNER_ENCODE_INFO& signer) {
            fields.Signer = signer;
            fields.Signer.cbSize = sizeof fields;
            info.rgSigners = &fields.Signer;
            info.cSigners = 1;
        };
        return options;
    }
    void nameKey() {
        fields.SignerId.dwIdChoice = capi::CERT_ID_KEY_IDENTIFIER;
        fields.SignerId.u.KeyId = {static_cast<DWORD>(keyIdentifier.size()), keyIdentifier.data()};
    }
    void askForPss() { fields.HashEncryptionAlgorithm.pszObjId = const_cast<char*>(pss); }
    DWORD errorOf(const Signer& signer) { return trySign({signer}, content, longer()).error; }

    CMSG_SIGNER_ENCODE_INFO_CMS_FIELDS fields{};
    Bytes keyIdentifier = Bytes(20, 0x11);
    Bytes content = Bytes(1000, 0x5A);
};

TEST_F(SignerFields, NothingNamedIsTheSameAsTheShorterForm) {
    const Signer signer = makeSigner(KeyKind::Gost256);
    const Bytes message = sign({signer}, content, longer());
    SignOptions options;
    options.contentSize = static_cast<DWORD>(content.size());
    EXPECT_EQ(message.size(), sign({signer}, content, options).size());
    EXPECT_EQ(verifyStreamed(message).error, 0U);
}

TEST_F(SignerFields, KeyIdentifierMakesMessageAndSignerVersion3) {
    const Signer signer = makeSigner(KeyKind::Gost512);
    nameKey();
    const Bytes message = sign({signer}, content, longer());
    der::Reader contentInfo(der::readOnly(message).content);
    contentInfo.read();
    der::Reader signedData = contentInfo.enter(0xA0).enter(der::tag::Sequence);
    EXPECT_EQ(der::toInt32(signedData.read()), 3) << "RFC 5652, 5.1";
    signedData.read();
    signedData.read();
    signedData.read();
    der::Reader signerInfo = signedData.enter(der::tag::Set).enter(der::tag::Sequence);
    EXPECT_EQ(der::toInt32(signerInfo.read()), 3) << "RFC 5652, 5.3";
    const auto name = signerInfo.read();
    EXPECT_EQ(Bytes(name.whole.begin(), name.whole.end()), der::implicitTag(0, der::octetString(keyIdentifier)));
}

TEST_F(SignerFields, PssIsWrittenWithEveryParameterAndVerifies) {
    const Signer signer = makeSigner(KeyKind::Rsa);
    askForPss();
    const Bytes message = sign({signer}, content, longer());
    EXPECT_EQ(verifyStreamed(message).error, 0U);
    const Bytes hash = der::sequence({der::objectIdentifier(signer.digest), der::null()});
    const Bytes mask = der::sequence({der::objectIdentifier("1.2.840.113549.1.1.8"), hash});
    const Bytes parameters =
        der::sequence({der::explicitTag(0, hash), der::explicitTag(1, mask), der::explicitTag(2, der::integer(32))});
    const Bytes algorithm = der::sequence({der::objectIdentifier(pss), parameters});
    EXPECT_FALSE(std::ranges::search(message, algorithm).empty());
}

TEST_F(SignerFields, AlgorithmOfTheKeyItselfIsTaken) {
    const Signer signer = makeSigner(KeyKind::Rsa);
    fields.HashEncryptionAlgorithm.pszObjId = const_cast<char*>("1.2.840.113549.1.1.1");
    EXPECT_EQ(errorOf(signer), 0U);
}

TEST_F(SignerFields, AlgorithmThatTheKeyDoesNotHaveIsRefused) {
    askForPss();
    EXPECT_EQ(errorOf(makeSigner(KeyKind::Gost256)), capi::NTE_BAD_ALGID);
    const Signer rsa = makeSigner(KeyKind::Rsa);
    fields.HashEncryptionAlgorithm.pszObjId = const_cast<char*>("1.2.840.10045.4.3.2");
    EXPECT_EQ(errorOf(rsa), capi::NTE_BAD_ALGID);
    askForPss();
    Bytes parameters = der::null();
    fields.HashEncryptionAlgorithm.Parameters = {static_cast<DWORD>(parameters.size()), parameters.data()};
    EXPECT_EQ(errorOf(rsa), capi::NTE_BAD_ALGID);
}

TEST_F(SignerFields, MalformedNamesAreRefused) {
    const Signer signer = makeSigner(KeyKind::Gost256);
    keyIdentifier.clear();
    nameKey();
    EXPECT_EQ(errorOf(signer), capi::ERROR_INVALID_PARAMETER);
    fields.SignerId.dwIdChoice = 3; // CERT_ID_SHA1_HASH: no SignerIdentifier of CMS
    EXPECT_EQ(errorOf(signer), capi::ERROR_INVALID_PARAMETER);
    SignOptions options = longer();
    const auto inner = options.spoil;
    options.spoil = [&](CMSG_SIGNED_ENCODE_INFO& info, CMSG_SIGNER_ENCODE_INFO& one) {
        inner(info, one);
        fields.Signer.cbSize = sizeof fields - 8;
    };
    fields.SignerId = {};
    EXPECT_EQ(trySign({signer}, content, options).error, capi::ERROR_INVALID_PARAMETER);
}

} // namespace
} // namespace klunortredi::test
