// Judging every signer of a message: which calls are made, and what becomes of each refusal.

#include "signatures_fixture.hpp"

#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/tools_verify.hpp"
#include "service_double/fault_walk.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <sstream>
#include <vector>

namespace wincrypt_signatures {
namespace {

using testing::IsEmpty;
using testing::SizeIs;
namespace tools = orvik::plugin::wincrypt::tools;
using tools::SignatureVerdict;

class JudgeTest : public SignaturesFixture {
protected:
    JudgeTest() {
        service().message.certificates = {der(plainCertificate), der(signerCertificate)};
        service().message.signers = {der(signerCertificate), der(plainCertificate)};
    }
    static std::vector<tools::SignerVerdict> judge(const tools::VerifyHooks& hooks = {}) {
        std::istringstream in("signature");
        return tools::verifySigners(in, boost::none, hooks);
    }
    /// Has the check of one signer answer with a code.
    static void refuse(DWORD index, unsigned code) {
        service().on.CryptMsgControl = [index, code](void* message, DWORD flags, DWORD type, const void* parameters) {
            const auto* asked = static_cast<const CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA*>(parameters);
            EXPECT_EQ(type, capi::CMSG_CTRL_VERIFY_SIGNATURE_EX);
            return asked->dwSignerIndex == index ? static_cast<BOOL>(service_double::fail(code))
                                                 : Defaults::CryptMsgControl(message, flags, type, parameters);
        };
    }
};

TEST_F(JudgeTest, JudgesEverySignerByItsIndexWithItsCertificate) {
    std::vector<DWORD> indexes;
    service().on.CryptMsgControl = [&](void*, DWORD, DWORD type, const void* parameters) -> BOOL {
        const auto* asked = static_cast<const CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA*>(parameters);
        EXPECT_EQ(type, capi::CMSG_CTRL_VERIFY_SIGNATURE_EX);
        EXPECT_EQ(asked->cbSize, sizeof *asked);
        EXPECT_EQ(asked->dwSignerType, capi::CMSG_VERIFY_SIGNER_CERT);
        indexes.push_back(asked->dwSignerIndex);
        return 1;
    };
    const auto verdicts = judge();
    EXPECT_THAT(indexes, testing::ElementsAre(0, 1));
    ASSERT_THAT(verdicts, SizeIs(2));
    EXPECT_EQ(verdicts[0].verdict, SignatureVerdict::valid);
    EXPECT_EQ(verdicts[0].code, 0U);
    EXPECT_EQ(verdicts[0].certificate->raw(), der(signerCertificate));
    EXPECT_EQ(verdicts[1].certificate->raw(), der(plainCertificate));
    EXPECT_EQ(service().count("CertOpenStore"), 1U) << "once for all signers";
}

TEST_F(JudgeTest, DoesNotStopAtTheFirstThatDoesNotHold) {
    refuse(0, capi::NTE_BAD_SIGNATURE);
    const auto verdicts = judge();
    ASSERT_THAT(verdicts, SizeIs(2));
    EXPECT_EQ(verdicts[0].verdict, SignatureVerdict::invalid);
    EXPECT_EQ(verdicts[0].code, capi::NTE_BAD_SIGNATURE);
    EXPECT_EQ(verdicts[1].verdict, SignatureVerdict::valid);
}

TEST_F(JudgeTest, TellsForgedFromNotJudged) {
    struct Row {
        unsigned code;
        SignatureVerdict verdict;
    };
    for (const Row& row : {
             Row{capi::NTE_BAD_SIGNATURE, SignatureVerdict::invalid},
             Row{capi::CRYPT_E_HASH_VALUE, SignatureVerdict::invalid},
             Row{capi::CRYPT_E_UNKNOWN_ALGO, SignatureVerdict::unknown},
             Row{capi::CRYPT_E_CONTROL_TYPE, SignatureVerdict::unknown},
             Row{capi::CRYPT_E_STREAM_MSG_NOT_READY, SignatureVerdict::unknown},
             Row{capi::NTE_PROV_TYPE_NOT_DEF, SignatureVerdict::unknown},
             Row{capi::ERROR_NOT_ENOUGH_MEMORY, SignatureVerdict::unknown},
             Row{capi::NTE_FAIL, SignatureVerdict::unknown},
         }) {
        refuse(1, row.code);
        const auto verdicts = judge();
        EXPECT_EQ(verdicts[1].verdict, row.verdict) << row.code;
        EXPECT_EQ(verdicts[1].code, row.code);
        EXPECT_EQ(verdicts[0].verdict, SignatureVerdict::valid);
    }
}

TEST_F(JudgeTest, SignersOfOneCertificateShareOneSearch) {
    service().message.signers.assign(100, der(signerCertificate));
    EXPECT_THAT(judge(), SizeIs(100));
    EXPECT_EQ(service().count("CertFindCertificateInStore"), 1U);
}

TEST_F(JudgeTest, MissingCertificateIsUnknown) {
    service().message.certificates = {der(plainCertificate)};
    const auto verdicts = judge();
    EXPECT_EQ(verdicts[0].verdict, SignatureVerdict::unknown);
    EXPECT_EQ(verdicts[0].code, capi::CRYPT_E_SIGNER_NOT_FOUND);
    EXPECT_EQ(verdicts[0].certificate, nullptr);
    EXPECT_EQ(verdicts[1].verdict, SignatureVerdict::valid);
}

TEST_F(JudgeTest, CallersCertificateServesTheSignerThatItNames) {
    service().message.certificates = {der(plainCertificate)};
    tools::VerifyHooks hooks;
    hooks.certificate = boost::make_shared<orvik::plugin::wincrypt::Certificate>(der(signerCertificate));
    const auto verdicts = judge(hooks);
    EXPECT_EQ(verdicts[0].verdict, SignatureVerdict::valid);
    EXPECT_EQ(verdicts[0].certificate, hooks.certificate);
    EXPECT_EQ(verdicts[1].certificate->raw(), der(plainCertificate));
}

TEST_F(JudgeTest, MessageWithoutSignersHasNoVerdict) {
    service().message.signers.clear();
    bool inspected = false;
    tools::VerifyHooks hooks;
    hooks.inspect = [&](void*) { inspected = true; };
    EXPECT_THAT(judge(hooks), IsEmpty());
    EXPECT_TRUE(inspected);
}

TEST_F(JudgeTest, FailureIsNeverAForgery) {
    service_double::FaultWalk walk;
    walk.name = "judge signers";
    walk.arrange = [] {
        service().message.certificates = {der(plainCertificate), der(signerCertificate)};
        service().message.signers = {der(signerCertificate), der(plainCertificate)};
    };
    std::vector<tools::SignerVerdict> verdicts;
    walk.scenario = [&] {
        verdicts.clear();
        verdicts = judge();
        for (auto& verdict : verdicts) {
            verdict.certificate.reset(); // the walk counts what is held
        }
    };
    walk.expect = [&](const service_double::FaultOutcome& outcome) {
        const bool release = outcome.function == "CryptMsgClose" || outcome.function == "CertCloseStore" ||
                             outcome.function == "CertFreeCertificateContext";
        const bool search = outcome.function == "CertFindCertificateInStore" ||
                            outcome.function == "CertDuplicateCertificateContext"; // of a further certificate, perhaps
        const auto unknown = [&](const auto& verdict) { return verdict.verdict == SignatureVerdict::unknown; };
        EXPECT_TRUE(outcome.thrown || release || search || std::ranges::any_of(verdicts, unknown)) << outcome.call;
        for (const auto& verdict : verdicts) {
            EXPECT_NE(verdict.verdict, SignatureVerdict::invalid) << outcome.call;
            EXPECT_TRUE(verdict.code == 0 || verdict.code == outcome.code) << outcome.call;
        }
    };
    EXPECT_GT(service_double::walkFaults(walk), 12U);
}

TEST_F(JudgeTest, UnreadableMessageThrowsTheServicesCode) {
    service().failFunction("CryptMsgUpdate", capi::CRYPT_E_ASN1_BADTAG);
    EXPECT_EQ(thrownBy<SystemException>([] { judge(); }).code, static_cast<int>(capi::CRYPT_E_ASN1_BADTAG));
}

} // namespace
} // namespace wincrypt_signatures
