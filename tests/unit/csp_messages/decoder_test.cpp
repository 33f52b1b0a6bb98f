// Reading: what a message tells of itself, when, and with which errors.

#include "asn1/der.hpp"
#include "crafted.hpp"
#include "exports/export.hpp"
#include "messages/handles.hpp"
#include "openssl_tool.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace klunortredi::test {
namespace {

namespace api = csp::exports;
namespace der = csp::der;

template <class T>
const T& as(const Bytes& octets) {
    return *reinterpret_cast<const T*>(octets.data());
}

template <class Blob>
Bytes octets(const Blob& blob) {
    return {blob.pbData, blob.pbData + blob.cbData};
}

class Decoder : public testing::Test {
protected:
    Decoder() {
        SignOptions options;
        options.streamed = false;
        options.attributes = someAttributes();
        options.unsignedAttributes = {{"1.2.643.2.1.2.3.5", der::utf8String("not signed")}};
        message = sign({signer}, content, options);
    }

    Signer signer = makeSigner(KeyKind::Gost256);
    Bytes content = bytes("content");
    Bytes message;
};

TEST_F(Decoder, TellsTypeContentAndCounts) {
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    EXPECT_EQ(msg.number(capi::CMSG_TYPE_PARAM), capi::CMSG_SIGNED);
    EXPECT_EQ(msg.param(capi::CMSG_CONTENT_PARAM), content);
    EXPECT_EQ(msg.param(capi::CMSG_INNER_CONTENT_TYPE_PARAM), Bytes([] {
                  Bytes text = bytes("1.2.840.113549.1.7.1");
                  text.push_back(0);
                  return text;
              }()));
    EXPECT_EQ(msg.number(capi::CMSG_SIGNER_COUNT_PARAM), 1U);
    EXPECT_EQ(msg.number(capi::CMSG_CERT_COUNT_PARAM), 1U);
    EXPECT_EQ(msg.number(capi::CMSG_CRL_COUNT_PARAM), 0U);
    EXPECT_EQ(msg.param(capi::CMSG_CERT_PARAM), signer.certificate);
    EXPECT_EQ(msg.param(capi::CMSG_ENCODED_MESSAGE), message);
    EXPECT_EQ(msg.param(capi::CMSG_COMPUTED_HASH_PARAM).size(), 32U);
    EXPECT_EQ(msg.param(capi::CMSG_ENCRYPTED_DIGEST).size(), 64U);
}

TEST_F(Decoder, TellsTheSigner) {
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    const Bytes infoOctets = msg.param(capi::CMSG_SIGNER_INFO_PARAM);
    const auto& info = as<CMSG_SIGNER_INFO>(infoOctets);
    EXPECT_EQ(info.dwVersion, 1U);
    EXPECT_STREQ(info.HashAlgorithm.pszObjId, signer.digest.c_str());
    EXPECT_STREQ(info.HashEncryptionAlgorithm.pszObjId, "1.2.643.7.1.1.1.1");
    EXPECT_EQ(octets(info.EncryptedHash), msg.param(capi::CMSG_ENCRYPTED_DIGEST));
    EXPECT_EQ(info.AuthAttrs.cAttr, 4U);
    ASSERT_EQ(info.UnauthAttrs.cAttr, 1U);
    EXPECT_STREQ(info.UnauthAttrs.rgAttr[0].pszObjId, "1.2.643.2.1.2.3.5");
    EXPECT_EQ(octets(info.UnauthAttrs.rgAttr[0].rgValue[0]), der::utf8String("not signed"));

    const Bytes certInfoOctets = msg.param(capi::CMSG_SIGNER_CERT_INFO_PARAM);
    const auto& certInfo = as<CERT_INFO>(certInfoOctets);
    ASSERT_EQ(certInfo.SerialNumber.cbData, 2U);
    EXPECT_GE(certInfo.SerialNumber.pbData[0], 0x80) << "128 or more, least significant octet first";
    EXPECT_EQ(certInfo.SerialNumber.pbData[1], 0x00);
    EXPECT_EQ(octets(certInfo.Issuer), octets(info.Issuer));
    EXPECT_EQ(octets(certInfo.SerialNumber), octets(info.SerialNumber));

    const Bytes hashOctets = msg.param(capi::CMSG_SIGNER_HASH_ALGORITHM_PARAM);
    EXPECT_STREQ(as<CRYPT_ALGORITHM_IDENTIFIER>(hashOctets).pszObjId, signer.digest.c_str());
    const Bytes attributeOctets = msg.param(capi::CMSG_SIGNER_AUTH_ATTR_PARAM);
    EXPECT_EQ(as<CRYPT_ATTRIBUTES>(attributeOctets).cAttr, 4U);
}

TEST_F(Decoder, TellsAKeyIdentifierAsANameOfItsOwn) {
    Crafted crafted = honest(signer, content);
    crafted.signerId = der::element(der::tag::context(0), bytes("key"));
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(encode(signer, crafted)), 0U);
    const Bytes info = msg.param(capi::CMSG_SIGNER_CERT_INFO_PARAM);
    const Bytes rdn = der::sequence({der::objectIdentifier("1.3.6.1.4.1.311.10.7.1"), der::octetString(bytes("key"))});
    EXPECT_EQ(octets(as<CERT_INFO>(info).Issuer), der::sequence({der::setOf({rdn})}));
    EXPECT_EQ(octets(as<CERT_INFO>(info).SerialNumber), Bytes{0});
}

TEST_F(Decoder, LeavesOtherKindsOfCertificatesOut) {
    Crafted crafted = honest(signer, content);
    const Bytes attributeCertificate = der::element(0xA2, der::integer(1));
    crafted.certificates = {attributeCertificate, signer.certificate};
    crafted.crls = {der::element(0xA1, der::integer(1))};
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(encode(signer, crafted)), 0U);
    EXPECT_EQ(msg.number(capi::CMSG_CERT_COUNT_PARAM), 1U);
    EXPECT_EQ(msg.number(capi::CMSG_CRL_COUNT_PARAM), 0U);
    EXPECT_EQ(csp::certificateCarrier(msg.handle())->certificates(), std::vector<Bytes>{signer.certificate});
    EXPECT_EQ(msg.verify(signer.certificate), 0U);
}

TEST_F(Decoder, RefusesCertificatesThatAreNone) {
    Crafted crafted = honest(signer, content);
    crafted.certificates.push_back(der::sequence({der::integer(1)}));
    EXPECT_EQ(Msg::decode().feed(encode(signer, crafted)), capi::CRYPT_E_ASN1_CORRUPT);
}

TEST_F(Decoder, LeavesCrlsThatAreNoneOut) {
    Crafted crafted = honest(signer, content);
    const Bytes brokenInside = der::element(der::tag::Sequence, Bytes{0x30, 0x7F, 0x00});
    const Bytes outerForm = der::sequence({der::sequence({}), algorithm("1.2.3"), der::bitString(Bytes(8))});
    crafted.crls = {der::sequence({der::integer(1)}), brokenInside, outerForm};
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(encode(signer, crafted)), 0U);
    EXPECT_EQ(msg.verify(signer.certificate), 0U);
    EXPECT_EQ(csp::certificateCarrier(msg.handle())->crls(), std::vector<Bytes>{outerForm});
}

TEST_F(Decoder, HasNoParametersBeforeItsEnd) {
    const Msg msg = Msg::decode();
    EXPECT_EQ(msg.paramError(capi::CMSG_TYPE_PARAM), capi::CRYPT_E_STREAM_MSG_NOT_READY);
    ASSERT_EQ(msg.feed(message, whole, false), 0U);
    EXPECT_EQ(msg.paramError(capi::CMSG_CERT_COUNT_PARAM), capi::CRYPT_E_STREAM_MSG_NOT_READY);
    EXPECT_EQ(msg.verify(signer.certificate), capi::CRYPT_E_STREAM_MSG_NOT_READY);
    EXPECT_EQ(msg.feed({}), 0U) << "an empty last piece";
    EXPECT_EQ(msg.number(capi::CMSG_CERT_COUNT_PARAM), 1U);
    EXPECT_EQ(msg.feed({}), capi::CRYPT_E_MSG_ERROR) << "nothing may follow the last piece";
}

TEST_F(Decoder, RefusesIndexesAndParametersThatAreNotThere) {
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    for (const DWORD type : {capi::CMSG_SIGNER_INFO_PARAM, capi::CMSG_SIGNER_CERT_INFO_PARAM, capi::CMSG_CERT_PARAM,
                             capi::CMSG_SIGNER_HASH_ALGORITHM_PARAM, capi::CMSG_ENCRYPTED_DIGEST,
                             capi::CMSG_SIGNER_AUTH_ATTR_PARAM, capi::CMSG_COMPUTED_HASH_PARAM}) {
        EXPECT_EQ(msg.paramError(type, 1), capi::CRYPT_E_INVALID_INDEX) << type;
    }
    EXPECT_EQ(msg.paramError(capi::CMSG_CRL_PARAM), capi::CRYPT_E_INVALID_INDEX);
    EXPECT_EQ(msg.paramError(capi::CMSG_RECIPIENT_COUNT_PARAM), capi::CRYPT_E_INVALID_MSG_TYPE);
    EXPECT_EQ(msg.paramError(12345), capi::CRYPT_E_INVALID_MSG_TYPE);
    const Msg plain = Msg::decode();
    ASSERT_EQ(plain.feed(sign({signer}, content)), 0U);
    EXPECT_EQ(plain.paramError(capi::CMSG_SIGNER_AUTH_ATTR_PARAM), capi::CRYPT_E_ATTRIBUTES_MISSING);
    EXPECT_EQ(plain.paramError(capi::CMSG_SIGNER_UNAUTH_ATTR_PARAM), capi::CRYPT_E_ATTRIBUTES_MISSING);
}

TEST_F(Decoder, TellsTheNeededSizeOfAShortBuffer) {
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    Bytes shortBuffer(3);
    DWORD size = 3;
    EXPECT_EQ(api::CryptMsgGetParam(msg.handle(), capi::CMSG_CERT_PARAM, 0, shortBuffer.data(), &size), 0);
    EXPECT_EQ(api::GetLastError(), capi::ERROR_MORE_DATA);
    EXPECT_EQ(size, signer.certificate.size());
    EXPECT_EQ(api::CryptMsgGetParam(msg.handle(), capi::CMSG_CERT_PARAM, 0, nullptr, nullptr), 0);
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
}

TEST_F(Decoder, OfAStreamHasNeitherContentNorEncoding) {
    Collected collected;
    CMSG_STREAM_INFO stream = collected.info();
    const Msg msg = Msg::decode(0, &stream);
    ASSERT_EQ(msg.feed(message, 1), 0U);
    EXPECT_EQ(collected.octets, content);
    EXPECT_EQ(collected.finalCalls, 1U);
    EXPECT_EQ(msg.paramError(capi::CMSG_CONTENT_PARAM), capi::CRYPT_E_INVALID_MSG_TYPE);
    EXPECT_EQ(msg.paramError(capi::CMSG_ENCODED_MESSAGE), capi::CRYPT_E_INVALID_MSG_TYPE);
}

TEST_F(Decoder, FailsForGoodWhenTheCallbackRefuses) {
    Collected collected;
    collected.failAfter = 2;
    CMSG_STREAM_INFO stream = collected.info();
    const Msg msg = Msg::decode(0, &stream);
    EXPECT_EQ(msg.feed(message), capi::CRYPT_E_MSG_ERROR);
    EXPECT_EQ(msg.feed({}), capi::CRYPT_E_MSG_ERROR);
    EXPECT_EQ(msg.paramError(capi::CMSG_TYPE_PARAM), capi::CRYPT_E_MSG_ERROR);
}

TEST_F(Decoder, KeepsFailingWithTheCodeOfTheFirstFailure) {
    const Msg msg = Msg::decode();
    EXPECT_EQ(msg.feed(bytes("nonsense")), capi::CRYPT_E_ASN1_BADTAG);
    EXPECT_EQ(msg.feed(message), capi::CRYPT_E_ASN1_BADTAG);
    EXPECT_EQ(msg.verify(signer.certificate), capi::CRYPT_E_ASN1_BADTAG);
}

TEST_F(Decoder, TellsOtherKindsOfMessages) {
    // EncryptedData, AuthenticatedData
    for (const char* const type : {"1.2.840.113549.1.7.6", "1.2.840.113549.1.9.16.1.2"}) {
        const Bytes other =
            der::sequence({der::objectIdentifier(type), der::explicitTag(0, der::octetString(content))});
        EXPECT_EQ(Msg::decode().feed(other), capi::CRYPT_E_INVALID_MSG_TYPE) << type;
    }
}

TEST_F(Decoder, RefusesOctetsAfterTheMessageWithACodeOfTheirOwn) {
    for (const char* const end : {"\n", "\r\n", "text"}) {
        Bytes longer = message;
        der::append(longer, bytes(end));
        EXPECT_EQ(Msg::decode().feed(longer), capi::CRYPT_E_ASN1_NOEOD) << end;
    }
}

TEST_F(Decoder, BoundsWhatItKeeps) {
    Crafted crafted = honest(signer, content);
    crafted.digestAlgorithms.assign(32, algorithm(signer.digest));
    EXPECT_EQ(Msg::decode().feed(encode(signer, crafted)), 0U);
    crafted.digestAlgorithms.push_back(algorithm(signer.digest));
    EXPECT_EQ(Msg::decode().feed(encode(signer, crafted)), capi::CRYPT_E_ASN1_LARGE);

    crafted = honest(signer, content);
    crafted.certificates.assign(4096, der::element(0xA2, {}));
    EXPECT_EQ(Msg::decode().feed(encode(signer, crafted)), 0U);
    crafted.certificates.push_back(der::element(0xA2, {}));
    EXPECT_EQ(Msg::decode().feed(encode(signer, crafted)), capi::CRYPT_E_ASN1_LARGE);

    crafted = honest(signer, content);
    crafted.certificates.assign(17, der::element(0xA2, der::octetString(Bytes(1U << 20U))));
    EXPECT_EQ(Msg::decode().feed(encode(signer, crafted)), capi::CRYPT_E_ASN1_LARGE);
}

TEST_F(Decoder, AddsAnUnsignedAttributeAndNothingElse) {
    const Bytes token = attribute("1.2.840.113549.1.9.16.2.14", {der::sequence({der::integer(1)})});
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    EXPECT_EQ(msg.addUnsignedAttribute(1, token), capi::CRYPT_E_INVALID_INDEX);
    EXPECT_EQ(msg.addUnsignedAttribute(0, bytes("nonsense")), capi::CRYPT_E_ASN1_BADTAG);
    ASSERT_EQ(msg.addUnsignedAttribute(0, token), 0U);
    const Bytes grown = msg.param(capi::CMSG_ENCODED_MESSAGE);
    EXPECT_FALSE(std::ranges::search(grown, token).empty());
    EXPECT_EQ(grown.size(), message.size() + token.size());

    const Msg again = Msg::decode();
    ASSERT_EQ(again.feed(grown), 0U);
    EXPECT_EQ(again.verify(signer.certificate), 0U);
    const Bytes attributes = again.param(capi::CMSG_SIGNER_UNAUTH_ATTR_PARAM);
    EXPECT_EQ(as<CRYPT_ATTRIBUTES>(attributes).cAttr, 2U);
    for (const DWORD same : {capi::CMSG_ENCRYPTED_DIGEST, capi::CMSG_COMPUTED_HASH_PARAM, capi::CMSG_CONTENT_PARAM}) {
        EXPECT_EQ(again.param(same), msg.param(same));
    }
    const TempFolder folder;
    writeFile(folder.path() / "message", grown);
    EXPECT_EQ(run(folder, "openssl cms -verify -binary -noverify -inform DER -in message -out verified"), 0)
        << output(folder);
}

TEST_F(Decoder, AddsAnUnsignedAttributeToAStreamedMessage) {
    const Bytes token = attribute("1.2.840.113549.1.9.16.2.14", {der::sequence({der::integer(1)})});
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(sign({signer, makeSigner(KeyKind::Rsa)}, Bytes(200000, 0x5A))), 0U);
    ASSERT_EQ(msg.addUnsignedAttribute(0, token), 0U);
    const Msg again = Msg::decode();
    ASSERT_EQ(again.feed(msg.param(capi::CMSG_ENCODED_MESSAGE)), 0U);
    EXPECT_EQ(again.verify(signer.certificate), 0U);
    EXPECT_EQ(again.paramError(capi::CMSG_SIGNER_UNAUTH_ATTR_PARAM, 0), 0U);
    EXPECT_EQ(again.paramError(capi::CMSG_SIGNER_UNAUTH_ATTR_PARAM, 1), capi::CRYPT_E_ATTRIBUTES_MISSING);
}

TEST_F(Decoder, RefusesControlsThatItDoesNotHave) {
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    const CERT_INFO any{};
    const auto control = [&](DWORD type, const void* parameters) {
        return api::CryptMsgControl(msg.handle(), 0, type, parameters) != 0 ? 0 : api::GetLastError();
    };
    EXPECT_EQ(control(12345, &any), capi::CRYPT_E_CONTROL_TYPE);
    EXPECT_EQ(control(capi::CMSG_CTRL_DECRYPT, &any), capi::CRYPT_E_INVALID_MSG_TYPE);
    EXPECT_EQ(control(capi::CMSG_CTRL_VERIFY_SIGNATURE, nullptr), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(control(capi::CMSG_CTRL_VERIFY_SIGNATURE, &any), capi::CRYPT_E_SIGNER_NOT_FOUND);
    CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA wrongSize{};
    EXPECT_EQ(control(capi::CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, &wrongSize), capi::ERROR_INVALID_PARAMETER);
}

// ---- handles ---------------------------------------------------------------------------------------------------

TEST(MessageHandle, ThatIsNotOneIsRefusedByEveryCall) {
    void* stale = nullptr;
    {
        const Msg msg = Msg::decode();
        stale = msg.handle();
    }
    int local = 0;
    for (void* const handle : {static_cast<void*>(nullptr), stale, static_cast<void*>(&local)}) {
        DWORD size = 0;
        const auto refused = [](BOOL ok) { return ok == 0 && api::GetLastError() == capi::ERROR_INVALID_HANDLE; };
        EXPECT_TRUE(refused(api::CryptMsgUpdate(handle, nullptr, 0, 1)));
        EXPECT_TRUE(refused(api::CryptMsgGetParam(handle, capi::CMSG_TYPE_PARAM, 0, nullptr, &size)));
        EXPECT_TRUE(refused(api::CryptMsgControl(handle, 0, capi::CMSG_CTRL_VERIFY_SIGNATURE, &local)));
        EXPECT_TRUE(refused(api::CryptMsgClose(handle)));
        EXPECT_THROW(csp::certificateCarrier(handle), csp::ApiError);
    }
}

TEST(MessageHandle, OpeningRefusesWhatItDoesNotKnow) {
    const auto error = [](DWORD encoding, DWORD flags, DWORD type, CMSG_STREAM_INFO* stream) {
        const Msg msg(api::CryptMsgOpenToDecode(encoding, flags, type, 0, nullptr, stream));
        return msg.handle() != nullptr ? 0 : api::GetLastError();
    };
    CMSG_STREAM_INFO noCallback{capi::CMSG_INDEFINITE_LENGTH, nullptr, nullptr};
    EXPECT_EQ(error(capi::X509_AND_PKCS_7, 0, capi::CMSG_SIGNED, nullptr), 0U);
    EXPECT_EQ(error(capi::X509_ASN_ENCODING, 0, 0, nullptr), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(error(capi::X509_AND_PKCS_7, 0x40000000, 0, nullptr), capi::NTE_BAD_FLAGS);
    EXPECT_EQ(error(capi::X509_AND_PKCS_7, 0, capi::CMSG_ENVELOPED, nullptr), 0U);
    EXPECT_EQ(error(capi::X509_AND_PKCS_7, capi::CMSG_DETACHED_FLAG, capi::CMSG_ENVELOPED, nullptr),
              capi::NTE_BAD_FLAGS);
    constexpr DWORD encrypted = 6; // EncryptedData
    EXPECT_EQ(error(capi::X509_AND_PKCS_7, 0, encrypted, nullptr), capi::CRYPT_E_INVALID_MSG_TYPE);
    EXPECT_EQ(error(capi::X509_AND_PKCS_7, 0, 0, &noCallback), capi::ERROR_INVALID_PARAMETER);
}

TEST(MessageHandle, IsBusyWithinItsOwnCallback) {
    struct State {
        void* handle = nullptr;
        DWORD error = 0;
    } state;
    const auto reenter = [](const void* argument, BYTE*, DWORD, BOOL) -> BOOL {
        auto& inside = *static_cast<State*>(const_cast<void*>(argument));
        inside.error = api::CryptMsgUpdate(inside.handle, nullptr, 0, 1) != 0 ? 0 : api::GetLastError();
        return 1;
    };
    CMSG_STREAM_INFO stream{capi::CMSG_INDEFINITE_LENGTH, reenter, &state};
    const Signer signer = makeSigner(KeyKind::Rsa);
    const Bytes message = sign({signer}, bytes("content"));
    const Msg msg = Msg::decode(0, &stream);
    state.handle = msg.handle();
    EXPECT_EQ(msg.feed(message), 0U);
    EXPECT_EQ(state.error, capi::ERROR_BUSY);
    EXPECT_EQ(msg.verify(signer.certificate), 0U);
}

TEST(MessageHandle, SurvivesAnExceptionOfTheCallback) {
    const auto raise = [](const void*, BYTE*, DWORD, BOOL) -> BOOL { throw std::runtime_error("a host's own"); };
    CMSG_STREAM_INFO stream{capi::CMSG_INDEFINITE_LENGTH, raise, nullptr};
    const Bytes message = sign({makeSigner(KeyKind::Rsa)}, bytes("content"));
    const Msg msg = Msg::decode(0, &stream);
    EXPECT_EQ(msg.feed(message), capi::NTE_FAIL);
    EXPECT_EQ(msg.feed({}), capi::CRYPT_E_MSG_ERROR);
}

} // namespace
} // namespace klunortredi::test
