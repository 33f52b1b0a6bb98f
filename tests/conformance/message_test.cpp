// CryptMsgOpenToEncode, CryptMsgOpenToDecode, CryptMsgUpdate, CryptMsgGetParam, CryptMsgControl, CryptMsgClose.

#include "samples.hpp"
#include "signed_message.hpp"

namespace conformance {

namespace {

using namespace capi;

bool verify(const Message& message, const CERT_INFO* certificate) {
    return api().CryptMsgControl(message.get(), 0, CMSG_CTRL_VERIFY_SIGNATURE, certificate) != 0;
}

void* openToDecode(DWORD encoding, DWORD type) {
    return api().CryptMsgOpenToDecode(encoding, 0, type, 0, nullptr, nullptr);
}

/// Messages that somebody else made.
class ForeignMessage : public ConformanceTest {
protected:
    static Decoded read() { return readMessage(samples::attached(), {}, {}); }
    Certificate leaf_ = samples::contextOf(samples::leaf());
    DWORD size_ = 0;
};

/// Messages that the service makes and reads itself.
class OwnMessage : public ConformanceTest, public testing::WithParamInterface<ProviderKind> {
protected:
    static const ProviderKind& kind() { return GetParam(); }
    [[nodiscard]] bool opens(const CMSG_SIGNED_ENCODE_INFO* info, DWORD encoding = X509_AND_PKCS_7,
                             DWORD type = CMSG_SIGNED) const {
        return Message(api().CryptMsgOpenToEncode(encoding, 0, type, info, nullptr, nullptr)).get() != nullptr;
    }
    /// Signs, reads back and verifies.
    void roundTrip(const Feeding& making, const Feeding& reading) {
        const Bytes encoded = signMessage(signer_, kind(), content_, making);
        const Decoded decoded = readMessage(encoded, content_, reading);
        EXPECT_ACCEPTED(verify(decoded.message, signer_.info()));
        if (!reading.detached) {
            EXPECT_EQ(reading.streamed ? decoded.streamed : fetch(messageParam(decoded.message, CMSG_CONTENT_PARAM)),
                      content_);
        }
    }
    Signer signer_{GetParam()};
    Bytes content_ = Bytes(3000, 'x');
};

constexpr DWORD unknown = 9999;

} // namespace

TEST_F(ForeignMessage, RefusesToBeOpenedAsWhatItCannotBe) {
    EXPECT_REFUSED(openToDecode(0, 0), BAD_ARGUMENT);
    EXPECT_REFUSED(openToDecode(X509_AND_PKCS_7, unknown), CRYPT_E_INVALID_MSG_TYPE);
}

TEST_F(ForeignMessage, RefusesWhatIsNoMessage) {
    static int nothing = 0;
    BYTE octet = 0;
    for (void* const handle : {static_cast<void*>(nullptr), static_cast<void*>(&nothing)}) {
        EXPECT_REFUSED(api().CryptMsgUpdate(handle, &octet, 1, 1), ERROR_INVALID_HANDLE, BAD_ARGUMENT);
        EXPECT_REFUSED(api().CryptMsgGetParam(handle, CMSG_TYPE_PARAM, 0, nullptr, &size_), ERROR_INVALID_HANDLE,
                       BAD_ARGUMENT);
        EXPECT_REFUSED(api().CryptMsgControl(handle, 0, CMSG_CTRL_VERIFY_SIGNATURE, leaf_.get()->pCertInfo),
                       ERROR_INVALID_HANDLE, BAD_ARGUMENT);
    }
    EXPECT_REFUSED(api().CryptMsgClose(&nothing), ERROR_INVALID_HANDLE, BAD_ARGUMENT);
}

TEST_F(ForeignMessage, RefusesAClosedHandle) {
    Decoded decoded = read();
    void* const stale = decoded.message.release();
    EXPECT_ACCEPTED(api().CryptMsgClose(stale));
    EXPECT_REFUSED(api().CryptMsgGetParam(stale, CMSG_TYPE_PARAM, 0, nullptr, &size_), ERROR_INVALID_HANDLE,
                   BAD_ARGUMENT);
    EXPECT_REFUSED(api().CryptMsgClose(stale), ERROR_INVALID_HANDLE, BAD_ARGUMENT);
}

TEST_F(ForeignMessage, RefusesNullPointers) {
    const Decoded decoded = read();
    EXPECT_REFUSED(api().CryptMsgGetParam(decoded.message.get(), CMSG_TYPE_PARAM, 0, nullptr, nullptr), BAD_ARGUMENT);
    EXPECT_REFUSED(verify(decoded.message, nullptr), BAD_ARGUMENT);
    const Message fresh(openToDecode(X509_AND_PKCS_7, 0));
    EXPECT_REFUSED(api().CryptMsgUpdate(fresh.get(), nullptr, 1, 0), BAD_ARGUMENT);
}

TEST_F(ForeignMessage, TellsNothingBeforeItIsRead) {
    const Message fresh(openToDecode(X509_AND_PKCS_7, 0));
    EXPECT_EQ(api().CryptMsgGetParam(fresh.get(), CMSG_CONTENT_PARAM, 0, nullptr, &size_), 0);
    EXPECT_EQ(api().CryptMsgGetParam(fresh.get(), CMSG_SIGNER_COUNT_PARAM, 0, nullptr, &size_), 0);
    EXPECT_FALSE(verify(fresh, leaf_.get()->pCertInfo));
}

TEST_F(ForeignMessage, TakesNothingAfterItsEnd) {
    const Decoded decoded = read();
    const BYTE octet = 0;
    EXPECT_REFUSED(api().CryptMsgUpdate(decoded.message.get(), &octet, 1, 1), CRYPT_E_MSG_ERROR);
}

TEST_F(ForeignMessage, RefusesUnknownParametersIndexesAndControls) {
    const Decoded decoded = read();
    void* const message = decoded.message.get();
    EXPECT_REFUSED(api().CryptMsgGetParam(message, unknown, 0, nullptr, &size_), CRYPT_E_INVALID_MSG_TYPE,
                   BAD_ARGUMENT);
    EXPECT_REFUSED(api().CryptMsgGetParam(message, CMSG_SIGNER_INFO_PARAM, 1, nullptr, &size_), CRYPT_E_INVALID_INDEX);
    EXPECT_REFUSED(api().CryptMsgGetParam(message, CMSG_CERT_PARAM, 2, nullptr, &size_), CRYPT_E_INVALID_INDEX);
    EXPECT_REFUSED(api().CryptMsgControl(message, 0, unknown, leaf_.get()->pCertInfo), CRYPT_E_CONTROL_TYPE);
}

TEST_F(ForeignMessage, WalksTheSizesOfItsParameters) {
    const Decoded decoded = read();
    const Message& message = decoded.message;
    EXPECT_EQ(as<DWORD>(walkSizes(messageParam(message, CMSG_TYPE_PARAM))), CMSG_SIGNED);
    EXPECT_EQ(walkSizes(messageParam(message, CMSG_CONTENT_PARAM)), octets(samples::content));
    EXPECT_STREQ(reinterpret_cast<const char*>(walkSizes(messageParam(message, CMSG_INNER_CONTENT_TYPE_PARAM)).data()),
                 "1.2.840.113549.1.7.1");
    EXPECT_EQ(as<DWORD>(walkSizes(messageParam(message, CMSG_SIGNER_COUNT_PARAM))), 1U);
    EXPECT_EQ(as<DWORD>(walkSizes(messageParam(message, CMSG_CERT_COUNT_PARAM))), 2U);
    EXPECT_EQ(as<DWORD>(walkSizes(messageParam(message, CMSG_CRL_COUNT_PARAM))), 0U);
    EXPECT_EQ(walkSizes(messageParam(message, CMSG_ENCRYPTED_DIGEST)).size(), 256U);
    EXPECT_EQ(walkSizes(messageParam(message, CMSG_ENCODED_MESSAGE)), samples::attached());
}

TEST_F(ForeignMessage, DescribesItsSigner) {
    const Decoded decoded = read();
    const Bytes block = walkSizes(messageParam(decoded.message, CMSG_SIGNER_INFO_PARAM));
    const auto& signer = as<CMSG_SIGNER_INFO>(block);
    const CERT_INFO& certificate = *leaf_.get()->pCertInfo;
    EXPECT_EQ(signer.dwVersion, 1U);
    EXPECT_EQ(bytesOf(signer.Issuer), bytesOf(certificate.Issuer));
    EXPECT_EQ(bytesOf(signer.SerialNumber), bytesOf(certificate.SerialNumber));
    EXPECT_STREQ(signer.HashAlgorithm.pszObjId, "2.16.840.1.101.3.4.2.1");
    EXPECT_GE(signer.AuthAttrs.cAttr, 3U);
    EXPECT_EQ(signer.UnauthAttrs.cAttr, 0U);
    const Bytes id = walkSizes(messageParam(decoded.message, CMSG_SIGNER_CERT_INFO_PARAM));
    EXPECT_EQ(bytesOf(as<CERT_INFO>(id).SerialNumber), bytesOf(certificate.SerialNumber));
}

TEST_F(ForeignMessage, IsVerifiedAttachedAndDetached) {
    EXPECT_ACCEPTED(verify(read().message, leaf_.get()->pCertInfo));
    const Bytes content = octets(samples::content);
    EXPECT_ACCEPTED(
        verify(readMessage(samples::detached(), content, {.detached = true}).message, leaf_.get()->pCertInfo));
}

TEST_F(ForeignMessage, IsVerifiedByItsSignerAlone) {
    const Certificate other = samples::contextOf(samples::intermediate());
    const Decoded decoded = read();
    EXPECT_REFUSED(verify(decoded.message, other.get()->pCertInfo), CRYPT_E_SIGNER_NOT_FOUND);
}

TEST_F(ForeignMessage, IsRefusedForOtherContent) {
    const Bytes content = octets("conformancf");
    const Decoded decoded = readMessage(samples::detached(), content, {.detached = true});
    EXPECT_REFUSED(verify(decoded.message, leaf_.get()->pCertInfo), CRYPT_E_HASH_VALUE, NTE_BAD_SIGNATURE);
}

TEST_F(ForeignMessage, IsRefusedWhenItsSignatureWasChanged) {
    Bytes changed = samples::detached();
    changed.back() ^= 1U;
    const Decoded decoded = readMessage(changed, octets(samples::content), {.detached = true});
    EXPECT_REFUSED(verify(decoded.message, leaf_.get()->pCertInfo), NTE_BAD_SIGNATURE);
}

TEST_F(ForeignMessage, IsRefusedWhenItBreaksOff) {
    const Bytes& whole = samples::attached();
    for (const std::size_t size : {std::size_t{1}, whole.size() / 2, whole.size() - 1}) {
        const Message message(openToDecode(X509_AND_PKCS_7, 0));
        EXPECT_EQ(api().CryptMsgUpdate(message.get(), whole.data(), static_cast<DWORD>(size), 1), 0) << size;
        EXPECT_NE(api().GetLastError(), 0U);
    }
}

TEST_F(ForeignMessage, TakesAnUnsignedAttribute) {
    const Decoded decoded = read();
    Bytes attribute = fromHex("300906032a030431020500"); // 1.2.3.4, NULL
    CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA para{sizeof para, 0, {sizeOf(attribute), attribute.data()}};
    ASSERT_TRUE(accepts(
        [&] { return api().CryptMsgControl(decoded.message.get(), 0, CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, &para) != 0; }));
    const Decoded grown = readMessage(fetch(messageParam(decoded.message, CMSG_ENCODED_MESSAGE)), {}, {});
    const Bytes block = fetch(messageParam(grown.message, CMSG_SIGNER_UNAUTH_ATTR_PARAM));
    const auto& attributes = as<CRYPT_ATTRIBUTES>(block);
    ASSERT_EQ(attributes.cAttr, 1U);
    EXPECT_STREQ(attributes.rgAttr[0].pszObjId, "1.2.3.4");
    EXPECT_ACCEPTED(verify(grown.message, leaf_.get()->pCertInfo));
    para.dwSignerIndex = 1;
    EXPECT_REFUSED(api().CryptMsgControl(decoded.message.get(), 0, CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, &para),
                   CRYPT_E_INVALID_INDEX, BAD_ARGUMENT);
}

TEST_F(ForeignMessage, DoesNotDependOnTheChunks) {
    for (const std::size_t chunk : {1U, 7U, 1000U}) {
        const Decoded decoded = readMessage(samples::attached(), {}, {.streamed = true, .chunk = chunk});
        EXPECT_EQ(decoded.streamed, octets(samples::content)) << chunk;
        EXPECT_ACCEPTED(verify(decoded.message, leaf_.get()->pCertInfo)) << chunk;
    }
}

TEST_P(OwnMessage, RefusesBadDescriptions) {
    EXPECT_REFUSED(opens(nullptr), BAD_ARGUMENT);
    Description bad(signer_, kind());
    EXPECT_REFUSED(opens(&bad.info, 0), BAD_ARGUMENT);
    EXPECT_REFUSED(opens(&bad.info, X509_AND_PKCS_7, unknown), CRYPT_E_INVALID_MSG_TYPE);
    std::string noHash = "1.2.3.4.5";
    bad.signer.HashAlgorithm.pszObjId = noHash.data();
    EXPECT_REFUSED(opens(&bad.info), CRYPT_E_UNKNOWN_ALGO);
    bad.info.cbSize = 4;
    EXPECT_REFUSED(opens(&bad.info), BAD_ARGUMENT);
}

TEST_P(OwnMessage, RefusesASignerWithoutAKey) {
    Description bad(signer_, kind());
    bad.signer.dwKeySpec = AT_SIGNATURE;
    EXPECT_REFUSED(opens(&bad.info), NTE_NO_KEY);
    bad.signer.hCryptProv = 1;
    EXPECT_REFUSED(opens(&bad.info), BAD_PROVIDER);
}

TEST_P(OwnMessage, IsReadBackAttached) {
    roundTrip({}, {});
    roundTrip({.streamed = true}, {.streamed = true});
}

TEST_P(OwnMessage, IsReadBackDetached) {
    roundTrip({.detached = true}, {.detached = true});
    roundTrip({.detached = true, .streamed = true}, {.detached = true, .streamed = true});
}

TEST_P(OwnMessage, IsReadBackWhateverTheChunks) {
    roundTrip({.streamed = true, .chunk = 1}, {.streamed = true, .chunk = 1000});
    roundTrip({.streamed = true, .chunk = 1000}, {.streamed = true, .chunk = 1});
    roundTrip({.detached = true, .streamed = true, .chunk = 7}, {.detached = true, .streamed = true, .chunk = 1});
}

TEST_P(OwnMessage, LeavesDetachedContentOut) {
    const Bytes encoded = signMessage(signer_, kind(), content_, {.detached = true});
    EXPECT_LT(encoded.size(), content_.size());
    const Decoded decoded = readMessage(encoded, content_, {.detached = true});
    const Bytes other(content_.size(), 'y');
    EXPECT_REFUSED(verify(readMessage(encoded, other, {.detached = true}).message, signer_.info()), CRYPT_E_HASH_VALUE,
                   NTE_BAD_SIGNATURE);
    EXPECT_EQ(fetch(messageParam(decoded.message, CMSG_CERT_PARAM)), signer_.der());
}

TEST_P(OwnMessage, CarriesWhatItsDescriptionSays) {
    const Decoded decoded = readMessage(signMessage(signer_, kind(), content_, {}), {}, {});
    EXPECT_EQ(as<DWORD>(fetch(messageParam(decoded.message, CMSG_CERT_COUNT_PARAM))), 1U);
    const Bytes block = fetch(messageParam(decoded.message, CMSG_SIGNER_AUTH_ATTR_PARAM));
    const auto& attributes = as<CRYPT_ATTRIBUTES>(block);
    bool signingTime = false;
    for (DWORD i = 0; i < attributes.cAttr; ++i) {
        signingTime = signingTime || std::string(attributes.rgAttr[i].pszObjId) == szOID_RSA_signingTime;
    }
    EXPECT_TRUE(signingTime);
    const Bytes hash = walkSizes(messageParam(decoded.message, CMSG_SIGNER_HASH_ALGORITHM_PARAM));
    EXPECT_STREQ(as<CRYPT_ALGORITHM_IDENTIFIER>(hash).pszObjId, kind().hashOid);
    EXPECT_FALSE(walkSizes(messageParam(decoded.message, CMSG_COMPUTED_HASH_PARAM)).empty());
}

TEST_P(OwnMessage, TakesNothingAfterItsEnd) {
    Description description(signer_, kind());
    const Message message(
        api().CryptMsgOpenToEncode(X509_AND_PKCS_7, 0, CMSG_SIGNED, &description.info, nullptr, nullptr));
    ASSERT_TRUE(feed(message, content_, 0));
    EXPECT_REFUSED(feed(message, content_, 0), CRYPT_E_MSG_ERROR);
}

TEST_P(OwnMessage, TellsItsEndToTheCallbackOnce) {
    Description description(signer_, kind());
    Sink sink;
    CMSG_STREAM_INFO stream = sink.info();
    const Message message(
        api().CryptMsgOpenToEncode(X509_AND_PKCS_7, 0, CMSG_SIGNED, &description.info, nullptr, &stream));
    ASSERT_TRUE(feed(message, content_, 100));
    EXPECT_EQ(sink.finals, 1);
}

INSTANTIATE_TEST_SUITE_P(Providers, OwnMessage, testing::ValuesIn(offeredKinds()), nameOfType<ProviderKind>);

} // namespace conformance
