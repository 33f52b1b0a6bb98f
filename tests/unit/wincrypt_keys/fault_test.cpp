// Every call of every scenario fails once: the documented result, and nothing left behind.
#include "keys_fixture.hpp"

#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/hash.hpp"
#include "crypto/wincrypt/private_key.hpp"
#include "crypto/wincrypt/public_key.hpp"
#include "crypto/wincrypt/wincrypt_auth.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "orvik/plugin/session.hpp"
#include "service_double/fault_walk.hpp"

#include <sstream>

namespace wincrypt_keys {
namespace {

using orvik::plugin::crypto::AuthProvider;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::exception::SystemException;
using orvik::plugin::exception::ApplicationException;
using orvik::plugin::wincrypt::CryptHash;
using orvik::plugin::wincrypt::HCRYPTPROV;
using orvik::plugin::wincrypt::PrivateKey;
using orvik::plugin::wincrypt::WincryptAuth;
using service_double::FaultOutcome;
using service_double::walkFaults;

constexpr DWORD faultCode = 0x8009000E;
constexpr const char* streebog = "1.2.643.7.1.1.2.2";

std::string place(const orvik::plugin::exception::Exception& e) {
    const Thrown thrown = describe(e);
    return std::to_string(thrown.code) + " at " + thrown.file + ", " + thrown.function;
}

/// Where and with which number the run ended; empty when it returned.
std::string ending(const FaultOutcome& outcome) {
    if (!outcome.thrown) {
        return {};
    }
    std::ostringstream text;
    try {
        std::rethrow_exception(outcome.thrown);
    } catch (const SystemException& e) {
        text << "SystemException " << place(e);
    } catch (const CryptoException& e) {
        text << "CryptoException " << place(e);
    } catch (const ApplicationException& e) {
        text << "ApplicationException " << place(e);
    } catch (const std::exception& e) {
        text << "unexpected: " << e.what();
    }
    return text.str();
}

std::string system(DWORD code, const std::string& place) {
    return "SystemException " + std::to_string(static_cast<int>(code)) + " at " + place;
}

class FaultWalkTest : public KeysFixture {
protected:
    /// How a run ends, by the function that failed in it; a function that is not named here does no harm.
    using Endings = std::map<std::string, std::string>;

    FaultWalkTest() {
        arrange();
        // Found once per process: a run in which that fails would take the providers from the runs after it.
        EXPECT_EQ(provider().providers(orvik::plugin::Session::instance()).size(), 1U);
        AuthProvider::setDialog([](const auto&, unsigned) { return std::string("1234"); });
    }
    ~FaultWalkTest() override { AuthProvider::setDialog({}); }

    /// Two containers of the certificates' key, with a certificate in them.
    static void arrange() {
        install(scripted(embeddedName));
        offerKeyAlgorithm();
        service().oids[streebog] = {0x8021, L""};
        for (const wchar_t* name : {L"/keys/box", L"/other/box"}) {
            auto container = containerNamed(name);
            container.certificate = der(gostCertificate);
            container.pin = "1234";
            installed().containers.push_back(container);
        }
    }

    static void arrangeSharedContexts() {
        arrange();
        service().callerFrees = false;
    }

    static Provider box() { return provider(std::wstring(L"/keys/box")); }

    /// A certificate linked to the first container. Whether the link failed shows later.
    static boost::shared_ptr<Certificate> linkedCertificate() {
        auto certificate = boost::make_shared<Certificate>(der(gostCertificate));
        static_cast<void>(certificate->link(provider(), std::wstring(L"/keys/box")));
        return certificate;
    }

    static std::size_t walk(const char* name, const std::function<void()>& scenario, const Endings& endings = {},
                            const std::function<void()>& arrangement = arrange, DWORD code = faultCode) {
        return walkFaults({name, arrangement, scenario,
                           [&](const FaultOutcome& outcome) {
                               const auto expected = endings.find(outcome.function);
                               EXPECT_EQ(ending(outcome), expected == endings.end() ? "" : expected->second);
                           },
                           code});
    }
};

TEST_F(FaultWalkTest, Algorithms) {
    std::set<std::string> found;
    EXPECT_EQ(walk("Provider::algorithms", [&] { found = provider().algorithms(); }), 4U);
    EXPECT_EQ(found.size(), 1U) << "the run without failure";
}

TEST_F(FaultWalkTest, HasAlgorithm) {
    bool has = false;
    EXPECT_GE(walk("Provider::hasAlgorithm", [&] { has = provider().hasAlgorithm("1.2.643.7.1.1.1.1"); }), 2U);
    EXPECT_TRUE(has) << "an empty answer is not kept";
}

TEST_F(FaultWalkTest, RandomBytes) {
    std::size_t size = 0;
    EXPECT_EQ(walkFaults({"Provider::randomBytes", arrange, [&] { size = provider().randomBytes(32).size(); },
                          [&](const FaultOutcome& outcome) {
                              EXPECT_EQ(ending(outcome), "");
                              EXPECT_EQ(size, outcome.function == "CryptReleaseContext" ? 32U : 0U);
                          }}),
              3U);
    EXPECT_EQ(size, 32U);
}

TEST_F(FaultWalkTest, Version) {
    boost::optional<std::wstring> version;
    EXPECT_EQ(walkFaults({"Provider::version", arrange, [&] { version = provider().version(); },
                          [&](const FaultOutcome& outcome) {
                              EXPECT_EQ(ending(outcome), "");
                              EXPECT_EQ(version.has_value(), outcome.function == "CryptReleaseContext");
                          }}),
              3U);
    EXPECT_TRUE(version);
}

TEST_F(FaultWalkTest, SubjectSignTool) {
    const auto cryptoPro = [] { install(scripted(cryptoProName)); };
    EXPECT_EQ(walk(
                  "Provider::subjectSignTool", [] { EXPECT_TRUE(Provider(80UL, cryptoProName).subjectSignTool()); }, {},
                  cryptoPro),
              3U);
}

TEST_F(FaultWalkTest, Containers) {
    std::vector<std::wstring> found;
    EXPECT_EQ(walk("Provider::containers", [&] { found = provider().containers(); }), 6U);
    EXPECT_EQ(found.size(), 2U);
    EXPECT_EQ(walk("Provider::containers, filtered", [&] { found = Provider::containers(provider(), L"box"); }), 6U);
    EXPECT_EQ(found.size(), 2U);
}

TEST_F(FaultWalkTest, PublicKeyOfAContainer) {
    boost::shared_ptr<orvik::plugin::crypto::IPublicKey> key;
    EXPECT_EQ(walkFaults({"Provider::publicKey(provider)", arrange, [&] { key = Provider::publicKey(box()); },
                          [&](const FaultOutcome& outcome) {
                              EXPECT_EQ(ending(outcome), "");
                              EXPECT_EQ(key == nullptr, outcome.function == "CryptExportPublicKeyInfo")
                                  << "acquisitions are tried again";
                          }}),
              4U);
    EXPECT_TRUE(key);
    EXPECT_EQ(walk(
                  "Provider::publicKey(provider), cancelled", [&] { key = Provider::publicKey(box()); },
                  {{"CryptExportPublicKeyInfo", "ApplicationException 20003 at provider, publicKey"}}, arrange, 1223),
              4U);
    EXPECT_TRUE(key);
    EXPECT_EQ(walk(
                  "Provider::publicKey(), cancelled", [&] { key = box().publicKey(); }, {}, arrange, 1223),
              4U);
    EXPECT_TRUE(key);
}

TEST_F(FaultWalkTest, ContainerOfAKey) {
    const auto wanted = Certificate(der(gostCertificate)).publicKey();
    boost::optional<std::wstring> found;
    EXPECT_GT(walk(
                  "Provider::container(key)", [&] { found = provider().container(*wanted); }, {},
                  [&] {
                      arrange();
                      installed().containers[1].publicKey = {wanted->algObjId(), wanted->algParams(), wanted->key()};
                  }),
              10U);
    EXPECT_EQ(found, std::wstring(L"/other/box"));
}

TEST_F(FaultWalkTest, CertificatesInContainers) {
    std::size_t found = 0;
    const auto scenario = [&] { found = provider().certificates().size(); };
    EXPECT_GT(walkFaults({"Provider::certificates", arrange, scenario,
                          [&](const FaultOutcome& outcome) {
                              EXPECT_EQ(ending(outcome), "");
                              // What fails in one container leaves the other's certificate; the first calls list both.
                              EXPECT_GE(found, outcome.index <= 5 ? 0U : 1U) << outcome.call;
                          }}),
              20U);
    EXPECT_EQ(found, 2U);
    bool one = false;
    EXPECT_GT(walk("Provider::certificate(container)",
                   [&] { one = provider().certificate(std::wstring(L"/keys/box")) != nullptr; }),
              10U);
    EXPECT_TRUE(one);
}

TEST_F(FaultWalkTest, CertificateLikeAnother) {
    bool found = false;
    const auto scenario = [&] {
        found = provider().certificate(boost::make_shared<Certificate>(der(gostCertificate))) != nullptr;
    };
    // The same call makes the certificate to look for, which throws, and those in the containers, which are skipped.
    EXPECT_GT(walkFaults({"Provider::certificate(like)", arrange, scenario,
                          [](const FaultOutcome& outcome) {
                              EXPECT_EQ(ending(outcome),
                                        outcome.index == 1 ? system(outcome.code, "certificate, Certificate") : "");
                          }}),
              15U);
    EXPECT_TRUE(found);
}

TEST_F(FaultWalkTest, Deletion) {
    // A provider outside CryptoPro's family: no second name is tried for the container.
    const auto other = [] {
        arrange();
        installed().name = narrow(vipNetName);
    };
    EXPECT_EQ(walkFaults({"Provider::deleteContainer", other,
                          [] { Provider(80UL, vipNetName).deleteContainer(L"/keys/box", "test"); },
                          [](const FaultOutcome& outcome) {
                              EXPECT_EQ(ending(outcome), system(outcome.code, "provider, deleteContainer"));
                              EXPECT_EQ(installed().containers.size(), 2U);
                          }}),
              1U);
    EXPECT_EQ(installed().containers.size(), 1U);
    EXPECT_EQ(walk("Provider::deleteContainers", [] { Provider::deleteContainers(provider(), L"box"); }), 8U);
    EXPECT_TRUE(installed().containers.empty());
}

TEST_F(FaultWalkTest, ProviderOfACertificate) {
    const Thrown notFound{30004, "provider", "Provider", 702};
    std::wstring name;
    EXPECT_GT(walkFaults({"Provider(certificate)", arrange,
                          [&] {
                              const auto certificate = linkedCertificate();
                              name.clear();
                              name = Provider(*certificate).name();
                          },
                          [&](const FaultOutcome& outcome) {
                              if (outcome.function == "CertCreateCertificateContext") {
                                  EXPECT_EQ(ending(outcome), system(faultCode, "certificate, Certificate"));
                              } else if (outcome.thrown) {
                                  EXPECT_EQ(thrownBy<CryptoException>([&] { std::rethrow_exception(outcome.thrown); }),
                                            notFound);
                              } else {
                                  EXPECT_EQ(name, embeddedName) << "found, or not: nothing between";
                              }
                          }}),
              4U);
    EXPECT_EQ(name, embeddedName);
}

TEST_F(FaultWalkTest, PublicKeyEquality) {
    const auto one = Certificate(der(gostCertificate)).publicKey();
    const auto two = Certificate(der(otherGostCertificate)).publicKey();
    bool equal = false;
    EXPECT_EQ(walkFaults({"PublicKey::operator==", arrange, [&] { equal = *one == *two; },
                          [&](const FaultOutcome& outcome) {
                              EXPECT_EQ(ending(outcome), "");
                              EXPECT_FALSE(equal);
                          }}),
              1U);
    EXPECT_TRUE(equal);
}

// ---- the enumeration that is kept for the process

/// Which call of the first enumeration fails: the size, the name, the end.
class EnumerationFault : public KeysFixture, public testing::WithParamInterface<std::size_t> {};

TEST_P(EnumerationFault, LeavesTheProviderOut) {
    constexpr std::size_t end = 3;
    service().failCall(GetParam(), faultCode);
    const auto found = provider().providers(orvik::plugin::Session::instance());
    EXPECT_EQ(found.size(), GetParam() == end ? 1U : 0U) << service().failedCall();
    EXPECT_THAT(service().failedCall(), testing::StartsWith("CryptEnumProviders("));
    EXPECT_EQ(provider().providers(orvik::plugin::Session::instance()).size(), found.size()) << "kept as it is";
}

INSTANTIATE_TEST_SUITE_P(Call, EnumerationFault, testing::Values(1U, 2U, 3U));

// ---- private keys

/// What happens before a key's context is open.
const std::map<std::string, std::string> keyEndings = {
    {"CertCreateCertificateContext", system(0x8009000E, "certificate, Certificate")},
    {"CertSetCertificateContextProperty", system(0x8009200B, "private_key, createContext")}, // not linked
    {"CryptContextAddRef", system(0x8009000E, "private_key, createContext")},
};

TEST_F(FaultWalkTest, ContextOfAKey) {
    for (const auto& [name, arrangement] : {std::pair{"PrivateKey::context, given away", &FaultWalkTest::arrange},
                                            {"PrivateKey::context, shared", &FaultWalkTest::arrangeSharedContexts}}) {
        EXPECT_GT(
            walk(
                name, [] { EXPECT_NE(PrivateKey(linkedCertificate()).context(), nullptr); }, keyEndings, arrangement),
            10U);
    }
}

TEST_F(FaultWalkTest, KeySpec) {
    const std::string unavailable = "CryptoException 30001 at private_key, keySpec";
    EXPECT_GT(walk(
                  "PrivateKey::keySpec", [] { EXPECT_EQ(PrivateKey(linkedCertificate()).keySpec(), 1U); },
                  {{"CertCreateCertificateContext", keyEndings.at("CertCreateCertificateContext")},
                   {"CertSetCertificateContextProperty", unavailable},
                   {"CryptContextAddRef", unavailable}},
                  arrangeSharedContexts),
              10U);
}

TEST_F(FaultWalkTest, AuthenticationOfAKey) {
    AuthProvider::setDialog({});
    auto endings = keyEndings;
    endings["CryptSetProvParam"] = "CryptoException 30053 at private_key, authenticate";
    EXPECT_GT(walk(
                  "PrivateKey::authenticate",
                  [] {
                      PrivateKey key(linkedCertificate());
                      key.authenticate("1234");
                      EXPECT_TRUE(key.authenticated());
                      key.resetAuthentication();
                  },
                  endings),
              14U);
}

TEST_F(FaultWalkTest, SupportsAuthentication) {
    bool supports = false;
    EXPECT_GT(walk(
                  "PrivateKey::supportsAuthentication",
                  [&] { supports = PrivateKey(linkedCertificate()).supportsAuthentication(); }, keyEndings),
              1U);
    EXPECT_TRUE(supports);
}

TEST_F(FaultWalkTest, Login) {
    bool in = false;
    EXPECT_GT(walkFaults({"WincryptAuth::login", arrange,
                          [&] {
                              const HCRYPTPROV context(box(), nullptr);
                              WincryptAuth auth(context.get());
                              in = auth.login("1234");
                              EXPECT_EQ(auth.status(), in ? 0U : 2U);
                              EXPECT_TRUE(auth.supportAuthentication());
                          },
                          [&](const FaultOutcome& outcome) {
                              EXPECT_EQ(ending(outcome), "");
                              if (outcome.function == "CryptSetProvParam") {
                                  EXPECT_FALSE(in);
                              }
                          }}),
              8U);
    EXPECT_TRUE(in);
}

// ---- hashes

TEST_F(FaultWalkTest, HashOfAProvider) {
    EXPECT_EQ(walk("Hash of a provider",
                   [] {
                       std::istringstream stream(std::string(0x80001, 'x'));
                       EXPECT_EQ(provider().hash(nullptr, streebog)->create(stream).size(), 32U);
                   },
                   {{"CryptAcquireContextW", "CryptoException 30004 at hash, CryptHash"},
                    {"CryptCreateHash", system(faultCode, "hash, CryptHash")},
                    {"CryptHashData", system(faultCode, "hash, update")},
                    {"CryptGetHashParam", system(faultCode, "hash, finalize")}}),
              9U)
        << "acquire, OID, create, two pieces, size, value, two releases";
}

TEST_F(FaultWalkTest, HashOfACertificatesKey) {
    auto endings = keyEndings;
    endings["CertDuplicateCertificateContext"] = system(faultCode, "certificate, privateKey");
    endings["CryptContextAddRef"] = system(faultCode, "hash, CryptHash");
    endings["CryptCreateHash"] = system(faultCode, "hash, CryptHash");
    endings["CryptHashData"] = system(faultCode, "hash, update");
    endings["CryptSignHashW"] = system(faultCode, "hash, signImpl"); // and the container has no signature key
    endings["CryptImportPublicKeyInfo"] = system(faultCode, "hash, verify");
    bool verified = false;
    EXPECT_GT(walk(
                  "Hash of a certificate: update, sign, verify",
                  [&] {
                      const auto certificate = linkedCertificate();
                      CryptHash hash(certificate, streebog);
                      hash.update(reinterpret_cast<const unsigned char*>("abc"), 3);
                      const auto signature = hash.sign();
                      EXPECT_FALSE(signature.empty());
                      verified = hash.verify(signature);
                  },
                  endings,
                  [] {
                      arrange();
                      const auto key = [] {
                          auto* context = service().makeCertificate(der(gostCertificate));
                          const auto& octets = context->pCertInfo->SubjectPublicKeyInfo.PublicKey;
                          std::string bytes(reinterpret_cast<const char*>(octets.pbData), octets.cbData);
                          Defaults::CertFreeCertificateContext(context);
                          return bytes;
                      }();
                      installed().containers.front().publicKey.key = key;
                  }),
              20U);
    EXPECT_TRUE(verified);
}

} // namespace
} // namespace wincrypt_keys
