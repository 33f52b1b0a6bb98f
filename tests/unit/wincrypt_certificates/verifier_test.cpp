// Chains of certificates: how the service is asked, what is kept of its answer, and each call failing.

#include "service_double/fault_walk.hpp"
#include "verifier_fixture.hpp"

#include <cstring>

namespace wincrypt_certificates {
namespace {

using orvik::plugin::wincrypt::CertificateVerifier;
using service_double::FaultOutcome;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr DWORD faultCode = 0x8009000E;

class VerifierTest : public VerifierFixture {
protected:
    /// What the service is asked for, with the parameters of the chain as octets.
    struct Question {
        std::string call;
        std::string parameters;
    };
    static Question asked(const std::function<void()>& ask) {
        service().clearCalls();
        Question question;
        service().on.CertGetCertificateChain = [&](void* engine, PCCERT_CONTEXT context, FILETIME* time, void* store,
                                                   CERT_CHAIN_PARA* para, DWORD flags, void* reserved,
                                                   PCCERT_CHAIN_CONTEXT* result) {
            question.parameters.assign(reinterpret_cast<const char*>(para), sizeof *para);
            return Defaults::CertGetCertificateChain(engine, context, time, store, para, flags, reserved, result);
        };
        ask();
        service().on.CertGetCertificateChain = nullptr;
        question.call = service().trace().front();
        return question;
    }

    [[nodiscard]] bool validate(unsigned flags = 0) { return verifier().validateChain(flags); }
};

TEST_F(VerifierTest, StartsWithoutStatusAndAsksNobody) {
    EXPECT_EQ(verifier().status(), 0U);
    EXPECT_THAT(verifier().certificateFiles(), IsEmpty());
    EXPECT_THAT(verifier().crlFiles(), IsEmpty());
    EXPECT_THAT(functions(), IsEmpty());
}

TEST_F(VerifierTest, AsksForAnyUsageAtThisTimeFromTheSystemsStoresAlone) {
    const auto question = asked([&] { EXPECT_TRUE(validate()); });
    EXPECT_EQ(question.call, chainCall("0"));
    ASSERT_EQ(question.parameters.size(), 32U);
    DWORD size = 0;
    std::memcpy(&size, question.parameters.data(), sizeof size);
    EXPECT_EQ(size, 32U);
    EXPECT_THAT(question.parameters.substr(sizeof size), Each('\0'));
}

TEST_F(VerifierTest, PassesTheFlagsOnUnchanged) {
    for (const auto& [flags, text] : {std::pair{0x1U, "1"},
                                      {0x12345U, "0x12345"},
                                      {0x80000000U, "0x80000000"},
                                      {0x80000004U, "0x80000004"},
                                      {0xFFFFFFFFU, "0xFFFFFFFF"}}) {
        EXPECT_EQ(asked([&, value = flags] { EXPECT_TRUE(validate(value)); }).call, chainCall(text));
    }
}

/// A certificate whose context does not hold its own data, as of another back-end.
class Borrowed : public Certificate {
public:
    explicit Borrowed(void* shown) : Certificate(nullptr), shown_(shown) {}
    [[nodiscard]] void* context() const override { return shown_; }
    void show(void* other) { shown_ = other; }

private:
    void* shown_;
};

TEST_F(VerifierTest, AsksForTheContextThatTheCertificatesInterfaceReturnsAtEachCall) {
    Borrowed borrowed(signer().context());
    const CertificateVerifier verifier(borrowed);
    EXPECT_EQ(asked([&] { EXPECT_TRUE(verifier.validateChain(0)); }).call, chainCall("0"));
    borrowed.show(nullptr);
    EXPECT_EQ(asked([&] { EXPECT_TRUE(verifier.validateChain(0)); }).call,
              "CertGetCertificateChain(null, null, null, null, pointer, 0, null, pointer)");
}

TEST_F(VerifierTest, IsUsedThroughTheFrameworksInterface) {
    orvik::plugin::crypto::ICertificateVerifier& interface = verifier();
    service().chainStatus = 0x24;
    EXPECT_FALSE(interface.validateChain(0));
    EXPECT_EQ(interface.status(), 0x24U);
    EXPECT_EQ(interface.statusString(interface.status()), "CERT_TRUST_IS_REVOKED");
}

TEST_F(VerifierTest, AsksOnceAndFreesTheChain) {
    EXPECT_TRUE(validate());
    EXPECT_THAT(functions(), ElementsAre("CertGetCertificateChain", "CertFreeCertificateChain"));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(VerifierTest, AddsNoPolicyCheckOfItsOwn) {
    service().chainStatus = 0x20;
    EXPECT_FALSE(validate());
    EXPECT_EQ(service().count("CertVerifyCertificateChainPolicy"), 0U);
    EXPECT_EQ(service().count("CertOpenStore") + service().count("CertOpenSystemStore"), 0U);
}

TEST_F(VerifierTest, AChainWithErrorsIsANoWithItsBitsAndIsFreed) {
    for (const DWORD bits : {0x1U, 0x04000020U, 0x80000000U, 0xFFFFFFFFU}) {
        service().clearCalls();
        service().chainStatus = bits;
        EXPECT_FALSE(validate());
        EXPECT_EQ(verifier().status(), bits);
        EXPECT_THAT(functions(), ElementsAre("CertGetCertificateChain", "CertFreeCertificateChain"));
    }
    EXPECT_THAT(log(), IsEmpty()) << "that is no failure";
}

TEST_F(VerifierTest, EachCallOverwritesTheStatus) {
    service().chainStatus = 0x20;
    EXPECT_FALSE(validate());
    service().chainStatus = 0x1;
    EXPECT_FALSE(validate());
    EXPECT_EQ(verifier().status(), 0x1U);
    service().chainStatus = 0;
    EXPECT_TRUE(validate());
    EXPECT_EQ(verifier().status(), 0U);
}

TEST_F(VerifierTest, KeepsItsStatusWhenTheEngineRefuses) {
    service().chainStatus = 0x20;
    EXPECT_FALSE(validate());
    for (const DWORD error : {DWORD{5}, faultCode, capi::CRYPT_E_NOT_FOUND, capi::ERROR_CANCELLED}) {
        service().failFunction("CertGetCertificateChain", error);
        EXPECT_EQ(thrownBy<SystemException>([&] { static_cast<void>(validate()); }),
                  (Thrown{code(error), "certificate_verifier", "getContext", 0}));
        EXPECT_EQ(verifier().status(), 0x20U);
    }
    EXPECT_EQ(service().count("CertFreeCertificateChain"), 1U) << "of the first one";
    service().failFunction("CertGetCertificateChain", 0);
    service().chainStatus = 0;
    EXPECT_TRUE(validate()) << "it can be used again";
}

TEST_F(VerifierTest, ASuccessWithoutAChainIsAFailure) {
    service().on.CertGetCertificateChain = [](void*, PCCERT_CONTEXT, FILETIME*, void*, CERT_CHAIN_PARA*, DWORD, void*,
                                              PCCERT_CHAIN_CONTEXT*) -> BOOL {
        service_double::fail(capi::ERROR_INVALID_PARAMETER);
        return 1;
    };
    EXPECT_EQ(thrownBy<SystemException>([&] { static_cast<void>(validate()); }),
              (Thrown{code(capi::ERROR_INVALID_PARAMETER), "certificate_verifier", "getContext", 0}));
    EXPECT_EQ(service().count("CertFreeCertificateChain"), 0U);
}

TEST_F(VerifierTest, WhatAFailedCallLeavesIsNotFreed) {
    CERT_CHAIN_CONTEXT foreign{};
    service().on.CertGetCertificateChain = [&](void*, PCCERT_CONTEXT, FILETIME*, void*, CERT_CHAIN_PARA*, DWORD, void*,
                                               PCCERT_CHAIN_CONTEXT* result) -> BOOL {
        *result = &foreign;
        return service_double::fail(faultCode);
    };
    EXPECT_EQ(thrownBy<SystemException>([&] { static_cast<void>(validate()); }),
              (Thrown{code(faultCode), "certificate_verifier", "getContext", 0}));
    EXPECT_EQ(service().count("CertFreeCertificateChain"), 0U);
}

// ---- a certificate's own question

TEST_F(VerifierTest, CertificateAsksForWhatIsKnownOnThisMachine) {
    const auto question = asked([&] { EXPECT_TRUE(signer().chain()); });
    EXPECT_EQ(question.call, chainCall("0x80000004"));
    EXPECT_THAT(functions(), ElementsAre("CertGetCertificateChain", "CertFreeCertificateChain"));
    service().chainStatus = 0x40;
    EXPECT_FALSE(signer().chain());
    EXPECT_THAT(log(), IsEmpty());
}

// ---- each call failing

class ChainFault : public CertificatesFixture {
protected:
    /// What each failure throws: none where a certificate is given back.
    static Thrown expected(const FaultOutcome& outcome) {
        if (outcome.function == "CertFreeCertificateContext") {
            return {};
        }
        const bool chain = outcome.function == "CertGetCertificateChain";
        return chain ? Thrown{code(outcome.code), "certificate_verifier", "getContext", 0}
                     : Thrown{code(outcome.code), "certificate", "Certificate", 0};
    }
};

TEST_F(ChainFault, OfAVerifierHasItsCodeAndPlaceAndLeavesNothing) {
    bool answered = false;
    std::uint32_t status = 0;
    const auto count = service_double::walkFaults(
        {"validateChain",
         [] {
             arrangeService();
             service().chainStatus = 0x10000;
         },
         [&] {
             answered = false;
             status = 0;
             const auto made = certificate();
             const CertificateVerifier verifier(*made);
             EXPECT_FALSE(verifier.validateChain(0));
             status = verifier.status();
             answered = true;
         },
         [&](const FaultOutcome& outcome) {
             const bool harmless = outcome.function == "CertFreeCertificateContext";
             EXPECT_EQ(answered, harmless);
             EXPECT_EQ(status, harmless ? 0x10000U : 0U);
             EXPECT_EQ(service_double::describe<SystemException>(outcome.thrown), expected(outcome));
         }});
    EXPECT_EQ(count, 3U) << "the certificate, its chain, its release";
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(ChainFault, OfACertificateHasItsCodeAndPlaceAndIsNoYes) {
    bool trusted = false;
    const auto count = service_double::walkFaults(
        {"Certificate::chain", [] { arrangeService(); },
         [&] {
             trusted = false;
             trusted = certificate()->chain();
         },
         [&](const FaultOutcome& outcome) {
             const bool harmless = outcome.function == "CertFreeCertificateContext";
             EXPECT_EQ(trusted, harmless) << "no failure is a yes";
             EXPECT_EQ(service_double::describe<SystemException>(outcome.thrown), expected(outcome));
         }});
    EXPECT_EQ(count, 3U);
    EXPECT_TRUE(trusted) << "nothing failed";
}

// ---- no service installed

class WithoutService : public service_double::DoubleFixture {
protected:
    WithoutService() : DoubleFixture(service_double::Slots{}) {}
};

TEST_F(WithoutService, AChainIsNoStatusButAnException) {
    const Certificate none(nullptr);
    const CertificateVerifier verifier(none);
    EXPECT_EQ(thrownBy<CryptoException>([&] { static_cast<void>(verifier.validateChain(0)); }).code, 30004);
    EXPECT_EQ(verifier.status(), 0U);
    EXPECT_EQ(thrownBy<CryptoException>([&] { static_cast<void>(none.chain()); }).code, 30004);
}

} // namespace
} // namespace wincrypt_certificates
