// Enveloped messages made by the openssl command, opened through the entry points.

#include "enveloped_support.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "messages/ciphertext_spool.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>

namespace klunortredi::test {
namespace {

/// Nothing, a block, and more than two sections of any kind: meshing after 1 KiB, ACPKM after 8 KiB with Magma and
/// after 256 KiB with Kuznyechik.
constexpr std::size_t sizes[] = {0, 16, 600000};

/// How the message is fed and when the key comes must not matter.
void expectOpens(const Signer& recipient, const Bytes& message, const Bytes& plaintext, const std::string& what) {
    const Opened expected{0, plaintext, 1};
    EXPECT_TRUE(open(recipient, message) == expected) << what;
    EXPECT_TRUE(open(recipient, message, {.chunk = message.size() > 100000 ? 4099U : 1U}) == expected) << what;
    EXPECT_TRUE(open(recipient, message, {.chunk = message.size() > 100000 ? 1021U : 7U, .keyFirst = true}) == expected)
        << what;
    EXPECT_TRUE(open(recipient, message, {.keyFirst = true}) == expected) << what;
    EXPECT_TRUE(open(recipient, message, {.streamed = false}).plaintext == plaintext) << what;
}

struct Form {
    KeyKind key;
    const char* words;
};

class OpensslEnveloped : public testing::TestWithParam<Form> {};

TEST_P(OpensslEnveloped, IsOpened) {
    const Signer recipient = makeSigner(GetParam().key);
    const TempFolder folder;
    for (const std::size_t size : sizes) {
        const Bytes plaintext = patternOf(size);
        const Bytes message = opensslEncrypt(folder, {recipient.certificate}, plaintext, GetParam().words);
        expectOpens(recipient, message, plaintext, GetParam().words + (" " + std::to_string(size)));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Forms, OpensslEnveloped,
    testing::Values(Form{KeyKind::Rsa, "-aes-128-cbc"}, Form{KeyKind::Rsa, "-aes-192-cbc -stream -indef"},
                    Form{KeyKind::Rsa, "-aes-256-cbc"}, Form{KeyKind::Rsa, "-des3"}, Form{KeyKind::Rsa, "-aes-256-gcm"},
                    Form{KeyKind::Rsa, "-aes-128-gcm"}, Form{KeyKind::Gost256, "-gost89"},
                    Form{KeyKind::Gost512, "-gost89"}, Form{KeyKind::Gost2001, "-gost89"},
                    Form{KeyKind::Gost256, "-kuznyechik-ctr-acpkm"}, Form{KeyKind::Gost512, "-magma-ctr-acpkm"},
                    Form{KeyKind::Gost256, "-magma-ctr-acpkm-omac"},
                    Form{KeyKind::Gost512, "-kuznyechik-ctr-acpkm-omac"}),
    [](const auto& row) { return "Row" + std::to_string(row.index); });

/// One recipient of each kind of key, made once for the process.
const Signer& recipient(KeyKind kind) {
    static std::map<KeyKind, Signer> made;
    const auto found = made.find(kind);
    return found != made.end() ? found->second : made.emplace(kind, makeSigner(kind)).first->second;
}

TEST(Enveloped, EveryContentAlgorithmOpensWithEveryKeyTransport) {
    const Bytes plaintext = patternOf(3000);
    for (const csp::ContentAlgorithm& algorithm : csp::contentAlgorithms()) {
        const Bytes key = contentKeyFor(algorithm.name);
        const Signer& rsa = recipient(KeyKind::Rsa);
        for (const auto form : {csp::TransportForm::RsaPkcs1, csp::TransportForm::RsaOaep}) {
            const Bytes message = craftEnveloped(algorithm.name, key, plaintext, {transportInfo(rsa, form, key)});
            expectOpens(rsa, message, plaintext, std::string(algorithm.name));
        }
        if (key.size() != 32) {
            continue;
        }
        const Signer& gost = recipient(KeyKind::Gost256);
        for (const auto form : {csp::TransportForm::GostCryptoPro, csp::TransportForm::KExp15Magma,
                                csp::TransportForm::KExp15Kuznyechik}) {
            const Bytes message = craftEnveloped(algorithm.name, key, plaintext, {transportInfo(gost, form, key)});
            EXPECT_EQ(open(gost, message).plaintext, plaintext) << algorithm.name;
        }
        for (const auto form : {csp::AgreementForm::GostCryptoPro, csp::AgreementForm::GostPlain,
                                csp::AgreementForm::KExp15Magma, csp::AgreementForm::KExp15Kuznyechik}) {
            const Bytes message = craftEnveloped(algorithm.name, key, plaintext, {agreementInfo({gost}, form, key)});
            EXPECT_EQ(open(gost, message).plaintext, plaintext) << algorithm.name;
        }
    }
}

TEST(Enveloped, EachOfSeveralRecipientsOpensIt) {
    const Bytes plaintext = patternOf(100);
    const Bytes key = contentKeyFor("kuznyechik-ctr-acpkm-omac");
    const Signer& rsa = recipient(KeyKind::Rsa);
    const Signer& one = recipient(KeyKind::Gost256);
    const Signer& two = recipient(KeyKind::Gost512);
    const Bytes message = craftEnveloped(
        "kuznyechik-ctr-acpkm-omac", key, plaintext,
        {transportInfo(rsa, csp::TransportForm::RsaOaep, key), transportInfo(two, csp::TransportForm::KExp15Magma, key),
         agreementInfo({makeSigner(KeyKind::Gost256), one}, csp::AgreementForm::GostCryptoPro, key), passwordInfo()});
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    EXPECT_EQ(msg.number(capi::CMSG_RECIPIENT_COUNT_PARAM), 5U) << "each key of an agreement, and the password";
    for (const Signer* const each : {&rsa, &one, &two}) {
        EXPECT_EQ(open(*each, message), (Opened{0, plaintext, 1}));
    }
    EXPECT_EQ(open(recipient(KeyKind::Gost2001), message).error, capi::CRYPT_E_RECIPIENT_NOT_FOUND);
}

TEST(Enveloped, ParametersDescribeTheMessage) {
    const Bytes key = contentKeyFor("aes-256-gcm");
    const Signer& rsa = recipient(KeyKind::Rsa);
    const Bytes message = craftEnveloped("aes-256-gcm", key, bytes("text"),
                                         {transportInfo(rsa, csp::TransportForm::RsaPkcs1, key), passwordInfo()});
    const Msg msg = Msg::decode();
    EXPECT_EQ(msg.paramError(capi::CMSG_RECIPIENT_COUNT_PARAM), capi::CRYPT_E_STREAM_MSG_NOT_READY);
    ASSERT_EQ(msg.feed(message), 0U);
    EXPECT_EQ(msg.number(capi::CMSG_TYPE_PARAM), capi::CMSG_ENVELOPED);
    EXPECT_EQ(msg.param(capi::CMSG_INNER_CONTENT_TYPE_PARAM), bytes(std::string_view("1.2.840.113549.1.7.1\0", 21)));
    const Bytes algorithm = msg.param(capi::CMSG_ENVELOPE_ALGORITHM_PARAM);
    EXPECT_STREQ(reinterpret_cast<const CRYPT_ALGORITHM_IDENTIFIER*>(algorithm.data())->pszObjId,
                 "2.16.840.1.101.3.4.1.46");
    EXPECT_EQ(msg.paramError(capi::CMSG_RECIPIENT_INDEX_PARAM), capi::CRYPT_E_NOT_DECRYPTED);
    EXPECT_EQ(msg.paramError(capi::CMSG_CONTENT_PARAM), capi::CRYPT_E_NOT_DECRYPTED);
    EXPECT_EQ(msg.paramError(capi::CMSG_RECIPIENT_INFO_PARAM, 2), capi::CRYPT_E_INVALID_INDEX);
    EXPECT_EQ(msg.paramError(capi::CMSG_SIGNER_COUNT_PARAM), capi::CRYPT_E_INVALID_MSG_TYPE);
    const Bytes other = msg.param(capi::CMSG_RECIPIENT_INFO_PARAM, 1);
    const auto& password = *reinterpret_cast<const CERT_INFO*>(other.data());
    EXPECT_EQ(password.Issuer.cbData, 0U);
    EXPECT_EQ(password.SerialNumber.cbData, 0U);
    EXPECT_EQ(decrypt(msg, rsa, 1), capi::NTE_BAD_ALGID);
    EXPECT_EQ(decrypt(msg, rsa, 2), capi::CRYPT_E_INVALID_INDEX);
    EXPECT_EQ(decrypt(msg, rsa, 0), 0U);
    EXPECT_EQ(msg.number(capi::CMSG_RECIPIENT_INDEX_PARAM), 0U);
    EXPECT_EQ(msg.param(capi::CMSG_CONTENT_PARAM), bytes("text"));
    EXPECT_EQ(decrypt(msg, rsa, 0), capi::CRYPT_E_ALREADY_DECRYPTED);
}

TEST(Enveloped, ARecipientNamedByKeyIdentifierHasItInTheIssuer) {
    const Bytes key = contentKeyFor("aes-128-cbc");
    const Signer& rsa = recipient(KeyKind::Rsa);
    const Bytes message = craftEnveloped("aes-128-cbc", key, bytes("text"),
                                         {transportInfo(rsa, csp::TransportForm::RsaPkcs1, key, true)});
    EXPECT_EQ(open(rsa, message).error, capi::CRYPT_E_RECIPIENT_NOT_FOUND);
    EXPECT_EQ(open(rsa, message, {.recipient = 0}).plaintext, bytes("text"));
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    const Bytes param = msg.param(capi::CMSG_RECIPIENT_INFO_PARAM);
    const auto& info = *reinterpret_cast<const CERT_INFO*>(param.data());
    EXPECT_EQ(info.SerialNumber.cbData, 1U);
    EXPECT_GT(info.Issuer.cbData, 20U);
}

TEST(Enveloped, AuthenticatedAttributesAreCheckedWithTheContent) {
    const Bytes key = contentKeyFor("aes-256-gcm");
    const Signer& rsa = recipient(KeyKind::Rsa);
    const Bytes type = csp::der::objectIdentifier("1.2.840.113549.1.9.3");
    const Bytes data = csp::der::objectIdentifier("1.2.840.113549.1.7.1");
    const Bytes attributes = csp::der::setOf({csp::der::sequence({type, csp::der::setOf({data})})});
    Bytes message = craftEnveloped("aes-256-gcm", key, bytes("text"),
                                   {transportInfo(rsa, csp::TransportForm::RsaPkcs1, key)}, attributes);
    expectOpens(rsa, message, bytes("text"), "with attributes");
    const auto at = std::ranges::search(message, csp::der::setOf({data})).begin();
    *(at + static_cast<std::ptrdiff_t>(data.size()) + 1) ^= 1; // the last octet of the content type
    EXPECT_EQ(open(rsa, message), (Opened{capi::NTE_BAD_DATA, {}, 0}));
}

// Whoever takes GCM without its tag decrypts what anybody could have written.
TEST(Enveloped, AnAlgorithmOfTheOtherKindOfMessageIsRefused) {
    const Signer& rsa = recipient(KeyKind::Rsa);
    const Bytes key = contentKeyFor("aes-256-gcm");
    Bytes message =
        craftEnveloped("aes-256-cbc", key, bytes("text"), {transportInfo(rsa, csp::TransportForm::RsaPkcs1, key)});
    const Bytes cbc = csp::der::objectIdentifier("2.16.840.1.101.3.4.1.42");
    const Bytes gcm = csp::der::objectIdentifier("2.16.840.1.101.3.4.1.46");
    std::ranges::copy(gcm, std::ranges::search(message, cbc).begin());
    EXPECT_EQ(open(rsa, message).error, capi::NTE_BAD_ALGID);
}

TEST(Enveloped, AnotherKeyOfTheSameKindOpensNothing) {
    const Signer& rsa = recipient(KeyKind::Rsa);
    const Signer other = makeSigner(KeyKind::Rsa);
    const Bytes key = contentKeyFor("aes-256-gcm");
    const Bytes message =
        craftEnveloped("aes-256-gcm", key, bytes("text"), {transportInfo(rsa, csp::TransportForm::RsaPkcs1, key)});
    EXPECT_EQ(open(other, message, {.recipient = 0}), (Opened{capi::NTE_BAD_DATA, {}, 0}));
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    EXPECT_EQ(decrypt(msg, other, 0), capi::NTE_BAD_DATA);
    EXPECT_EQ(decrypt(msg, rsa, 0), 0U) << "the right key may come afterwards";
}

TEST(Enveloped, ALockedContainerOpensNothing) {
    const Signer locked = makeLockedSigner(KeyKind::Gost256);
    const Bytes key = contentKeyFor("magma-ctr-acpkm");
    const Bytes message = craftEnveloped("magma-ctr-acpkm", key, bytes("text"),
                                         {transportInfo(locked, csp::TransportForm::KExp15Magma, key)});
    EXPECT_EQ(open(locked, message), (Opened{capi::SCARD_W_CARD_NOT_AUTHENTICATED, {}, 0}));
}

TEST(Enveloped, LargeCiphertextWaitsInAFile) {
    const Signer& rsa = recipient(KeyKind::Rsa);
    const Bytes key = contentKeyFor("aes-256-gcm");
    const Bytes plaintext = patternOf(csp::CiphertextSpool::memoryLimit + 700001);
    const Bytes message =
        craftEnveloped("aes-256-gcm", key, plaintext, {transportInfo(rsa, csp::TransportForm::RsaPkcs1, key)});
    const char* const set = std::getenv("TMPDIR"); // NOLINT(concurrency-mt-unsafe): the only thread
    const std::optional<std::string> before = set == nullptr ? std::nullopt : std::optional<std::string>(set);
    setenv("TMPDIR", "/nonexistent", 1); // NOLINT(concurrency-mt-unsafe): the only thread
    for (const bool keyFirst : {false, true}) {
        EXPECT_TRUE(open(rsa, message, {.chunk = 100003, .keyFirst = keyFirst}) == (Opened{0, plaintext, 1}));
    }
    unsetenv("TMPDIR"); // NOLINT(concurrency-mt-unsafe): the only thread
    if (before) {
        setenv("TMPDIR", before->c_str(), 1); // NOLINT(concurrency-mt-unsafe): the only thread
    }
}

TEST(Spool, GivesBackWhatItWasGivenOnBothSidesOfTheLimit) {
    for (const std::size_t extra : {std::size_t{0}, std::size_t{1}}) {
        csp::CiphertextSpool spool;
        const Bytes octets = patternOf(csp::CiphertextSpool::memoryLimit + extra);
        for (std::size_t at = 0; at < octets.size(); at += 70001) {
            spool.append(ByteView(octets).subspan(at, std::min<std::size_t>(70001, octets.size() - at)));
        }
        EXPECT_EQ(spool.size(), octets.size());
        for (int time = 0; time < 2; ++time) {
            Bytes got;
            spool.replay([&](ByteView piece) { csp::der::append(got, piece); });
            EXPECT_TRUE(got == octets);
        }
        spool.clear();
        EXPECT_EQ(spool.size(), 0U);
    }
}

/// What must hold of a damaged message: an authenticated form gives nothing. In the others a changed octet of the
/// encrypted key, of the initialisation vector or of the ciphertext may give another plaintext, as the documentation
/// says; nowhere else is a plaintext reported that the sender did not encrypt.
class DamagedEnveloped : public testing::TestWithParam<const char*> {
protected:
    /// Places of `part` in `message`, its last `count` octets.
    static std::pair<std::size_t, std::size_t> endOf(ByteView part, std::size_t count, ByteView message) {
        const auto found = std::ranges::search(message, part);
        const auto end = static_cast<std::size_t>(found.end() - message.begin());
        return found.empty() ? std::pair<std::size_t, std::size_t>{} : std::pair{end - count, end};
    }
};

TEST_P(DamagedEnveloped, TruncatedIsRefusedAndChangedIsNotTakenForRight) {
    const Signer& rsa = recipient(KeyKind::Rsa);
    const Bytes key = contentKeyFor(GetParam());
    const Bytes plaintext = patternOf(40);
    const bool authenticated = csp::findContentAlgorithmByName(GetParam())->authentication != csp::Authentication::None;
    const Bytes transport = transportInfo(rsa, csp::TransportForm::RsaPkcs1, key);
    const Bytes message = craftEnveloped(GetParam(), key, plaintext, {transport});
    ASSERT_EQ(open(rsa, message), (Opened{0, plaintext, 1}));
    for (std::size_t size = 0; size < message.size(); ++size) {
        const Opened opened = open(rsa, ByteView(message).first(size), {.keyFirst = true});
        EXPECT_EQ(opened.finalCalls, 0U) << size;
        EXPECT_NE(opened.error, 0U) << size;
        EXPECT_TRUE(!authenticated || opened.plaintext.empty()) << size;
    }
    constexpr std::size_t rsaKeySize = 256;
    const auto [keyBegin, keyEnd] = endOf(transport, rsaKeySize, message);
    const Bytes contentType = csp::der::objectIdentifier("1.2.840.113549.1.7.1");
    const auto [typeBegin, typeEnd] = endOf(contentType, contentType.size(), message);
    ASSERT_TRUE(keyBegin != 0 && typeBegin > keyEnd);
    for (std::size_t i = 0; i < message.size(); ++i) {
        Bytes changed = message;
        changed[i] ^= 0x04;
        const Opened opened = open(rsa, changed, {.recipient = 0});
        const bool same = opened == Opened{0, plaintext, 1}; // an octet that nothing depends on
        const bool refused =
            opened.error != 0 && opened.finalCalls == 0 && (!authenticated || opened.plaintext.empty());
        const bool notCovered = !authenticated && ((i >= keyBegin && i < keyEnd) || i >= typeEnd);
        EXPECT_TRUE(same || refused || notCovered) << i << ": " << std::hex << opened.error;
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, DamagedEnveloped,
                         testing::Values("aes-256-gcm", "kuznyechik-ctr-acpkm-omac", "magma-ctr-acpkm-omac",
                                         "aes-256-cbc", "gost28147-89"),
                         [](const auto& row) { return "Row" + std::to_string(row.index); });

} // namespace
} // namespace klunortredi::test
