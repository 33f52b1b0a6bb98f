// Providers, containers, PINs, hashing and signing on the embedded service, judged by openssl where it can say so.
#include "embedded_fixture.hpp"

#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/hash.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_auth.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "orvik/plugin/hex.hpp"
#include "orvik/plugin/session.hpp"
#include "service_double/thrown.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <fstream>
#include <sstream>

namespace wincrypt_keys {
namespace {

using namespace orvik::plugin;
using crypto::exception::CryptoException;
using crypto::exception::SystemException;
using service_double::thrownBy;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using wincrypt::Certificate;
using wincrypt::HCRYPTPROV;
using wincrypt::Provider;
using wincrypt::WincryptAuth;

const std::wstring cyrillic = L"Ключ Ивана Ёлкина № 1";

class EmbeddedService : public EmbeddedFixture {};

// ---- providers

TEST_F(EmbeddedService, ProvidersAreEnumeratedByType) {
    std::vector<unsigned> types;
    for (const auto& found : provider(gost256).providers(Session::instance())) {
        types.push_back(found->type());
    }
    EXPECT_THAT(types, ElementsAre(24U, 75U, 80U, 81U));
    ASSERT_TRUE(Provider::provider(L"klunortredi rsa"));
    EXPECT_EQ(Provider::provider(L"klunortredi rsa")->name(), rsa.provider);
}

TEST_F(EmbeddedService, ProvidersTellTheirAlgorithmsVersionAndTool) {
    for (const auto& kind : {gost256, gost512, rsa}) {
        const auto one = provider(kind);
        EXPECT_TRUE(one.hasAlgorithm(kind.keyOid)) << kind.label;
        EXPECT_TRUE(one.hasAlgorithm(kind.hashOid)) << kind.label;
        EXPECT_FALSE(one.hasAlgorithm("1.2.3.4")) << kind.label;
        ASSERT_TRUE(one.version()) << kind.label;
        EXPECT_NE(one.version()->find(L'.'), std::wstring::npos);
        EXPECT_TRUE(one.subjectSignTool());
        EXPECT_THAT(one.containers(), IsEmpty());
    }
}

TEST_F(EmbeddedService, RandomOctetsAreOfTheAskedLengthAndNeverTheSame) {
    const auto one = provider(gost256).randomBytes(64);
    EXPECT_EQ(one.size(), 64U);
    EXPECT_NE(one, provider(gost256).randomBytes(64));
    EXPECT_THAT(provider(gost256).randomBytes(0), IsEmpty());
}

TEST_F(EmbeddedService, InitializesAsCryptoPro) {
    EXPECT_TRUE(Provider::initialize(crypto::IProvider::Family::cryptoPro));
    EXPECT_FALSE(Provider::initialize(crypto::IProvider::Family::vipNet));
}

// ---- containers

class EmbeddedKeys : public EmbeddedFixture, public testing::WithParamInterface<KeyKind> {
protected:
    [[nodiscard]] static const KeyKind& kind() { return GetParam(); }
    [[nodiscard]] static Provider own(const boost::optional<std::wstring>& container = boost::none) {
        return provider(kind(), container);
    }
};

TEST_P(EmbeddedKeys, CyrillicContainersAreFoundOnEveryPath) {
    makeContainer(kind(), L"other");
    const Certificate certificate(issue(makeContainer(kind(), cyrillic)));

    const auto qualified = Provider::containers(own(), cyrillic);
    ASSERT_EQ(qualified.size(), 1U);
    EXPECT_TRUE(qualified.front().ends_with(cyrillic));
    EXPECT_THAT(own().containers(), testing::SizeIs(2));
    EXPECT_THAT(own().containers(), Contains(qualified.front()));
    for (const auto& name : {cyrillic, qualified.front()}) {
        const auto key = own(name).publicKey();
        ASSERT_TRUE(key);
        EXPECT_EQ(key->algObjId(), kind().keyOid);
        EXPECT_TRUE(*key == *certificate.publicKey());
        EXPECT_EQ(key->key(), certificate.publicKey()->key());
        const HCRYPTPROV context(own(name), nullptr);
        EXPECT_EQ(wincrypt::tools::exportContainerName(context.get()), cyrillic);
        EXPECT_EQ(wincrypt::tools::exportContainerPath(context.get()), qualified.front());
        EXPECT_EQ(WincryptAuth(context.get()).container(), cyrillic);
    }
    EXPECT_EQ(own().container(*certificate.publicKey()), qualified.front());
    const auto key = [&] {
        EXPECT_TRUE(certificate.link(own(), cyrillic));
        return certificate.privateKey();
    }();
    EXPECT_EQ(key->provider()->container(), cyrillic);
    EXPECT_EQ(key->provider()->name(), kind().provider);
}

TEST_P(EmbeddedKeys, ContainersAreDeletedOneByOneAndByName) {
    for (const auto* name : {L"one", L"two"}) {
        makeContainer(kind(), name);
    }
    makeContainer(kind(), cyrillic);
    own().deleteContainer(L"one", "test");
    EXPECT_THAT(Provider::containers(own(), L"one"), IsEmpty());
    Provider::deleteContainers(own(), cyrillic);
    EXPECT_EQ(own().containers(), Provider::containers(own(), L"two"));
    EXPECT_THROW(own().deleteContainer(L"one", "again"), SystemException);
    Provider::deleteContainers(own(), L"");
    EXPECT_THAT(own().containers(), IsEmpty());
}

TEST_P(EmbeddedKeys, MissingContainerHasNoKeyAndNoCertificate) {
    EXPECT_EQ(own(std::wstring(L"nobody's")).publicKey(), nullptr);
    EXPECT_EQ(own().certificate(std::wstring(L"nobody's")), nullptr);
    const Certificate certificate(issue(makeContainer(kind(), L"deleted")));
    own().deleteContainer(L"deleted", "test");
    EXPECT_FALSE(own().container(*certificate.publicKey()));
}

TEST_P(EmbeddedKeys, CertificatesAreReadFromContainersUnlessTheyAreRsa) {
    makeContainer(kind(), L"without");
    const Certificate certificate(issue(makeContainer(kind(), cyrillic)));
    certificate.install(own(), cyrillic, pin);

    const auto all = own().certificates();
    ASSERT_EQ(all.size(), kind().inContainerCertificate ? 1U : 0U);
    const auto one = own().certificate(cyrillic);
    const auto like = own().certificate(boost::make_shared<Certificate>(certificate.raw()));
    EXPECT_EQ(own().certificate(std::wstring(L"without")), nullptr);
    if (!kind().inContainerCertificate) {
        EXPECT_EQ(one, nullptr);
        EXPECT_EQ(like, nullptr);
        return;
    }
    for (const auto& found : {all.front(), one, like}) {
        ASSERT_TRUE(found);
        EXPECT_EQ(found->raw(), certificate.raw());
        EXPECT_EQ(found->container(), Provider::containers(own(), cyrillic).front());
        ASSERT_TRUE(found->provider(false));
        EXPECT_EQ(found->provider(false)->name(), kind().provider);
    }
    EXPECT_EQ(own().hash(one, kind().hashOid)->sign().empty(), false) << "read from the container, ready to sign";
}

// ---- signing

TEST_P(EmbeddedKeys, SignaturesAreAcceptedByOpensslAndByUs) {
    const std::string data = "Платёжное поручение";
    for (const DWORD keySpec : {capi::AT_KEYEXCHANGE, capi::AT_SIGNATURE}) {
        const auto certificate = signer(kind(), L"key " + std::to_wstring(keySpec), keySpec);
        const auto hash = own().hash(certificate, kind().hashOid);
        std::istringstream stream(data);
        const auto digest = hash->create(stream);
        const auto signature = hash->sign();
        EXPECT_TRUE(opensslAccepts(kind(), *certificate, data, signature)) << keySpec;
        EXPECT_FALSE(opensslAccepts(kind(), *certificate, data + "!", signature)) << keySpec;

        EXPECT_TRUE(hash->verify(signature));
        auto changed = signature;
        changed[changed.size() / 2] = static_cast<char>(changed[changed.size() / 2] ^ 1);
        EXPECT_FALSE(hash->verify(changed));
        EXPECT_FALSE(hash->verify(""));
        const auto other = own().hash(certificate, kind().hashOid);
        other->update(reinterpret_cast<const unsigned char*>("!"), 1);
        EXPECT_FALSE(other->verify(signature));
        EXPECT_EQ(hash->finalize(), digest) << "signing leaves the digest";
    }
    EXPECT_EQ(dialogues_, 2U) << "one PIN request for each key";
}

TEST_P(EmbeddedKeys, AfterResetTheNextSigningAsksForThePinAgain) {
    const auto certificate = signer(kind(), L"box");
    const auto key = certificate->privateKey();
    own().hash(certificate, kind().hashOid)->sign();
    own().hash(certificate, kind().hashOid)->sign();
    EXPECT_EQ(dialogues_, 1U);
    key->resetAuthentication();
    own().hash(certificate, kind().hashOid)->sign();
    EXPECT_EQ(dialogues_, 2U);
}

TEST_P(EmbeddedKeys, AHashStaysWithTheContextItWasMadeInWhenTheLoginIsReset) {
    const auto certificate = signer(kind(), L"box");
    const auto key = certificate->privateKey();
    const auto without = own().hash(certificate, kind().hashOid);
    key->resetAuthentication();
    EXPECT_EQ(static_cast<DWORD>(thrownBy<SystemException>([&] { without->sign(); }).code),
              capi::SCARD_W_CARD_NOT_AUTHENTICATED)
        << "the PIN went to the key's new context";

    const auto with = own().hash(certificate, kind().hashOid);
    EXPECT_FALSE(with->sign().empty());
    key->resetAuthentication();
    EXPECT_FALSE(with->sign().empty());
    EXPECT_EQ(dialogues_, 2U) << "asked again all the same";
}

TEST_P(EmbeddedKeys, WithoutThePinNothingIsSigned) {
    const auto certificate = signer(kind(), L"box");
    crypto::AuthProvider::setDialog({});
    const auto hash = own().hash(certificate, kind().hashOid);
    try {
        hash->sign();
        FAIL() << "signed without PIN";
    } catch (const CryptoException& e) {
        EXPECT_EQ(e.code().value(), 30053);
    }
    EXPECT_FALSE(certificate->privateKey()->authenticated());
}

INSTANTIATE_TEST_SUITE_P(Of, EmbeddedKeys, testing::Values(gost256, gost512, rsa),
                         [](const auto& instance) { return instance.param.label; });

// ---- PINs

unsigned triesLeft(const std::wstring& container) {
    const HCRYPTPROV context(Provider(gost256.type, gost256.provider, container), nullptr);
    return wincrypt::tools::param(context.get(), capi::PP_PIN_TRIES_REMAINING).value_or(0);
}

TEST_F(EmbeddedService, WrongPinsAreCountedAndARightOneSetsTheCountBack) {
    const auto certificate = signer(gost256, L"box");
    const auto full = triesLeft(L"box");
    ASSERT_GT(full, 3U);
    const auto key = certificate->privateKey();
    crypto::AuthProvider::setDialog([](const auto&, unsigned) { return std::string("wrong"); });
    EXPECT_THROW(key->authenticate(""), CryptoException);
    EXPECT_EQ(triesLeft(L"box"), full - 3) << "three attempts of one dialogue";
    EXPECT_FALSE(key->authenticated());
    key->authenticate(pin);
    EXPECT_TRUE(key->authenticated());
    EXPECT_EQ(triesLeft(L"box"), full);
}

TEST_F(EmbeddedService, ALockedContainerRefusesTheRightPinToo) {
    const auto certificate = signer(gost256, L"box");
    const auto key = certificate->privateKey();
    crypto::AuthProvider::setDialog([](const auto&, unsigned) { return std::string("wrong"); });
    for (unsigned dialogue = 0; dialogue < 10 && triesLeft(L"box") != 0; ++dialogue) {
        EXPECT_THROW(key->authenticate(""), CryptoException);
    }
    EXPECT_EQ(triesLeft(L"box"), 0U);
    EXPECT_THROW(key->authenticate(pin), CryptoException);
    EXPECT_TRUE(provider(gost256, std::wstring(L"box")).publicKey()) << "what needs no PIN still works";
}

TEST_F(EmbeddedService, AHandleIsRejectedAfterThreeWrongPins) {
    makeContainer(gost256, L"box");
    const HCRYPTPROV context(provider(gost256, std::wstring(L"box")), nullptr);
    WincryptAuth auth(context.get());
    for (int attempt = 0; attempt < 3; ++attempt) {
        EXPECT_FALSE(auth.isAuthRejected());
        EXPECT_FALSE(auth.login("wrong"));
        EXPECT_EQ(auth.status(), 2U);
    }
    EXPECT_TRUE(auth.isAuthRejected());
    EXPECT_TRUE(auth.login(pin));
    EXPECT_EQ(auth.status(), 0U);
}

// ---- hashes

struct HashKind {
    const char* oid;
    const char* digest;              ///< openssl dgst
    const char* ofNothing = nullptr; ///< where openssl's is not to be trusted
};

void PrintTo(const HashKind& kind, std::ostream* out) {
    *out << kind.digest;
}

class EmbeddedHash : public EmbeddedFixture, public testing::WithParamInterface<HashKind> {};

TEST_P(EmbeddedHash, EqualsOpenssls) {
    constexpr std::size_t chunk = 0x80000;
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, chunk - 1, chunk, chunk + 1, 3 * chunk + 17}) {
        std::string data(size, '\0');
        for (std::size_t i = 0; i < size; ++i) {
            data[i] = static_cast<char>(i * 31 + i / 251);
        }
        const auto file = folder_.write("data", data);
        const auto told = openssl_.run({"dgst", GetParam().digest, "-r", "data"});
        ASSERT_EQ(told.exit, 0) << told.err;
        if (size == 0) { // openssl's GOST engine gets GOST R 34.11-94 of nothing wrong
            std::istringstream nothing;
            EXPECT_EQ(hex::encode(provider(gost256).hash(nullptr, GetParam().oid)->create(nothing)),
                      GetParam().ofNothing == nullptr ? told.out.substr(0, told.out.find(' ')) : GetParam().ofNothing);
            continue;
        }

        std::ifstream stream(file, std::ios::binary);
        const auto streamed = provider(gost256).hash(nullptr, GetParam().oid)->create(stream);
        EXPECT_EQ(hex::encode(streamed) + " *data\n", told.out) << size;

        const auto pieces = provider(gost256).hash(nullptr, GetParam().oid);
        for (std::size_t at = 0; at < size; at += 100'003) {
            pieces->update(reinterpret_cast<const unsigned char*>(data.data()) + at,
                           std::min<std::size_t>(100'003, size - at));
        }
        EXPECT_EQ(pieces->finalize(), streamed) << "chunking never matters";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Of, EmbeddedHash,
    testing::Values(HashKind{"1.2.643.7.1.1.2.2", "-md_gost12_256"}, HashKind{"1.2.643.7.1.1.2.3", "-md_gost12_512"},
                    HashKind{"1.2.643.2.2.9", "-md_gost94",
                             "981e5f3ca30c841487830f84fb433e13ac1101569b9c13584ac483234cd656c0"},
                    HashKind{"1.3.14.3.2.26", "-sha1"}, HashKind{"2.16.840.1.101.3.4.2.1", "-sha256"},
                    HashKind{"2.16.840.1.101.3.4.2.2", "-sha384"}, HashKind{"2.16.840.1.101.3.4.2.3", "-sha512"}),
    [](const auto& instance) {
        std::string name = instance.param.digest + 1;
        std::erase(name, '_');
        return name;
    });

TEST_F(EmbeddedService, AHashThatTheProviderDoesNotOfferIsRefused) {
    EXPECT_THROW(static_cast<void>(provider(rsa).hash(nullptr, "1.2.643.7.1.1.2.2")), SystemException);
    EXPECT_THROW(static_cast<void>(provider(gost256).hash(nullptr, "1.2.3.4")), SystemException);
}

} // namespace
} // namespace wincrypt_keys
