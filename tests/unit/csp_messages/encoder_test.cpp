// Making messages: their form, and every way in which it can go wrong.

#include "asn1/der.hpp"
#include "crafted.hpp"
#include "signing.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace klunortredi::test {
namespace {

namespace der = csp::der;

class Encoder : public testing::Test {
protected:
    [[nodiscard]] DWORD errorOf(const SignOptions& options) const { return trySign({signer}, content, options).error; }

    /// The octets before the first signature: all that does not differ from one signing to the next.
    [[nodiscard]] static Bytes beforeSigners(const Bytes& message, const Signer& signer) {
        const auto found = std::ranges::search(message, signer.certificate);
        return {message.begin(), found.end()};
    }

    Signer signer = makeSigner(KeyKind::Gost256);
    Bytes content = Bytes(150000, 0x5A);
};

TEST_F(Encoder, MakesTheSameWhateverThePieces) {
    for (const bool detached : {false, true}) {
        SignOptions options;
        options.detached = detached;
        options.attributes = someAttributes();
        const Bytes inOne = sign({signer}, content, options);
        for (const std::size_t chunk : {std::size_t{1}, std::size_t{7}, std::size_t{4096}, std::size_t{65536}}) {
            options.chunk = chunk;
            const Signed made = trySign({signer}, content, options);
            ASSERT_EQ(made.error, 0U);
            EXPECT_EQ(made.finalCalls, 1U);
            EXPECT_EQ(made.message.size(), inOne.size());
            EXPECT_EQ(beforeSigners(made.message, signer), beforeSigners(inOne, signer)) << chunk;
        }
    }
}

TEST_F(Encoder, MakesDerWhenTheSizeIsTold) {
    SignOptions known;
    known.contentSize = static_cast<DWORD>(content.size());
    known.chunk = 1000;
    SignOptions onePiece;
    onePiece.streamed = false;
    const Bytes streamed = sign({signer}, content, known);
    const Bytes whole = sign({signer}, content, onePiece);
    EXPECT_EQ(streamed.size(), whole.size());
    EXPECT_EQ(beforeSigners(streamed, signer), beforeSigners(whole, signer));
    EXPECT_NO_THROW(der::readOnly(streamed)) << "definite lengths";
}

TEST_F(Encoder, RefusesContentOfAnotherSizeThanTold) {
    SignOptions options;
    options.contentSize = static_cast<DWORD>(content.size() - 1);
    EXPECT_EQ(errorOf(options), capi::CRYPT_E_BAD_LEN);
    options.contentSize = static_cast<DWORD>(content.size() + 1);
    EXPECT_EQ(errorOf(options), capi::CRYPT_E_BAD_LEN);
}

TEST_F(Encoder, SignsEmptyContent) {
    const Bytes message = sign({signer}, {});
    const Verdict verdict = verifyStreamed(message);
    EXPECT_EQ(verdict.error, 0U);
    EXPECT_EQ(verdict.content, Bytes{});
}

TEST_F(Encoder, SignsContentOfAnotherTypeWithAttributes) {
    SignOptions options;
    options.contentType = "1.2.840.113549.1.9.16.1.4";
    options.streamed = false;
    const Bytes message = sign({signer}, content, options);
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    EXPECT_EQ(msg.paramError(capi::CMSG_SIGNER_AUTH_ATTR_PARAM), 0U);
    EXPECT_EQ(msg.verify(signer.certificate), 0U);
    der::Reader contentInfo(der::readOnly(message).content);
    contentInfo.read();
    EXPECT_EQ(der::toInt32(contentInfo.enter(0xA0).enter(der::tag::Sequence).read()), 3) << "RFC 5652, 5.1";
}

TEST_F(Encoder, SortsTheSignedAttributes) {
    SignOptions options;
    options.attributes = someAttributes();
    options.streamed = false;
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(sign({signer}, content, options)), 0U);
    const Bytes octets = msg.param(capi::CMSG_SIGNER_AUTH_ATTR_PARAM);
    const auto& attributes = *reinterpret_cast<const CRYPT_ATTRIBUTES*>(octets.data());
    std::vector<Bytes> encoded;
    for (DWORD i = 0; i < attributes.cAttr; ++i) {
        const CRYPT_ATTRIBUTE& one = attributes.rgAttr[i];
        encoded.push_back(
            attribute(one.pszObjId, {Bytes(one.rgValue->pbData, one.rgValue->pbData + one.rgValue->cbData)}));
    }
    EXPECT_EQ(encoded.size(), 4U);
    EXPECT_TRUE(std::ranges::is_sorted(encoded));
}

TEST_F(Encoder, CarriesSeveralSignersAndTheirCertificates) {
    const Signer second = makeSigner(KeyKind::Rsa);
    const Signer third = makeSigner(KeyKind::Gost512);
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(sign({signer, second, third}, content)), 0U);
    EXPECT_EQ(msg.number(capi::CMSG_SIGNER_COUNT_PARAM), 3U);
    EXPECT_EQ(msg.number(capi::CMSG_CERT_COUNT_PARAM), 3U);
    for (const Signer& one : {signer, second, third}) {
        EXPECT_EQ(msg.verify(one.certificate), 0U);
    }
}

TEST_F(Encoder, LeavesCertificatesOutWhenNoneAreGiven) {
    SignOptions options;
    options.withCertificates = false;
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(sign({signer}, content, options)), 0U);
    EXPECT_EQ(msg.number(capi::CMSG_CERT_COUNT_PARAM), 0U);
    EXPECT_EQ(msg.verify(signer.certificate), 0U);
}

TEST_F(Encoder, RefusesAttributesThatAreItsOwnMatter) {
    SignOptions options;
    options.attributes = {{"1.2.840.113549.1.9.4", der::octetString(bytes("mine"))}};
    EXPECT_EQ(errorOf(options), capi::ERROR_INVALID_PARAMETER);
    options.attributes = {{"1.2.840.113549.1.9.3", der::objectIdentifier("1.2.3")}};
    EXPECT_EQ(errorOf(options), capi::ERROR_INVALID_PARAMETER);
}

TEST_F(Encoder, RefusesAttributesThatNobodyWouldAccept) {
    SignOptions options;
    options.attributes = someAttributes();
    options.attributes.push_back(options.attributes.front());
    EXPECT_EQ(errorOf(options), capi::CRYPT_E_AUTH_ATTR_MISSING) << "two signing times";
    options.attributes = {{"1.2.3", bytes("not DER")}};
    EXPECT_NE(errorOf(options), 0U);
    options.attributes = {{"nonsense", der::integer(1)}};
    EXPECT_EQ(errorOf(options), capi::CRYPT_E_OID_FORMAT);
}

TEST_F(Encoder, RefusesStructuresOfAnotherSize) {
    SignOptions options;
    options.spoil = [](CMSG_SIGNED_ENCODE_INFO& message, CMSG_SIGNER_ENCODE_INFO&) { message.cbSize = 47; };
    EXPECT_EQ(errorOf(options), capi::ERROR_INVALID_PARAMETER);
    options.spoil = [](CMSG_SIGNED_ENCODE_INFO&, CMSG_SIGNER_ENCODE_INFO& info) { info.cbSize = 104; };
    EXPECT_EQ(errorOf(options), capi::ERROR_INVALID_PARAMETER);
}

TEST_F(Encoder, RefusesDigestsThatTheKeyDoesNotSign) {
    static char sha256[] = "2.16.840.1.101.3.4.2.1";
    static char nobodys[] = "1.2.3.4";
    SignOptions options;
    options.spoil = [](CMSG_SIGNED_ENCODE_INFO&, CMSG_SIGNER_ENCODE_INFO& info) {
        info.HashAlgorithm.pszObjId = sha256;
    };
    EXPECT_EQ(errorOf(options), capi::NTE_BAD_ALGID);
    options.spoil = [](CMSG_SIGNED_ENCODE_INFO&, CMSG_SIGNER_ENCODE_INFO& info) {
        info.HashAlgorithm.pszObjId = nobodys;
    };
    EXPECT_EQ(errorOf(options), capi::CRYPT_E_UNKNOWN_ALGO);
}

TEST_F(Encoder, RefusesACertificateOfAnotherKey) {
    Signer mixed = signer;
    mixed.certificate = makeSigner(KeyKind::Gost256).certificate;
    EXPECT_EQ(trySign({mixed}, content).error, capi::NTE_BAD_PUBLIC_KEY);
}

TEST_F(Encoder, RefusesProvidersAndKeysThatAreNotThere) {
    SignOptions options;
    options.spoil = [](CMSG_SIGNED_ENCODE_INFO&, CMSG_SIGNER_ENCODE_INFO& info) { info.hCryptProv = 12345; };
    EXPECT_EQ(errorOf(options), capi::ERROR_INVALID_HANDLE);
    options.spoil = [](CMSG_SIGNED_ENCODE_INFO&, CMSG_SIGNER_ENCODE_INFO& info) { info.dwKeySpec = 2; };
    EXPECT_EQ(errorOf(options), capi::NTE_NO_KEY);
}

TEST_F(Encoder, RefusesCertificatesThatAreNone) {
    SignOptions options;
    static BYTE nonsense[] = {0x30, 0x00};
    static CERT_BLOB blob{sizeof nonsense, nonsense};
    options.spoil = [](CMSG_SIGNED_ENCODE_INFO& message, CMSG_SIGNER_ENCODE_INFO&) { message.rgCertEncoded = &blob; };
    EXPECT_EQ(errorOf(options), capi::CRYPT_E_ASN1_CORRUPT);
}

TEST_F(Encoder, StopsWhenTheCallbackRefuses) {
    const Signed complete = trySign({signer}, content);
    ASSERT_EQ(complete.error, 0U);
    // Wherever the callback refuses, nothing more comes and the call fails.
    for (const std::size_t limit :
         {std::size_t{0}, std::size_t{100}, std::size_t{70000}, complete.message.size() - 1}) {
        Collected collected;
        collected.failAfter = limit;
        const Signed made = trySign({signer}, content, {}, collected);
        EXPECT_EQ(made.error, capi::CRYPT_E_MSG_ERROR) << limit;
        EXPECT_GT(collected.octets.size(), limit);
        EXPECT_LE(collected.octets.size(), limit + 65536 + 4) << "one piece over the limit at most";
    }
}

TEST_F(Encoder, GivesNoEndWhenSigningFails) {
    const Signer locked = makeLockedSigner(KeyKind::Gost256);
    Collected collected;
    const Signed made = trySign({signer, locked}, content, {}, collected);
    EXPECT_EQ(made.error, capi::SCARD_W_CARD_NOT_AUTHENTICATED);
    EXPECT_EQ(collected.finalCalls, 0U);
    EXPECT_TRUE(std::ranges::search(collected.octets, signer.certificate).empty());
}

} // namespace
} // namespace klunortredi::test
