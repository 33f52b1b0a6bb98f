// Messages that nobody signed: DigestedData and plain Data.

#include "asn1/der.hpp"
#include "crypto/digest.hpp"
#include "exports/export.hpp"
#include "openssl_tool.hpp"
#include "support.hpp"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace klunortredi::test {
namespace {

namespace api = csp::exports;
namespace der = csp::der;

constexpr const char* dataOid = "1.2.840.113549.1.7.1";
constexpr const char* digestedDataOid = "1.2.840.113549.1.7.5";
constexpr const char* sha256 = "2.16.840.1.101.3.4.2.1";

Bytes contentInfo(const char* type, ByteView content) {
    return der::sequence({der::objectIdentifier(type), der::explicitTag(0, content)});
}

Bytes digestOf(const char* algorithm, ByteView content) {
    return csp::Digest::of(*csp::findDigest(algorithm), content);
}

struct DigestedParts {
    const char* algorithm = sha256;
    Bytes encapsulated; ///< [0] EXPLICIT OCTET STRING, or nothing
    Bytes digest;
};

Bytes digestedData(const DigestedParts& parts) {
    const Bytes info = der::sequence({der::objectIdentifier(dataOid), parts.encapsulated});
    return contentInfo(digestedDataOid,
                       der::sequence({der::integer(0), der::sequence({der::objectIdentifier(parts.algorithm)}), info,
                                      der::octetString(parts.digest)}));
}

Bytes inside(ByteView content) {
    return der::explicitTag(0, der::octetString(content));
}

DWORD verifyHash(const Msg& message) {
    return api::CryptMsgControl(message.handle(), 0, capi::CMSG_CTRL_VERIFY_HASH, nullptr) != 0 ? 0
                                                                                                : api::GetLastError();
}

/// The code of reading `message` as a stream and checking its digest.
DWORD verdictOn(ByteView message, std::size_t chunk = whole) {
    Collected collected;
    CMSG_STREAM_INFO stream = collected.info();
    const Msg msg = Msg::decode(0, &stream);
    const DWORD error = msg.feed(message, chunk);
    return error != 0 ? error : verifyHash(msg);
}

Bytes text(std::string_view value) {
    Bytes octets = bytes(value);
    octets.push_back(0);
    return octets;
}

class Digested : public testing::Test {
protected:
    Bytes content = bytes("digested content");
    Bytes digest = digestOf(sha256, content);
    Bytes message = digestedData({sha256, inside(content), digest});
};

TEST_F(Digested, GivesTypeContentAndBothDigests) {
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    EXPECT_EQ(msg.number(capi::CMSG_TYPE_PARAM), capi::CMSG_HASHED);
    EXPECT_EQ(msg.param(capi::CMSG_CONTENT_PARAM), content);
    EXPECT_EQ(msg.param(capi::CMSG_INNER_CONTENT_TYPE_PARAM), text(dataOid));
    EXPECT_EQ(msg.param(capi::CMSG_HASH_DATA_PARAM), digest);
    EXPECT_EQ(msg.param(capi::CMSG_COMPUTED_HASH_PARAM), digest);
    const Bytes algorithm = msg.param(capi::CMSG_HASH_ALGORITHM_PARAM);
    EXPECT_STREQ(reinterpret_cast<const CRYPT_ALGORITHM_IDENTIFIER*>(algorithm.data())->pszObjId, sha256);
    EXPECT_EQ(verifyHash(msg), 0U);
}

TEST_F(Digested, IsReadUnderItsOwnTypeAndNotUnderAnother) {
    EXPECT_EQ(Msg::decode(0, nullptr, capi::CMSG_HASHED).feed(message), 0U);
    EXPECT_EQ(Msg::decode(0, nullptr, capi::CMSG_SIGNED).feed(message), capi::CRYPT_E_INVALID_MSG_TYPE);
    EXPECT_EQ(Msg::decode(0, nullptr, capi::CMSG_DATA).feed(message), capi::CRYPT_E_INVALID_MSG_TYPE);
    EXPECT_EQ(Msg::decode(0, nullptr, capi::CMSG_HASHED).feed(contentInfo(dataOid, der::octetString(content))),
              capi::CRYPT_E_INVALID_MSG_TYPE);
}

TEST_F(Digested, StreamsItsContentInPiecesOfAnySize) {
    for (const std::size_t chunk : {std::size_t{1}, std::size_t{7}, whole}) {
        Collected collected;
        CMSG_STREAM_INFO stream = collected.info();
        const Msg msg = Msg::decode(0, &stream);
        ASSERT_EQ(msg.feed(message, chunk), 0U);
        EXPECT_EQ(collected.octets, content);
        EXPECT_EQ(collected.finalCalls, 1U);
        EXPECT_EQ(verifyHash(msg), 0U);
        EXPECT_EQ(msg.paramError(capi::CMSG_CONTENT_PARAM), capi::CRYPT_E_INVALID_MSG_TYPE);
    }
}

TEST_F(Digested, ChangedContentOrDigestIsNotTheHash) {
    EXPECT_EQ(verdictOn(digestedData({sha256, inside(bytes("other content")), digest})), capi::CRYPT_E_HASH_VALUE);
    for (const Bytes& wrong : {Bytes{}, Bytes(digest.begin(), digest.end() - 1), digestOf(sha256, {})}) {
        EXPECT_EQ(verdictOn(digestedData({sha256, inside(content), wrong})), capi::CRYPT_E_HASH_VALUE);
    }
}

TEST_F(Digested, UnknownAlgorithmIsNamedAndNeverMatches) {
    const Bytes other = digestedData({"1.2.3.4", inside(content), digest});
    EXPECT_EQ(verdictOn(other), capi::CRYPT_E_UNKNOWN_ALGO);
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(other), 0U);
    EXPECT_EQ(msg.paramError(capi::CMSG_COMPUTED_HASH_PARAM), capi::CRYPT_E_UNKNOWN_ALGO);
    EXPECT_EQ(msg.param(capi::CMSG_HASH_DATA_PARAM), digest);
}

TEST_F(Digested, ContentBesideTheMessageFollowsIt) {
    const Bytes apart = digestedData({sha256, {}, digest});
    EXPECT_EQ(verdictOn(apart), capi::CRYPT_E_STREAM_MSG_NOT_READY);
    const Msg right = Msg::decode(capi::CMSG_DETACHED_FLAG);
    ASSERT_EQ(right.feed(apart), 0U);
    ASSERT_EQ(right.feed(content, 3), 0U);
    EXPECT_EQ(verifyHash(right), 0U);
    EXPECT_EQ(right.feed(content), capi::CRYPT_E_MSG_ERROR);
    const Msg wrong = Msg::decode(capi::CMSG_DETACHED_FLAG);
    ASSERT_EQ(wrong.feed(apart), 0U);
    ASSERT_EQ(wrong.feed(bytes("other")), 0U);
    EXPECT_EQ(verifyHash(wrong), capi::CRYPT_E_HASH_VALUE);
    const Msg both = Msg::decode(capi::CMSG_DETACHED_FLAG); // content inside that is not the content beside it
    ASSERT_EQ(both.feed(message), 0U);
    ASSERT_EQ(both.feed(bytes("other")), 0U);
    EXPECT_EQ(verifyHash(both), capi::CRYPT_E_HASH_VALUE);
}

TEST_F(Digested, EmptyContentBesideTheMessageNeedsNoUpdate) {
    const Msg msg = Msg::decode(capi::CMSG_DETACHED_FLAG);
    ASSERT_EQ(msg.feed(digestedData({sha256, {}, digestOf(sha256, {})})), 0U);
    EXPECT_EQ(verifyHash(msg), 0U);
}

TEST_F(Digested, EveryTruncationIsRefused) {
    for (std::size_t size = 0; size < message.size(); ++size) {
        EXPECT_NE(verdictOn(ByteView(message).first(size)), 0U) << size;
    }
}

TEST_F(Digested, EveryChangedOctetIsRefusedOrOfTheHeadThatNoDigestCovers) {
    std::size_t unnoticed = 0;
    for (std::size_t at = 0; at < message.size(); ++at) {
        Bytes changed = message;
        changed[at] ^= 0x01U;
        unnoticed += verdictOn(changed) == 0 ? 1U : 0U;
    }
    EXPECT_LE(unnoticed, 12U); // the version and the inner content type, which the digest does not cover
    EXPECT_GT(unnoticed, 0U);
}

TEST_F(Digested, NothingIsGivenBeforeTheEnd) {
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message, whole, false), 0U);
    EXPECT_EQ(msg.paramError(capi::CMSG_TYPE_PARAM), capi::CRYPT_E_STREAM_MSG_NOT_READY);
    EXPECT_EQ(verifyHash(msg), capi::CRYPT_E_STREAM_MSG_NOT_READY);
    ASSERT_EQ(msg.feed({}), 0U);
    EXPECT_EQ(verifyHash(msg), 0U);
}

TEST_F(Digested, IsNeverASignature) {
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    for (const DWORD type : {capi::CMSG_SIGNER_COUNT_PARAM, capi::CMSG_CERT_COUNT_PARAM, capi::CMSG_SIGNER_INFO_PARAM,
                             capi::CMSG_RECIPIENT_COUNT_PARAM}) {
        EXPECT_EQ(msg.paramError(type), capi::CRYPT_E_INVALID_MSG_TYPE) << type;
    }
    const CERT_INFO nobody{};
    EXPECT_EQ(msg.verify(nobody), capi::CRYPT_E_INVALID_MSG_TYPE);
    constexpr DWORD unknownControl = 999;
    EXPECT_EQ(api::CryptMsgControl(msg.handle(), 0, unknownControl, nullptr), 0);
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_CONTROL_TYPE);
}

TEST_F(Digested, OtherMessagesHaveNoHashToVerify) {
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(contentInfo(dataOid, der::octetString(content))), 0U);
    EXPECT_EQ(verifyHash(msg), capi::CRYPT_E_INVALID_MSG_TYPE);
}

TEST_F(Digested, WhatOpensslMakesIsRead) {
    const TempFolder folder;
    writeFile(folder.path() / "content", content);
    for (const char* const form : {"", "-stream -indef"}) {
        for (const char* const digestName : {"sha256", "sha1", "md_gost12_256", "md_gost12_512"}) {
            ASSERT_EQ(run(folder, std::string("openssl cms -digest_create -binary -md ") + digestName + " " + form +
                                      " -in content -outform DER -out digested"),
                      0)
                << output(folder);
            const Bytes made = readFile(folder.path() / "digested");
            EXPECT_EQ(verdictOn(made), 0U) << digestName << form;
            EXPECT_EQ(verdictOn(made, 1), 0U) << digestName << form;
        }
    }
}

TEST_F(Digested, PublishedOnesMatch) {
    if (corpora().empty()) {
        GTEST_SKIP() << "the folder of published cases is not here (KLUNORTREDI_CORPORA)";
    }
    for (const char* const name :
         {"gost-tc26-cms/hashed_a311.pem", "gost-tc26-cms/hashed_a321.pem", "gost-tk26-pygost/digested256.der",
          "gost-tk26-pygost/digested512.der", "cms-interop/rustcrypto/digested_data.bin",
          "cms-interop/asn1crypto/cms-digested.der"}) {
        EXPECT_EQ(verdictOn(fromPem(readFile(corpora() / name))), 0U) << name;
    }
}

class PlainData : public testing::Test {
protected:
    Bytes content = bytes("plain content");
    Bytes message = contentInfo(dataOid, der::octetString(content));
};

TEST_F(PlainData, GivesTypeAndContent) {
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message, 1), 0U);
    EXPECT_EQ(msg.number(capi::CMSG_TYPE_PARAM), capi::CMSG_DATA);
    EXPECT_EQ(msg.param(capi::CMSG_CONTENT_PARAM), content);
    EXPECT_EQ(msg.paramError(capi::CMSG_SIGNER_COUNT_PARAM), capi::CRYPT_E_INVALID_MSG_TYPE);
    const CERT_INFO nobody{};
    EXPECT_EQ(msg.verify(nobody), capi::CRYPT_E_INVALID_MSG_TYPE);
}

TEST_F(PlainData, StreamsSegmentsOfIndefiniteLength) {
    const Bytes segments =
        der::concat({ByteView(std::array<std::uint8_t, 2>{0x24, 0x80}), der::octetString(bytes("plain ")),
                     der::octetString(bytes("content")), ByteView(std::array<std::uint8_t, 2>{})});
    Collected collected;
    CMSG_STREAM_INFO stream = collected.info();
    const Msg msg = Msg::decode(0, &stream, capi::CMSG_DATA);
    const Bytes body = der::concat({der::objectIdentifier(dataOid), ByteView(std::array<std::uint8_t, 2>{0xA0, 0x80}),
                                    segments, ByteView(std::array<std::uint8_t, 2>{})});
    ASSERT_EQ(msg.feed(der::element(der::tag::Sequence, body), 5), 0U);
    EXPECT_EQ(collected.octets, content);
    EXPECT_EQ(collected.finalCalls, 1U);
    EXPECT_EQ(msg.feed({}), capi::CRYPT_E_MSG_ERROR);
}

TEST_F(PlainData, IsNeverDetached) {
    EXPECT_EQ(Msg::decode(capi::CMSG_DETACHED_FLAG, nullptr, capi::CMSG_DATA).handle(), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::NTE_BAD_FLAGS);
    EXPECT_EQ(Msg::decode(capi::CMSG_DETACHED_FLAG).feed(message), capi::NTE_BAD_FLAGS);
}

TEST_F(PlainData, EveryTruncationIsRefused) {
    for (std::size_t size = 0; size < message.size(); ++size) {
        EXPECT_NE(Msg::decode().feed(ByteView(message).first(size)), 0U) << size;
    }
}

} // namespace
} // namespace klunortredi::test
