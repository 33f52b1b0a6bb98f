// Judging every signer of a message: the calls in their order, and each of them failing.

#include "verify_fixture.hpp"

#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "service_double/fault_walk.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>

namespace wincrypt_signatures {
namespace {

using service_double::FaultOutcome;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
namespace tools = orvik::plugin::wincrypt::tools;
using tools::SignatureVerdict;
using Calls = std::vector<std::string>;
using Verdicts = std::vector<tools::SignerVerdict>;

constexpr DWORD faultCode = 0x8009000E;

class JudgeCalls : public VerifyFixture {
protected:
    /// Two signers, each with its certificate in the message.
    static void arrangeTwo() {
        arrangeMessage();
        service().message.signers = {der(signerCertificate), der(plainCertificate)};
    }
    JudgeCalls() { arrangeTwo(); }

    static Verdicts judge(const std::string& content = "", const tools::VerifyHooks& hooks = {}) {
        std::istringstream signature("signature");
        std::istringstream data(content);
        return tools::verifySigners(
            signature, content.empty() ? boost::optional<std::istream&>() : boost::optional<std::istream&>(data),
            hooks);
    }

    /// The functions called, without the releases of certificates, which come when a verdict is dropped.
    static Calls asked() {
        auto calls = functions();
        std::erase(calls, "CertFreeCertificateContext");
        return calls;
    }
};

TEST_F(JudgeCalls, AskForEachSignerByItsIndexInAStoreOpenedOnce) {
    EXPECT_THAT(judge(), SizeIs(2));
    EXPECT_THAT(asked(),
                ElementsAre("CryptMsgOpenToDecode", "CryptMsgUpdate", "CryptMsgGetParam", "CertOpenStore",
                            "CryptMsgGetParam", "CryptMsgGetParam", "CertFindCertificateInStore", "CryptMsgControl",
                            "CryptMsgGetParam", "CryptMsgGetParam", "CertFindCertificateInStore", "CryptMsgControl",
                            "CertCloseStore", "CryptMsgClose"));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(JudgeCalls, NameSignersAndControlByTheirNumbers) {
    static_cast<void>(judge());
    const auto trace = service().trace();
    EXPECT_THAT(trace, testing::Contains("CryptMsgGetParam(message1, 5, 0, pointer, &4)")) << "how many signers";
    EXPECT_THAT(trace, testing::Contains("CryptMsgGetParam(message1, 7, 0, null, &0)"));
    EXPECT_THAT(trace, testing::Contains("CryptMsgGetParam(message1, 7, 1, null, &0)"));
    EXPECT_EQ(std::count(trace.begin(), trace.end(), "CryptMsgControl(message1, 0, 19, pointer)"), 2);
    EXPECT_EQ(std::count(trace.begin(), trace.end(), "CertOpenStore(1, 0x10001, 0, 0, message1)"), 1);
}

TEST_F(JudgeCalls, OpenTheStoreOnceForManySigners) {
    service().message.signers.assign(40, der(signerCertificate));
    EXPECT_THAT(judge(), SizeIs(40));
    EXPECT_EQ(service().count("CertOpenStore"), 1U);
    EXPECT_EQ(service().count("CryptMsgControl"), 40U);
    EXPECT_EQ(service().count("CertFindCertificateInStore"), 1U);
}

TEST_F(JudgeCalls, FeedDetachedContentBeforeTheyJudge) {
    EXPECT_THAT(judge("content"), SizeIs(2));
    const auto calls = service().trace();
    EXPECT_EQ(calls.at(0), "CryptMsgOpenToDecode(0x10001, 4, 0, 0, null, pointer)");
    EXPECT_EQ(calls.at(1), "CryptMsgUpdate(message1, pointer, 9, 1)");
    EXPECT_EQ(calls.at(2), "CryptMsgUpdate(message1, pointer, 7, 1)");
}

TEST_F(JudgeCalls, FillTheParametersOfTheControl) {
    std::vector<CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA> seen;
    std::vector<std::string> certificates;
    service().on.CryptMsgControl = [&](void*, DWORD, DWORD, const void* parameters) -> BOOL {
        seen.push_back(*static_cast<const CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA*>(parameters));
        const auto* context = static_cast<PCCERT_CONTEXT>(seen.back().pvSigner);
        certificates.emplace_back(reinterpret_cast<const char*>(context->pbCertEncoded), context->cbCertEncoded);
        return 1;
    };
    static_cast<void>(judge());
    ASSERT_THAT(seen, SizeIs(2));
    for (std::size_t i = 0; i < seen.size(); ++i) {
        EXPECT_EQ(seen[i].cbSize, 32U);
        EXPECT_EQ(seen[i].hCryptProv, 0U);
        EXPECT_EQ(seen[i].dwSignerIndex, i);
        EXPECT_EQ(seen[i].dwSignerType, 2U) << "a certificate";
    }
    EXPECT_THAT(certificates, ElementsAre(der(signerCertificate), der(plainCertificate)));
}

TEST_F(JudgeCalls, TakeTheCallersCertificateForTheSignerThatItNamesEvenWhereTheMessageBringsIt) {
    tools::VerifyHooks hooks;
    hooks.certificate = certificate();
    const auto verdicts = judge("", hooks);
    ASSERT_THAT(verdicts, SizeIs(2));
    EXPECT_EQ(verdicts[0].certificate, hooks.certificate);
    EXPECT_EQ(verdicts[1].certificate->raw(), der(plainCertificate));
    EXPECT_EQ(service().count("CertFindCertificateInStore"), 1U) << "for the other signer";
    hooks.certificate.reset();
}

TEST_F(JudgeCalls, ShowTheMessageOnceWhateverTheVerdicts) {
    for (const bool valid : {true, false}) {
        service().message.valid = valid;
        int inspected = 0;
        tools::VerifyHooks hooks;
        hooks.inspect = [&](void* message) {
            EXPECT_NE(message, nullptr);
            ++inspected;
        };
        for (const auto& verdict : judge("", hooks)) {
            EXPECT_EQ(verdict.verdict, valid ? SignatureVerdict::valid : SignatureVerdict::invalid);
            EXPECT_EQ(verdict.code, valid ? 0U : capi::NTE_BAD_SIGNATURE);
        }
        EXPECT_EQ(inspected, 1);
    }
}

TEST_F(JudgeCalls, LetOutWhatAHookThrowsAndLeaveNothing) {
    tools::VerifyHooks hooks;
    hooks.inspect = [](void*) { throw std::runtime_error("odd"); };
    EXPECT_THROW(judge("", hooks), std::runtime_error);
    EXPECT_EQ(service().imbalance(), "");
}

TEST_F(JudgeCalls, PassOverACertificateOfTheCallerWithoutContext) {
    tools::VerifyHooks hooks;
    hooks.certificate = boost::make_shared<Certificate>(nullptr);
    for (const auto& verdict : judge("", hooks)) {
        EXPECT_EQ(verdict.verdict, SignatureVerdict::valid) << "by the message's own certificates";
    }
    service().message.certificates.clear();
    for (const auto& verdict : judge("", hooks)) {
        EXPECT_EQ(verdict.verdict, SignatureVerdict::unknown);
        EXPECT_EQ(verdict.code, capi::CRYPT_E_SIGNER_NOT_FOUND);
    }
    EXPECT_FALSE(verify("signature", hooks));
    EXPECT_EQ(orvik::plugin::wincrypt::GetLastErrorEx(), capi::CRYPT_E_NOT_FOUND);
}

// ---- codes and verdicts

struct CodeRow {
    DWORD code;
    SignatureVerdict verdict;
};

class JudgeCodes : public JudgeCalls, public testing::WithParamInterface<CodeRow> {};

TEST_P(JudgeCodes, AreAVerdictOnTheirSignerAlone) {
    service().on.CryptMsgControl = [](void*, DWORD, DWORD, const void* parameters) -> BOOL {
        return static_cast<const CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA*>(parameters)->dwSignerIndex == 0
                   ? static_cast<BOOL>(service_double::fail(GetParam().code))
                   : 1;
    };
    const auto verdicts = judge();
    ASSERT_THAT(verdicts, SizeIs(2));
    EXPECT_EQ(verdicts[0].verdict, GetParam().verdict);
    EXPECT_EQ(verdicts[0].code, GetParam().code);
    EXPECT_EQ(verdicts[1].verdict, SignatureVerdict::valid);
    EXPECT_EQ(verdicts[1].code, 0U);
}

INSTANTIATE_TEST_SUITE_P(Code, JudgeCodes,
                         testing::Values(CodeRow{capi::NTE_BAD_SIGNATURE, SignatureVerdict::invalid},
                                         CodeRow{capi::CRYPT_E_HASH_VALUE, SignatureVerdict::invalid},
                                         // Another service may mean by these that it cannot judge.
                                         CodeRow{capi::NTE_BAD_ALGID, SignatureVerdict::unknown},
                                         CodeRow{capi::NTE_BAD_KEY, SignatureVerdict::unknown},
                                         CodeRow{capi::CRYPT_E_BAD_ENCODE, SignatureVerdict::unknown},
                                         CodeRow{capi::CRYPT_E_NO_MATCH, SignatureVerdict::unknown},
                                         CodeRow{capi::CRYPT_E_AUTH_ATTR_MISSING, SignatureVerdict::unknown},
                                         CodeRow{capi::CRYPT_E_UNEXPECTED_MSG_TYPE, SignatureVerdict::unknown},
                                         CodeRow{faultCode, SignatureVerdict::unknown},
                                         CodeRow{capi::ERROR_CANCELLED, SignatureVerdict::unknown},
                                         CodeRow{capi::CRYPT_E_CONTROL_TYPE, SignatureVerdict::unknown},
                                         CodeRow{capi::CRYPT_E_UNKNOWN_ALGO, SignatureVerdict::unknown},
                                         CodeRow{capi::ERROR_INVALID_HANDLE, SignatureVerdict::unknown},
                                         CodeRow{0x12345678, SignatureVerdict::unknown},
                                         CodeRow{1, SignatureVerdict::unknown}),
                         [](const auto& row) { return "Number" + std::to_string(row.param.code); });

TEST_F(JudgeCalls, ARefusalWithoutACodeIsNoYes) {
    service().on.CryptMsgControl = [](void*, DWORD, DWORD, const void*) -> BOOL { return service_double::fail(0); };
    for (const auto& verdict : judge()) {
        EXPECT_EQ(verdict.verdict, SignatureVerdict::unknown);
        EXPECT_EQ(verdict.code, capi::NTE_FAIL);
    }
}

// ---- several certificates of one issuer and serial number

class JudgeTwins : public JudgeCalls {
protected:
    /// The signer's certificate with another signature octet: the same name, another encoding.
    static std::string twin(char last) {
        auto octets = der(signerCertificate);
        octets.back() = last;
        return octets;
    }
    /// One signer; the message brings a twin for each letter, and its check gives that letter's code.
    static std::vector<tools::SignerVerdict> judgeBy(const std::string& letters, const tools::VerifyHooks& hooks = {}) {
        service().message.signers = {der(signerCertificate)};
        service().message.certificates.clear();
        for (const char letter : letters) {
            service().message.certificates.push_back(twin(letter));
        }
        service().on.CryptMsgControl = [](void*, DWORD, DWORD, const void* parameters) -> BOOL {
            const auto* asked = static_cast<const CMSG_CTRL_VERIFY_SIGNATURE_EX_PARA*>(parameters);
            const auto* context = static_cast<PCCERT_CONTEXT>(asked->pvSigner);
            const auto code = codeOf(static_cast<char>(context->pbCertEncoded[context->cbCertEncoded - 1]));
            return code == 0 ? 1 : static_cast<BOOL>(service_double::fail(code));
        };
        return judge("", hooks);
    }
    static void expectOne(const std::vector<tools::SignerVerdict>& verdicts, SignatureVerdict verdict, unsigned code,
                          char certificate) {
        ASSERT_THAT(verdicts, SizeIs(1));
        EXPECT_EQ(verdicts[0].verdict, verdict);
        EXPECT_EQ(verdicts[0].code, code);
        ASSERT_TRUE(verdicts[0].certificate);
        EXPECT_EQ(verdicts[0].certificate->raw(), twin(certificate));
    }

private:
    /// v is valid; capitals are refused, n is named by no signer, the rest cannot be judged.
    static DWORD codeOf(char letter) {
        switch (letter) {
        case 'v':
            return 0;
        case 'n':
            return capi::CRYPT_E_SIGNER_NOT_FOUND;
        default:
            return letter >= 'A' && letter <= 'Z' ? capi::NTE_BAD_SIGNATURE : capi::NTE_FAIL;
        }
    }
};

TEST_F(JudgeTwins, AreTriedUntilOneFits) {
    expectOne(judgeBy("ABCv"), SignatureVerdict::valid, 0, 'v');
    expectOne(judgeBy("uvA"), SignatureVerdict::valid, 0, 'v');
    EXPECT_EQ(service().count("CryptMsgControl"), 6U);
}

TEST_F(JudgeTwins, AreRefusedOnlyWhereAllWere) {
    expectOne(judgeBy("AB"), SignatureVerdict::invalid, capi::NTE_BAD_SIGNATURE, 'A');
    expectOne(judgeBy("Au"), SignatureVerdict::unknown, capi::NTE_FAIL, 'u');
    expectOne(judgeBy("uA"), SignatureVerdict::unknown, capi::NTE_FAIL, 'u');
}

TEST_F(JudgeTwins, CountOnceWhereTheyAreCopies) {
    expectOne(judgeBy("AAAAAAv"), SignatureVerdict::valid, 0, 'v');
    EXPECT_EQ(service().count("CryptMsgControl"), 2U);
}

TEST_F(JudgeTwins, BeyondFourAreNotTried) {
    expectOne(judgeBy("ABCDv"), SignatureVerdict::unknown, capi::CRYPT_E_ASN1_LARGE, 'A');
    EXPECT_EQ(service().count("CryptMsgControl"), 4U);
}

TEST_F(JudgeTwins, DoNotOutvoteTheCallersCertificate) {
    tools::VerifyHooks hooks;
    hooks.certificate = boost::make_shared<Certificate>(twin('A'));
    expectOne(judgeBy("v", hooks), SignatureVerdict::invalid, capi::NTE_BAD_SIGNATURE, 'A');
    EXPECT_EQ(service().count("CryptMsgControl"), 1U);
    hooks.certificate = boost::make_shared<Certificate>(twin('n'));
    expectOne(judgeBy("v", hooks), SignatureVerdict::valid, 0, 'v');
}

// ---- each call failing

struct Failed {
    const char* function;
    std::string thrown;                       ///< where it ends the judging; empty where it does not
    std::vector<SignatureVerdict> verdicts{}; ///< else what is said of the two signers
};

class JudgeFault : public JudgeCalls {
protected:
    std::vector<SignatureVerdict> judged_; // NOLINT(cppcoreguidelines-non-private-member-variables-in-classes)

    static std::string ending(const FaultOutcome& outcome) {
        if (!outcome.thrown) {
            return "";
        }
        const auto place = service_double::describe<SystemException>(outcome.thrown);
        EXPECT_EQ(place.code, code(outcome.code));
        return place.file + ", " + place.function;
    }
};

TEST_F(JudgeFault, OfACallForOneSignerLeavesTheOtherJudgedAndIsNeverAYes) {
    constexpr auto valid = SignatureVerdict::valid;
    constexpr auto unknown = SignatureVerdict::unknown;
    const std::vector<SignatureVerdict> both{valid, valid};
    const std::vector<SignatureVerdict> second{unknown, valid};
    const std::vector<SignatureVerdict> first{valid, unknown};
    for (const bool detached : {false, true}) {
        std::vector<Failed> steps{
            {"CryptMsgOpenToDecode", "tools, verify"},
            {"CryptMsgUpdate", "tools, read"},
            {"CryptMsgGetParam", "tools, param"},
            {"CertOpenStore", "tools, judgeSigners"},
            {"CryptMsgGetParam", "", second},
            {"CryptMsgGetParam", "", second},
            {"CertFindCertificateInStore", "", second},
            {"CryptMsgControl", "", second},
            {"CryptMsgGetParam", "", first},
            {"CryptMsgGetParam", "", first},
            {"CertFindCertificateInStore", "", first},
            {"CryptMsgControl", "", first},
            {"CertCloseStore", "", both},
            {"CryptMsgClose", "", both},
        };
        if (detached) {
            steps.insert(steps.begin() + 2, {"CryptMsgUpdate", "tools, read"});
        }
        Verdicts verdicts;
        std::size_t releases = 0;
        const auto count =
            service_double::walkFaults({detached ? "verifySigners, detached" : "verifySigners, attached", arrangeTwo,
                                        [&] {
                                            verdicts.clear();
                                            verdicts = judge(detached ? "content" : "");
                                            std::vector<SignatureVerdict> plain;
                                            for (const auto& verdict : verdicts) {
                                                plain.push_back(verdict.verdict);
                                                EXPECT_EQ(verdict.code, verdict.verdict == valid ? 0U : faultCode);
                                                EXPECT_TRUE(verdict.certificate || verdict.verdict == unknown);
                                            }
                                            verdicts.clear();
                                            judged_ = plain;
                                        },
                                        [&](const FaultOutcome& outcome) {
                                            if (outcome.function == "CertFreeCertificateContext") {
                                                ++releases;
                                                EXPECT_EQ(judged_, both);
                                                return;
                                            }
                                            ASSERT_LE(outcome.index, steps.size());
                                            const auto& step = steps.at(outcome.index - 1);
                                            EXPECT_EQ(outcome.function, step.function);
                                            EXPECT_EQ(ending(outcome), step.thrown);
                                            if (step.thrown.empty()) {
                                                EXPECT_EQ(judged_, step.verdicts);
                                            }
                                        },
                                        faultCode});
        EXPECT_EQ(count, steps.size() + releases);
        EXPECT_EQ(releases, 2U);
        EXPECT_EQ(judged_, both) << "nothing failed";
    }
    EXPECT_THAT(log(), IsEmpty());
}

} // namespace
} // namespace wincrypt_signatures
