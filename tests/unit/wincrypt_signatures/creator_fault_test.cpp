// Signing with each call of the service failing: code, place and result of each failure, and nothing left behind.

#include "creator_fixture.hpp"

#include "capi/signer_fields.h"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "service_double/fault_walk.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <stdexcept>

#include <vector>

namespace wincrypt_signatures {
namespace {

using orvik::plugin::crypto::AuthProvider;
using service_double::FaultOutcome;

constexpr DWORD faultCode = 0x8009000E;

/// What a failed call does to signing.
enum class Harm {
    none,      ///< the signature is made all the same
    usage,     ///< the certificate counts as one without key usage: 30029
    link,      ///< and as one without container: 30005
    attribute, ///< the service's code, as of the encoder's helper
    key,       ///< the service's code, as of the certificate's private key
    open,      ///< the service's code, as of initialize
    update,    ///< the service's code, as of the check of updates
    final,     ///< the service's code, as of finalize
};

struct Step {
    const char* function;
    Harm harm;
    std::size_t times = 1;
};
using Steps = std::vector<Step>;

/// Three typed attributes and the signing time, each encoded by two calls.
const Steps preparation{
    {"CertFindExtension", Harm::usage},
    {"CryptDecodeObject", Harm::usage, 2},
    {"CertGetCertificateContextProperty", Harm::link, 2},
    {"CryptEncodeObject", Harm::attribute, 8},
    {"CertDuplicateCertificateContext", Harm::key},
    {"CertGetCertificateContextProperty", Harm::none, 2},
    {"CertGetCertificateContextProperty", Harm::none, 2},
    {"CryptAcquireCertificatePrivateKey", Harm::none}, // it is tried twice
    {"CryptGetProvParam", Harm::none, 8},
    {"CryptMsgOpenToEncode", Harm::open},
    {"CryptMsgUpdate", Harm::update, 3},
    {"CryptGetProvParam", Harm::none, 4}, // the container's name, for the dialogue
};
const Steps release{
    {"CryptMsgClose", Harm::none},
    {"CertFreeCertificateContext", Harm::none},
    {"CryptReleaseContext", Harm::none},
    {"CertFreeCertificateContext", Harm::none},
};

/// One step for each call.
Steps flat(const std::vector<Steps>& parts) {
    Steps all;
    for (const Steps& part : parts) {
        for (const Step& step : part) {
            all.insert(all.end(), step.times, Step{step.function, step.harm});
        }
    }
    return all;
}

const Steps signing{{"CryptSetProvParam", Harm::none, 2}, // the dialogue asks again
                    {"CryptMsgUpdate", Harm::final}};

class CreatorFault : public CreatorFixture {
protected:
    /// What the plug-in finds out once in a process is known when the calls are counted.
    CreatorFault() {
        arrangeFresh();
        sign<binary::attached::Creator>();
    }

    void TearDown() override {
        signer_.reset();
        CreatorFixture::TearDown();
    }

    void arrangeFresh() {
        arrangeService();
        arrangeEncoder();
        signer_ = linked();
        out_.clear();
        initialized_ = false;
    }

    /// Signs with attributes of each type; whether finalize said that it did.
    template <class Creator>
    bool sign() {
        const auto signer = std::move(signer_);
        auto request = params(signer);
        request.attributes = {
            {"OCTET STRING", "1.2.3", "00ff"}, {"UTF8String", "1.2.4", "text"}, {"INTEGER", "1.2.5", "-7"}};
        Creator creator;
        creator.initialize(request);
        initialized_ = true;
        update(creator, "some ");
        update(creator, "data");
        std::vector<unsigned char> out;
        const bool done = creator.finalize(out);
        out_.assign(out.begin(), out.end());
        return done;
    }

    template <class Creator>
    void walk(const char* name, const Steps& steps, bool succeeds, const std::string& message) {
        bool done = false;
        const auto count = service_double::walkFaults({name, [this] { arrangeFresh(); },
                                                       [&] {
                                                           done = false;
                                                           done = sign<Creator>();
                                                       },
                                                       [&](const FaultOutcome& outcome) {
                                                           ASSERT_LE(outcome.index, steps.size()) << "one call more";
                                                           const Step& step = steps[outcome.index - 1];
                                                           EXPECT_EQ(outcome.function, step.function);
                                                           const bool unharmed = step.harm == Harm::none;
                                                           EXPECT_EQ(done, unharmed && succeeds);
                                                           EXPECT_EQ(out_, done ? message : "");
                                                           expectThrown(step.harm, outcome);
                                                       },
                                                       faultCode});
        EXPECT_EQ(count, steps.size());
        EXPECT_EQ(done, succeeds) << "nothing failed";
        EXPECT_EQ(out_, message);
    }

private:
    void expectThrown(Harm harm, const FaultOutcome& outcome) const {
        const auto refused = [](const char* file, const char* function) {
            return Thrown{code(faultCode), file, function, 0};
        };
        switch (harm) {
        case Harm::none:
            EXPECT_FALSE(outcome.thrown);
            break;
        case Harm::usage:
            EXPECT_EQ(service_double::describe<CryptoException>(outcome.thrown), validation(30029));
            break;
        case Harm::link:
            EXPECT_EQ(service_double::describe<CryptoException>(outcome.thrown), validation(30005));
            break;
        case Harm::attribute:
            EXPECT_EQ(service_double::describe<SystemException>(outcome.thrown),
                      refused("wincrypt_handler", "CryptEncodeObjectEx"));
            break;
        case Harm::key:
            EXPECT_EQ(service_double::describe<SystemException>(outcome.thrown), refused("certificate", "privateKey"));
            break;
        case Harm::open:
            EXPECT_EQ(service_double::describe<SystemException>(outcome.thrown),
                      refused("signature_creator", "initializeImpl"));
            break;
        case Harm::update:
            EXPECT_EQ(service_double::describe<SystemException>(outcome.thrown),
                      refused("signature_creator", "validateCryptMsgUpdate"));
            EXPECT_TRUE(initialized_);
            break;
        case Harm::final:
            EXPECT_EQ(service_double::describe<SystemException>(outcome.thrown), finalization(code(faultCode)));
            break;
        }
    }

    boost::shared_ptr<Certificate> signer_;
    std::string out_;
    bool initialized_ = false;
};

TEST_F(CreatorFault, AttachedWithTypedAttributes) {
    walk<binary::attached::Creator>("sign attached", flat({preparation, signing, release}), true, "HEADsome dataTAIL");
}

TEST_F(CreatorFault, DetachedWithTypedAttributes) {
    walk<binary::detached::Creator>("sign detached", flat({preparation, signing, release}), true, "HEADTAIL");
}

TEST_F(CreatorFault, RefusedPinSignsNothing) {
    AuthProvider::setDialog([](const auto&, unsigned) { return boost::optional<std::string>(); });
    walk<binary::attached::Creator>("sign, PIN refused", flat({preparation, release}), false, "");
    walk<binary::detached::Creator>("sign detached, PIN refused", flat({preparation, release}), false, "");
}

TEST_F(CreatorFault, AuthorizationThatThrowsLeavesTheCreatorUnconfigured) {
    arrangeFresh();
    const auto signer = linked();
    binary::attached::Creator creator;
    creator.initialize(params(signer));
    update(creator, "data");
    AuthProvider::setDialog(
        [](const auto&, unsigned) -> boost::optional<std::string> { throw std::runtime_error("no terminal"); });
    std::vector<unsigned char> out;
    EXPECT_THROW(creator.finalize(out), std::runtime_error);
    EXPECT_FALSE(creator.finalize(out));
    EXPECT_FALSE(update(creator, "data"));
    AuthProvider::setDialog([](const auto&, unsigned) { return boost::optional<std::string>("1234"); });
    creator.initialize(params(signer));
    update(creator, "other");
    EXPECT_EQ(finalize(creator), "HEADotherTAIL");
}

/// A certificate of another implementation, without a key of its own.
class Keyless : public Certificate {
public:
    using Certificate::Certificate;
    [[nodiscard]] boost::shared_ptr<orvik::plugin::crypto::IPrivateKey> privateKey() const override { return nullptr; }
};

TEST_F(CreatorFault, CertificateThatReturnsNoPrivateKeyIsRefused) {
    arrangeFresh();
    const auto keyless = boost::make_shared<Keyless>(der(signerCertificate));
    ASSERT_TRUE(keyless->link(provider(), L"box"));
    binary::attached::Creator creator;
    EXPECT_EQ(thrownBy<CryptoException>([&] { creator.initialize(params(keyless)); }),
              (Thrown{30001, "signature_creator", "Context", 0}));
    EXPECT_FALSE(update(creator, "data"));
}

TEST_F(CreatorFault, SecondInitializeThatIsRefusedKeepsTheFirstMessage) {
    arrangeFresh();
    binary::attached::Creator creator;
    creator.initialize(params(linked()));
    update(creator, "first");
    EXPECT_EQ(thrownBy<CryptoException>([&] { creator.initialize(params(nullptr)); }), validation(30003));
    EXPECT_EQ(finalize(creator), "HEADfirstTAIL");
}

TEST_F(CreatorFault, SecondInitializeThatDoesNotOpenDropsTheFirstMessage) {
    arrangeFresh();
    binary::attached::Creator creator;
    creator.initialize(params(linked()));
    update(creator, "first");
    service().failFunction("CryptMsgOpenToEncode", capi::CRYPT_E_UNKNOWN_ALGO);
    EXPECT_EQ(thrownBy<SystemException>([&] { creator.initialize(params(linked())); }),
              (Thrown{code(capi::CRYPT_E_UNKNOWN_ALGO), "signature_creator", "initializeImpl", 0}));
    EXPECT_EQ(service().count("CryptMsgClose"), 1U);
    EXPECT_FALSE(update(creator, "more"));
}

TEST_F(CreatorFault, KeyIdentifierIsThatOfTheCertificate) {
    arrangeFresh();
    binary::ExtendedParams request;
    request.certificate = linked();
    request.byKeyIdentifier = true;
    request.signatureAlgorithm = "1.2.840.113549.1.1.10";
    CMSG_SIGNER_ENCODE_INFO_CMS_FIELDS seen{};
    std::string identifier;
    std::string algorithm;
    service().on.CryptMsgOpenToEncode = [&](DWORD encoding, DWORD flags, DWORD type, const void* info, char* inner,
                                            CMSG_STREAM_INFO* stream) {
        const auto& message = *static_cast<const CMSG_SIGNED_ENCODE_INFO*>(info);
        EXPECT_EQ(message.cSigners, 1U);
        seen = *reinterpret_cast<const CMSG_SIGNER_ENCODE_INFO_CMS_FIELDS*>(message.rgSigners);
        identifier.assign(reinterpret_cast<const char*>(seen.SignerId.u.KeyId.pbData), seen.SignerId.u.KeyId.cbData);
        algorithm = seen.HashEncryptionAlgorithm.pszObjId;
        return Defaults::CryptMsgOpenToEncode(encoding, flags, type, info, inner, stream);
    };
    binary::detached::Creator creator;
    creator.initialize(request);
    EXPECT_EQ(seen.Signer.cbSize, 168U);
    EXPECT_EQ(seen.SignerId.dwIdChoice, capi::CERT_ID_KEY_IDENTIFIER);
    EXPECT_EQ(identifier.size(), 20U);
    EXPECT_NE(der(signerCertificate).find("\x04\x14" + identifier), std::string::npos);
    EXPECT_EQ(algorithm, "1.2.840.113549.1.1.10");
    EXPECT_EQ(seen.Signer.cAuthAttr, 1U) << "the shorter form is its head";
}

} // namespace
} // namespace wincrypt_signatures
