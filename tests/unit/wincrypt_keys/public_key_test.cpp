#include "keys_fixture.hpp"

#include "crypto/wincrypt/public_key.hpp"

namespace wincrypt_keys {
namespace {

using orvik::plugin::wincrypt::PublicKey;

bool equal(const orvik::plugin::crypto::IPublicKey& a, const orvik::plugin::crypto::IPublicKey& b) {
    return a == b;
}

class PublicKeyTest : public KeysFixture {
protected:
    PublicKeyTest() {
        service().on.CertComparePublicKeyInfo = [this](DWORD encoding, CERT_PUBLIC_KEY_INFO* a,
                                                       CERT_PUBLIC_KEY_INFO* b) {
            encoding_ = encoding;
            seen_ = {*a, *b};
            return verdict_;
        };
    }

    DWORD encoding_ = 0;
    std::vector<CERT_PUBLIC_KEY_INFO> seen_;
    BOOL verdict_ = 1;
};

struct Parts {
    std::string oid;
    std::string parameters;
    std::string key;

    PublicKey make() {
        CERT_PUBLIC_KEY_INFO info{};
        info.Algorithm.pszObjId = oid.data();
        info.Algorithm.Parameters = blob(parameters);
        info.PublicKey = {static_cast<DWORD>(key.size()), blob(key).pbData, 5};
        return PublicKey(&info);
    }

    static CRYPT_OBJID_BLOB blob(std::string& bytes) {
        return {static_cast<DWORD>(bytes.size()), reinterpret_cast<BYTE*>(bytes.data())};
    }
};

/// A key of another back-end, known through the interface only.
class ForeignKey : public orvik::plugin::crypto::IPublicKey {
public:
    [[nodiscard]] const std::string& algObjId() const override { return oid_; }
    [[nodiscard]] const std::string& algParams() const override { return parameters_; }
    [[nodiscard]] const std::string& key() const override { return key_; }
    bool operator==(const IPublicKey&) const override {
        ADD_FAILURE() << "the other key must not decide";
        return false;
    }

private:
    std::string oid_ = "1.2.3";
    std::string parameters_ = "other parameters";
    std::string key_ = "other key";
};

TEST_F(PublicKeyTest, KeepsThePartsByteForByte) {
    const std::string binary("\x30\x00\xFF key", 7);
    const auto key = Parts{"1.2.643.7.1.1.1.1", std::string("\0\x01", 2), binary}.make();
    EXPECT_EQ(key.algObjId(), "1.2.643.7.1.1.1.1");
    EXPECT_EQ(key.algParams(), std::string("\0\x01", 2));
    EXPECT_EQ(key.key(), binary);
    EXPECT_THAT(service().trace(), testing::IsEmpty());
}

TEST_F(PublicKeyTest, CopiesTheInfo) {
    auto key = boost::optional<PublicKey>();
    {
        std::string oid = "1.2.3";
        CERT_PUBLIC_KEY_INFO info{};
        info.Algorithm.pszObjId = oid.data();
        key.emplace(&info);
        oid = "9.9.9";
    }
    EXPECT_EQ(key->algObjId(), "1.2.3");
}

TEST_F(PublicKeyTest, OfANullInfoIsEmpty) {
    const PublicKey key(nullptr);
    EXPECT_EQ(key.algObjId(), "");
    EXPECT_EQ(key.algParams(), "");
    EXPECT_EQ(key.key(), "");
}

TEST_F(PublicKeyTest, EmptyKeysAreComparedAsNullBlobs) {
    const PublicKey one(nullptr);
    const PublicKey two(nullptr);
    EXPECT_TRUE(equal(one, two));
    ASSERT_EQ(seen_.size(), 2U);
    for (const auto& info : seen_) {
        EXPECT_STREQ(info.Algorithm.pszObjId, "");
        EXPECT_EQ(info.Algorithm.Parameters.pbData, nullptr);
        EXPECT_EQ(info.Algorithm.Parameters.cbData, 0U);
        EXPECT_EQ(info.PublicKey.pbData, nullptr);
        EXPECT_EQ(info.PublicKey.cbData, 0U);
    }
}

TEST_F(PublicKeyTest, HandsItselfFirstAndTheOtherSecondToTheService) {
    const auto mine = Parts{"1.2.643.7.1.1.1.1", "p", "mine"}.make();
    const ForeignKey theirs;
    EXPECT_TRUE(equal(mine, theirs));
    EXPECT_EQ(encoding_, 0x00010001U);
    ASSERT_EQ(seen_.size(), 2U);
    const orvik::plugin::crypto::IPublicKey* const keys[] = {&mine, &theirs};
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(seen_[i].Algorithm.pszObjId, keys[i]->algObjId()) << i;
        EXPECT_EQ(static_cast<void*>(seen_[i].Algorithm.Parameters.pbData),
                  static_cast<const void*>(keys[i]->algParams().data()))
            << i;
        EXPECT_EQ(seen_[i].Algorithm.Parameters.cbData, keys[i]->algParams().size()) << i;
        EXPECT_EQ(static_cast<void*>(seen_[i].PublicKey.pbData), static_cast<const void*>(keys[i]->key().data())) << i;
        EXPECT_EQ(seen_[i].PublicKey.cbData, keys[i]->key().size()) << i;
        EXPECT_EQ(seen_[i].PublicKey.cUnusedBits, 0U) << i;
    }
}

TEST_F(PublicKeyTest, TheServiceDecides) {
    const auto key = Parts{"1.2.3", "", "same"}.make();
    verdict_ = 0;
    EXPECT_FALSE(equal(key, key));
    verdict_ = 1;
    EXPECT_TRUE(equal(key, Parts{"4.5.6", "", "different"}.make()));
    verdict_ = 2;
    EXPECT_TRUE(equal(key, key));
}

TEST_F(PublicKeyTest, ParametersOnOneSideOnlyReachTheServiceAsTheyAre) {
    const auto with = Parts{"1.2.3", "parameters", "key"}.make();
    const auto without = Parts{"1.2.3", "", "key"}.make();
    equal(with, without);
    ASSERT_EQ(seen_.size(), 2U);
    EXPECT_EQ(seen_[0].Algorithm.Parameters.cbData, 10U);
    EXPECT_EQ(seen_[1].Algorithm.Parameters.cbData, 0U);
    EXPECT_EQ(seen_[1].Algorithm.Parameters.pbData, nullptr);
}

class PublicKeyOfCertificates : public KeysFixture {};

TEST_F(PublicKeyOfCertificates, OfOneKeyPairAreEqual) {
    const Certificate one(der(gostCertificate));
    const Certificate two(der(otherGostCertificate));
    const Certificate third(der(rsaCertificate));
    EXPECT_TRUE(equal(*one.publicKey(), *two.publicKey()));
    EXPECT_TRUE(equal(*one.publicKey(), *one.publicKey()));
    EXPECT_FALSE(equal(*one.publicKey(), *third.publicKey()));
}

} // namespace
} // namespace wincrypt_keys
