// Private keys and their PIN, with each call of the service failing in turn.
#include "fault_fixture.hpp"

#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/private_key.hpp"
#include "crypto/wincrypt/wincrypt_auth.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"

namespace wincrypt_keys {
namespace {

using orvik::plugin::crypto::AuthProvider;
using orvik::plugin::wincrypt::HCRYPTPROV;
using orvik::plugin::wincrypt::PrivateKey;
using orvik::plugin::wincrypt::WincryptAuth;

class KeyFault : public FaultWalkTest {};

TEST_F(KeyFault, Context) {
    for (const auto& [name, arrangement] : {std::pair{"PrivateKey::context, given away", &FaultWalkTest::arrange},
                                            {"PrivateKey::context, shared", &FaultWalkTest::arrangeSharedContexts}}) {
        EXPECT_GT(
            walk(
                name, [] { EXPECT_NE(PrivateKey(linkedCertificate()).context(), nullptr); }, keyEndings(), arrangement),
            10U);
    }
}

TEST_F(KeyFault, KeySpec) {
    const std::string unavailable = "CryptoException 30001 at private_key, keySpec";
    EXPECT_GT(walk(
                  "PrivateKey::keySpec", [] { EXPECT_EQ(PrivateKey(linkedCertificate()).keySpec(), 1U); },
                  {{"CertCreateCertificateContext", keyEndings().at("CertCreateCertificateContext")},
                   {"CertSetCertificateContextProperty", unavailable},
                   {"CryptContextAddRef", unavailable}},
                  arrangeSharedContexts),
              10U);
}

/// What a key says of the provider that it lies with.
struct Described {
    std::wstring name;
    unsigned type;
    boost::optional<std::wstring> container;
    friend bool operator==(const Described&, const Described&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Described& described) {
        return out << narrow(described.name) << ", " << described.type << ", "
                   << testing::PrintToString(described.container);
    }
};

TEST_F(KeyFault, ProviderThatAKeyDescribes) {
    Described described;
    const Described whole{embeddedName, IProvider::gost2012_256, std::wstring(L"/keys/box")};
    EXPECT_GT(walkFaults({"PrivateKey::provider", arrangeSharedContexts,
                          [&] {
                              const auto provider = PrivateKey(linkedCertificate()).provider();
                              described = {provider->name(), provider->type(), provider->container()};
                          },
                          [&](const FaultOutcome& outcome) {
                              EXPECT_EQ(ending(outcome), endingIn(keyEndings(), outcome));
                              if (outcome.thrown) {
                                  return;
                              }
                              auto expected = whole;
                              if (outcome.function == "CryptGetProvParam") {
                                  // In two calls each: the container, the type that tells its encoding, the name, the
                                  // type.
                                  switch (stepsSince("CryptAcquireCertificatePrivateKey", outcome)) {
                                  case 1:
                                  case 2:
                                      expected.container = boost::none;
                                      break;
                                  case 5:
                                  case 6:
                                      expected.name.clear();
                                      break;
                                  case 7:
                                  case 8:
                                      expected.type = 0;
                                      break;
                                  default:
                                      break;
                                  }
                              }
                              EXPECT_EQ(described, expected);
                          }}),
              12U);
    EXPECT_EQ(described, whole);
}

TEST_F(KeyFault, Authentication) {
    AuthProvider::setDialog({});
    auto endings = keyEndings();
    endings["CryptSetProvParam"] = "CryptoException 30053 at private_key, authenticate";
    EXPECT_GT(walk(
                  "PrivateKey::authenticate",
                  [] {
                      const auto acquisitions = [] { return service().count("CryptAcquireCertificatePrivateKey"); };
                      PrivateKey key(linkedCertificate());
                      try {
                          key.authenticate("1234");
                      } catch (...) {
                          EXPECT_FALSE(key.authenticated());
                          throw;
                      }
                      EXPECT_TRUE(key.authenticated());
                      const auto before = acquisitions();
                      key.resetAuthentication();
                      EXPECT_FALSE(key.authenticated());
                      EXPECT_NE(key.context(), nullptr);
                      EXPECT_GT(acquisitions(), before) << "opened anew";
                      EXPECT_FALSE(key.authenticated());
                  },
                  endings),
              20U);
}

// ---- whether keys take a PIN, which is kept for the process

/// The calls of a first answer.
constexpr std::size_t answerCalls = 21;

/// Which call of the first answer fails; none in the last run.
class PinAnswerFault : public FaultWalkTest, public testing::WithParamInterface<std::size_t> {
protected:
    static bool answer(const wchar_t* providerName) {
        const auto certificate = boost::make_shared<Certificate>(der(gostCertificate));
        static_cast<void>(certificate->link(Provider(80UL, providerName), std::wstring(L"/keys/box")));
        return PrivateKey(certificate).supportsAuthentication();
    }

    static void expectAnswer(const wchar_t* providerName, bool takesPin) {
        installed().name = narrow(providerName);
        service().failCall(GetParam(), faultCode);
        bool first = false;
        FaultOutcome outcome{GetParam(), {}, {}, faultCode, nullptr};
        try {
            first = answer(providerName);
        } catch (...) {
            outcome.thrown = std::current_exception();
        }
        outcome.call = service().failedCall();
        outcome.function = service().failedFunction();
        service().failCall(0, 0);
        SCOPED_TRACE(outcome.call);
        EXPECT_EQ(outcome.call.empty(), GetParam() > answerCalls);
        EXPECT_EQ(ending(outcome), endingIn(keyEndings(), outcome));

        // A provider without a name has no record that keeps PINs away from it.
        const bool nameless =
            outcome.call.starts_with("CryptGetProvParam(") && outcome.call.find(", 4, ") != std::string::npos;
        const bool expected = takesPin || nameless;
        if (!outcome.thrown) {
            EXPECT_EQ(first, expected);
        }
        EXPECT_EQ(answer(providerName), expected) << "an answer is kept for the keys to come, a failure is not";
    }
};

TEST_P(PinAnswerFault, OfAProviderThatTakesPins) {
    expectAnswer(embeddedName, true);
}

TEST_P(PinAnswerFault, OfAProviderThatAsksForThemItself) {
    expectAnswer(signalComName, false);
}

INSTANTIATE_TEST_SUITE_P(Call, PinAnswerFault, testing::Range(std::size_t{1}, answerCalls + 2));

TEST_F(KeyFault, Login) {
    struct Answer {
        bool in = false;
        unsigned status = 0;
        std::uint64_t states = 0;
        bool takesPin = false;
    };
    for (const auto& [name, takesPin] : {std::pair{embeddedName, true}, {signalComName, false}}) {
        Answer answer;
        EXPECT_GT(walkFaults({"WincryptAuth::login, " + narrow(name),
                              [&] {
                                  arrange();
                                  installed().name = narrow(name);
                              },
                              [&] {
                                  const HCRYPTPROV context(Provider(80UL, name, std::wstring(L"/keys/box")), nullptr);
                                  WincryptAuth auth(context.get());
                                  const bool in = auth.login("1234");
                                  answer = {in, auth.status(), auth.states(), auth.supportAuthentication()};
                              },
                              [&](const FaultOutcome& outcome) {
                                  EXPECT_EQ(ending(outcome), "");
                                  const bool closed = outcome.function == "CryptAcquireContextW";
                                  const bool in = !closed && outcome.function != "CryptSetProvParam";
                                  EXPECT_EQ(answer.in, in);
                                  EXPECT_EQ(answer.status, in ? 0U : 2U);
                                  EXPECT_EQ(answer.states, in ? 1U : 4U);
                                  const bool nameless =
                                      closed || outcome.call.starts_with("CryptGetProvParam(context1, 4,");
                                  EXPECT_EQ(answer.takesPin, takesPin || nameless);
                              }}),
                  8U);
        EXPECT_TRUE(answer.in);
        EXPECT_EQ(answer.takesPin, takesPin);
    }
}

} // namespace
} // namespace wincrypt_keys
