// Key wrapping: every form unwraps what it wrapped, for each kind of key, and nothing else.
#include "asn1/der.hpp"
#include "core/error.hpp"
#include "crypto/gost_params.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/key_wrapping.hpp"
#include "crypto/public_key_info.hpp"
#include "crypto/random.hpp"

#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <initializer_list>
#include <optional>

namespace {

using namespace klunortredi::csp;

constexpr std::size_t keySize = 32;

SecretBytes newContentKey() {
    SecretBytes key(keySize);
    fillRandom(key);
    return key;
}

ossl::Pkey gostKey(std::string_view algorithm, std::string_view set) {
    const KeyAlgorithm& row = *findKey(algorithm);
    return generateGostKey(row, *findGostParamSet(row, set));
}

template <class Wrapped>
std::optional<DWORD> error(EVP_PKEY* key, const Wrapped& wrapped) {
    try {
        unwrapKey(key, wrapped, keySize);
    } catch (const ApiError& refused) {
        return refused.code();
    }
    return std::nullopt;
}

struct GostKind {
    const char* algorithm;
    const char* set;
};

constexpr GostKind gostKinds[] = {
    {"1.2.643.2.2.19", "1.2.643.2.2.35.1"},       {"1.2.643.7.1.1.1.1", "1.2.643.2.2.36.0"},
    {"1.2.643.7.1.1.1.1", "1.2.643.7.1.2.1.1.1"}, {"1.2.643.7.1.1.1.2", "1.2.643.7.1.2.1.2.1"},
    {"1.2.643.7.1.1.1.2", "1.2.643.7.1.2.1.2.3"},
};

bool isLegacy(const GostKind& kind) {
    return std::string_view(kind.algorithm) == "1.2.643.2.2.19";
}

TEST(KeyWrapping, EveryGostFormUnwrapsForItsRecipientOnly) {
    for (const GostKind& kind : gostKinds) {
        const ossl::Pkey recipient = gostKey(kind.algorithm, kind.set);
        const ossl::Pkey another = gostKey(kind.algorithm, kind.set);
        const SecretBytes key = newContentKey();
        const auto check = [&](const auto& wrapped) {
            EXPECT_EQ(unwrapKey(recipient.get(), wrapped, keySize), key) << kind.set;
            EXPECT_EQ(error(another.get(), wrapped), capi::NTE_BAD_DATA) << kind.set;
            // Some octets of a UKM have no effect; nothing gives another key.
            for (std::size_t i = 0; i < wrapped.encryptedKey.size(); i += 13) {
                auto changed = wrapped;
                changed.encryptedKey[i] ^= 1;
                EXPECT_TRUE(error(recipient.get(), changed) || unwrapKey(recipient.get(), changed, keySize) == key);
            }
        };
        check(wrapKey({recipient.get()}, TransportForm::GostCryptoPro, key));
        check(wrapKey({recipient.get()}, AgreementForm::GostCryptoPro, key));
        check(wrapKey({recipient.get()}, AgreementForm::GostPlain, key));
        for (const auto form : {TransportForm::KExp15Magma, TransportForm::KExp15Kuznyechik}) {
            if (isLegacy(kind)) {
                EXPECT_THROW(wrapKey({recipient.get()}, form, key), ApiError);
            } else {
                check(wrapKey({recipient.get()}, form, key));
            }
        }
        for (const auto form : {AgreementForm::KExp15Magma, AgreementForm::KExp15Kuznyechik}) {
            if (!isLegacy(kind)) {
                check(wrapKey({recipient.get()}, form, key));
            }
        }
    }
}

// Bouncy Castle 1.72 writes the digest's OID into every key, and does not decode an ephemeral key without it.
TEST(KeyWrapping, TheEphemeralKeyHasTheParametersOfTheRecipientsKey) {
    struct Row {
        GostKind kind;
        const char* digest;
    };
    for (const auto& [kind, digest] : {Row{gostKinds[0], "1.2.643.2.2.30.1"}, Row{gostKinds[2], "1.2.643.7.1.1.2.2"},
                                       Row{gostKinds[3], "1.2.643.7.1.1.2.3"}}) {
        const ossl::Pkey recipient = gostKey(kind.algorithm, kind.set);
        const SecretBytes key = newContentKey();
        for (const Bytes& parameters : {der::sequence({der::objectIdentifier(kind.set), der::objectIdentifier(digest)}),
                                        der::sequence({der::objectIdentifier(kind.set)})}) {
            const RecipientKey theirs{recipient.get(), parameters};
            const Bytes written = der::sequence({der::objectIdentifier(kind.algorithm), parameters});
            const auto names = [&](const Bytes& encoded) { return !std::ranges::search(encoded, written).empty(); };
            const TransportedKey transported = wrapKey(theirs, TransportForm::GostCryptoPro, key);
            EXPECT_EQ(transported.parameters, parameters) << kind.set;
            EXPECT_TRUE(names(transported.encryptedKey)) << kind.set;
            EXPECT_EQ(unwrapKey(recipient.get(), transported, keySize), key) << kind.set;
            const AgreedKey agreed = wrapKey(theirs, AgreementForm::GostCryptoPro, key);
            EXPECT_TRUE(names(agreed.originatorKey)) << kind.set;
            EXPECT_EQ(unwrapKey(recipient.get(), agreed, keySize), key) << kind.set;
            if (!isLegacy(kind)) {
                const TransportedKey exported = wrapKey(theirs, TransportForm::KExp15Kuznyechik, key);
                EXPECT_TRUE(names(exported.encryptedKey)) << kind.set;
                EXPECT_EQ(unwrapKey(recipient.get(), exported, keySize), key) << kind.set;
            }
        }
    }
}

// Messages and certificates of GOST R 34.10-2001 keys also name them by the OID of their agreement.
TEST(KeyWrapping, TheAgreementOidOf2001KeysNamesTheSameKey) {
    const ossl::Pkey recipient = gostKey("1.2.643.2.2.19", "1.2.643.2.2.35.1");
    const SecretBytes key = newContentKey();
    const Bytes own = der::objectIdentifier("1.2.643.2.2.19");
    const Bytes agreement = der::objectIdentifier("1.2.643.2.2.98");
    const auto rename = [&](Bytes& encoded) {
        const auto found = std::ranges::search(encoded, own);
        ASSERT_FALSE(found.empty());
        std::ranges::copy(agreement, found.begin());
    };
    TransportedKey transported = wrapKey({recipient.get()}, TransportForm::GostCryptoPro, key);
    transported.oid = "1.2.643.2.2.98";
    rename(transported.encryptedKey);
    EXPECT_EQ(unwrapKey(recipient.get(), transported, keySize), key);
    AgreedKey agreed = wrapKey({recipient.get()}, AgreementForm::GostPlain, key);
    agreed.oid = "1.2.643.2.2.98";
    rename(agreed.originatorKey);
    EXPECT_EQ(unwrapKey(recipient.get(), agreed, keySize), key);
}

TEST(KeyWrapping, AnEphemeralKeyOfAnotherCurveIsRefused) {
    const ossl::Pkey recipient = gostKey("1.2.643.7.1.1.1.1", "1.2.643.2.2.35.1");
    const ossl::Pkey other = gostKey("1.2.643.7.1.1.1.1", "1.2.643.7.1.2.1.1.1");
    AgreedKey wrapped = wrapKey({other.get()}, AgreementForm::GostCryptoPro, newContentKey());
    EXPECT_EQ(error(recipient.get(), wrapped), capi::NTE_BAD_PUBLIC_KEY);
}

TEST(KeyWrapping, AnEphemeralPointThatIsNotOnTheCurveIsRefused) {
    const ossl::Pkey recipient = gostKey("1.2.643.7.1.1.1.1", "1.2.643.7.1.2.1.1.1");
    AgreedKey wrapped = wrapKey({recipient.get()}, AgreementForm::GostCryptoPro, newContentKey());
    wrapped.originatorKey.back() ^= 1;
    EXPECT_EQ(error(recipient.get(), wrapped), capi::NTE_BAD_PUBLIC_KEY);
}

TEST(KeyWrapping, TwoNamesOfOneCurveAreTakenForEachOther) {
    const ossl::Pkey recipient = gostKey("1.2.643.7.1.1.1.1", "1.2.643.2.2.35.1");
    const SecretBytes key = newContentKey();
    AgreedKey wrapped = wrapKey({recipient.get()}, AgreementForm::GostCryptoPro, key);
    const auto name = std::ranges::search(wrapped.originatorKey, der::objectIdentifier("1.2.643.2.2.35.1"));
    ASSERT_FALSE(name.empty());
    std::ranges::copy(der::objectIdentifier("1.2.643.2.2.36.0"), name.begin());
    EXPECT_EQ(unwrapKey(recipient.get(), wrapped, keySize), key);
}

TEST(KeyWrapping, TheDigestThatAnEphemeralKeyNamesHasNoEffect) {
    const ossl::Pkey recipient = gostKey("1.2.643.7.1.1.1.1", "1.2.643.2.2.36.0");
    const SecretBytes key = newContentKey();
    const AgreedKey wrapped = wrapKey({recipient.get()}, AgreementForm::GostCryptoPro, key);
    const auto rewritten = [&](const Bytes& parameters) {
        AgreedKey changed = wrapped;
        const spki::Parts parts = spki::split(wrapped.originatorKey);
        changed.originatorKey = spki::join(parts.oid, parameters, parts.key);
        return changed;
    };
    const Bytes set = der::objectIdentifier("1.2.643.2.2.36.0");
    const Bytes digestOf1994 = der::objectIdentifier("1.2.643.2.2.30.1");
    EXPECT_EQ(unwrapKey(recipient.get(), rewritten(der::sequence({set, digestOf1994})), keySize), key);
    EXPECT_EQ(error(recipient.get(), rewritten(der::sequence({digestOf1994, set}))), capi::NTE_BAD_PUBLIC_KEY);
    EXPECT_EQ(error(recipient.get(), rewritten(der::sequence({set, der::null()}))), capi::NTE_BAD_PUBLIC_KEY);
}

TEST(KeyWrapping, AUkmOfZeroIsRefused) {
    const ossl::Pkey recipient = gostKey("1.2.643.7.1.1.1.1", "1.2.643.2.2.35.1");
    AgreedKey wrapped = wrapKey({recipient.get()}, AgreementForm::GostPlain, newContentKey());
    std::ranges::fill(wrapped.ukm, std::uint8_t{0});
    EXPECT_EQ(error(recipient.get(), wrapped), capi::CRYPT_E_BAD_ENCODE);
}

TEST(KeyWrapping, AKeyWrapThatIsUnknownIsRefused) {
    const ossl::Pkey recipient = gostKey("1.2.643.7.1.1.1.1", "1.2.643.2.2.35.1");
    AgreedKey wrapped = wrapKey({recipient.get()}, AgreementForm::KExp15Magma, newContentKey());
    wrapped.parameters[wrapped.parameters.size() - 2] ^= 0x40;
    EXPECT_EQ(error(recipient.get(), wrapped), capi::NTE_BAD_ALGID);
    wrapped.parameters.clear();
    EXPECT_EQ(error(recipient.get(), wrapped), capi::CRYPT_E_BAD_ENCODE);
}

class RsaWrapping : public testing::Test {
protected:
    const ossl::Pkey key_ = generateRsaKey(2048);
    const SecretBytes content_ = newContentKey();
};

TEST_F(RsaWrapping, UnwrapsWhatItWrapped) {
    for (const auto form : {TransportForm::RsaPkcs1, TransportForm::RsaOaep}) {
        EXPECT_EQ(unwrapKey(key_.get(), wrapKey({key_.get()}, form, content_), keySize), content_);
    }
    EXPECT_THROW(wrapKey({key_.get()}, TransportForm::GostCryptoPro, content_), ApiError);
}

TEST_F(RsaWrapping, OaepRefusesAChangedKeyAndAnotherLabel) {
    TransportedKey wrapped = wrapKey({key_.get()}, TransportForm::RsaOaep, content_);
    wrapped.encryptedKey.back() ^= 1;
    EXPECT_EQ(error(key_.get(), wrapped), capi::NTE_BAD_DATA);
    wrapped.encryptedKey.back() ^= 1;
    wrapped.parameters.clear(); // the defaults: SHA-1
    EXPECT_EQ(error(key_.get(), wrapped), capi::NTE_BAD_DATA);
}

// What answers "the padding is wrong" decrypts other people's messages.
TEST_F(RsaWrapping, Pkcs1NeverReportsWrongPadding) {
    const TransportedKey good = wrapKey({key_.get()}, TransportForm::RsaPkcs1, content_);
    TransportedKey changed = good;
    changed.encryptedKey.back() ^= 1;
    const SecretBytes rejected = unwrapKey(key_.get(), changed, keySize);
    EXPECT_EQ(rejected.size(), keySize);
    EXPECT_NE(rejected, content_);
    EXPECT_EQ(unwrapKey(key_.get(), changed, keySize), rejected) << "the same ciphertext gives the same key";
    changed.encryptedKey.back() ^= 2;
    EXPECT_NE(unwrapKey(key_.get(), changed, keySize), rejected);
    const SecretBytes shorter(content_.begin(), content_.begin() + 16);
    const TransportedKey ofAnotherSize = wrapKey({key_.get()}, TransportForm::RsaPkcs1, shorter);
    EXPECT_EQ(unwrapKey(key_.get(), ofAnotherSize, keySize).size(), keySize);
    EXPECT_EQ(unwrapKey(key_.get(), ofAnotherSize, shorter.size()), shorter);
}

/// A padded key as RSA would decrypt it, encrypted.
TransportedKey encryptedBlock(EVP_PKEY* key, const Bytes& block) {
    const ossl::PkeyCtx context(EVP_PKEY_CTX_new(key, nullptr));
    EVP_PKEY_encrypt_init(context.get());
    EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_NO_PADDING);
    Bytes encrypted(block.size());
    std::size_t size = encrypted.size();
    EXPECT_EQ(EVP_PKEY_encrypt(context.get(), encrypted.data(), &size, block.data(), block.size()), 1);
    return {"1.2.840.113549.1.1.1", {}, encrypted};
}

TEST_F(RsaWrapping, Pkcs1TakesTheKeyOnlyFromABlockThatIsRightInEveryOctet) {
    Bytes block(256, 0xA5);
    block[0] = 0;
    block[1] = 2;
    const std::size_t separator = block.size() - keySize - 1;
    block[separator] = 0;
    std::ranges::copy(content_, block.begin() + static_cast<std::ptrdiff_t>(separator) + 1);
    EXPECT_EQ(unwrapKey(key_.get(), encryptedBlock(key_.get(), block), keySize), content_);
    const auto expectRejected = [&](std::size_t at, std::uint8_t value) {
        Bytes wrong = block;
        wrong[at] = value;
        EXPECT_NE(unwrapKey(key_.get(), encryptedBlock(key_.get(), wrong), keySize), content_) << at;
    };
    expectRejected(1, 1);
    expectRejected(1, 3);
    expectRejected(2, 0);
    expectRejected(9, 0);
    expectRejected(separator - 1, 0);
    expectRejected(separator, 1);
    expectRejected(separator, 0x80);
}

TEST_F(RsaWrapping, AnEncryptedKeyOfAnotherSizeIsRefused) {
    TransportedKey wrapped = wrapKey({key_.get()}, TransportForm::RsaPkcs1, content_);
    wrapped.encryptedKey.push_back(0);
    EXPECT_EQ(error(key_.get(), wrapped), capi::NTE_BAD_DATA);
    wrapped.encryptedKey.clear();
    EXPECT_EQ(error(key_.get(), wrapped), capi::NTE_BAD_DATA);
}

} // namespace
