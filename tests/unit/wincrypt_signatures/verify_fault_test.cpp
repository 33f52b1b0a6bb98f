// The check of a message with each call of the service failing: the verdict, the reason that is kept and logged, the
// calls that are still made, and nothing left behind.

#include "verify_fixture.hpp"

#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/signature_validator.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "service_double/fault_walk.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <set>

namespace wincrypt_signatures {
namespace {

using orvik::plugin::wincrypt::GetLastErrorEx;
using service_double::FaultOutcome;
using testing::ElementsAre;
using testing::IsEmpty;
namespace tools = orvik::plugin::wincrypt::tools;
namespace binary = orvik::plugin::wincrypt::binary;

constexpr DWORD faultCode = 0x8009000E;

/// What a failed call does to a check.
enum class Harm {
    refused, ///< no, with the call's code, logged
    missing, ///< no, for the signer's certificate is not there: not logged
    none,    ///< the verdict stays
};

struct Step {
    const char* function;
    Harm harm;
};
using Steps = std::vector<Step>;

const Steps attached{
    {"CryptMsgOpenToDecode", Harm::refused},
    {"CryptMsgUpdate", Harm::refused},
    {"CryptMsgGetParam", Harm::refused},
    {"CertOpenStore", Harm::refused},
    {"CryptMsgGetParam", Harm::refused},
    {"CryptMsgGetParam", Harm::refused},
    {"CertGetSubjectCertificateFromStore", Harm::missing},
    {"CertCloseStore", Harm::none},
    {"CryptMsgControl", Harm::refused},
    {"CertFreeCertificateContext", Harm::none},
    {"CryptMsgClose", Harm::none},
};

/// The content goes in after the store is closed.
Steps detached() {
    auto steps = attached;
    steps.insert(steps.begin() + 8, {"CryptMsgUpdate", Harm::refused});
    return steps;
}

class VerifyFault : public VerifyFixture {
protected:
    void arrangeFresh() {
        arrangeMessage();
        service().messages[faultCode] = "No memory.\r\n";
        clearLog();
    }

    /// Walks `check`, which must fail as `steps` has it and be true otherwise.
    void walk(const char* name, const Steps& steps, const std::function<bool()>& check) {
        bool valid = false;
        const auto count = service_double::walkFaults({name, [this] { arrangeFresh(); },
                                                       [&] {
                                                           valid = false;
                                                           valid = check();
                                                       },
                                                       [&](const FaultOutcome& outcome) {
                                                           ASSERT_LE(outcome.index, steps.size()) << "one call more";
                                                           EXPECT_FALSE(outcome.thrown);
                                                           expect(steps.at(outcome.index - 1), outcome, valid);
                                                       },
                                                       faultCode});
        EXPECT_EQ(count, steps.size());
        EXPECT_TRUE(valid) << "nothing failed";
    }

    /// The functions called after the failing call, without those that give back and those that ask for the text.
    static std::vector<std::string> afterwards(const FaultOutcome& outcome) {
        static const std::set<std::string> expected{"CryptMsgClose", "CertCloseStore", "CertFreeCertificateContext",
                                                    "FormatMessageW", "FormatMessage"};
        std::vector<std::string> rest;
        const auto all = functions();
        for (std::size_t i = outcome.index; i < all.size(); ++i) {
            if (expected.count(all[i]) == 0) {
                rest.push_back(all[i]);
            }
        }
        return rest;
    }

private:
    void expect(const Step& step, const FaultOutcome& outcome, bool valid) const {
        EXPECT_EQ(outcome.function, step.function);
        EXPECT_EQ(valid, step.harm == Harm::none);
        if (step.harm == Harm::none) {
            EXPECT_THAT(log(), IsEmpty());
            return;
        }
        EXPECT_THAT(afterwards(outcome), IsEmpty()) << "the check goes on after its failure";
        const bool refused = step.harm == Harm::refused;
        EXPECT_EQ(GetLastErrorEx(), refused ? faultCode : capi::CRYPT_E_NOT_FOUND);
        if (refused) {
            EXPECT_THAT(log(),
                        ElementsAre(service_double::LogRecord{Severity::error, "wincrypt: verify failed: No memory."}));
        } else {
            EXPECT_THAT(log(), IsEmpty());
        }
    }
};

TEST_F(VerifyFault, OfAnAttachedMessage) {
    walk("verify, attached", attached, [] { return verify(); });
}

TEST_F(VerifyFault, OfADetachedMessage) {
    walk("verify, detached", detached(), [] { return verifyDetached("content"); });
}

/// Hooks that count what comes to them.
struct Counted {
    tools::VerifyHooks hooks;
    std::string content;
    int inspected = 0;

    Counted() {
        hooks.content = [this](const unsigned char* data, std::size_t size) {
            content.append(reinterpret_cast<const char*>(data), size);
            return true;
        };
        hooks.inspect = [this](void* message) {
            EXPECT_NE(message, nullptr);
            ++inspected;
        };
    }
};

TEST_F(VerifyFault, OfAnAttachedMessageWithHooksShowsNothingUnlessValid) {
    walk("verify, attached, hooks", attached, [] {
        Counted counted;
        const bool valid = verify("signature", counted.hooks);
        EXPECT_EQ(counted.inspected, valid ? 1 : 0);
        return valid;
    });
}

TEST_F(VerifyFault, OfADetachedMessageWithHooksShowsNothingUnlessValid) {
    walk("verify, detached, hooks", detached(), [] {
        Counted counted;
        const bool valid = verifyDetached("content", "signature", counted.hooks);
        EXPECT_EQ(counted.inspected, valid ? 1 : 0);
        EXPECT_EQ(counted.content, "") << "a detached message has no content of its own";
        return valid;
    });
}

TEST_F(VerifyFault, OfTheBinaryValidatorIsANoThatFinalizeKeeps) {
    for (const bool withContent : {false, true}) {
        walk(withContent ? "binary::Validator, detached" : "binary::Validator, attached",
             withContent ? detached() : attached, [&] {
                 binary::Validator validator;
                 orvik::plugin::crypto::SignatureFactory::Validator::Params params;
                 if (withContent) {
                     params.content = boost::make_shared<std::istringstream>("content");
                 }
                 EXPECT_TRUE(validator.initialize(params));
                 const bool verdict = update(validator, "signature");
                 const auto reason = GetLastErrorEx();
                 EXPECT_EQ(validator.update(nullptr, 0), verdict);
                 EXPECT_EQ(finalize(validator), verdict);
                 EXPECT_EQ(GetLastErrorEx(), reason);
                 return verdict;
             });
    }
}

TEST_F(VerifyFault, OfAMessageOfSeveralChunksStopsAtTheChunk) {
    std::size_t fed = 0;
    const auto count = service_double::walkFaults(
        {"verify, chunks", [this] { arrangeFresh(); },
         [&] {
             const bool valid = verify(std::string(10000, 's'));
             fed = service().count("CryptMsgUpdate");
             EXPECT_EQ(valid, service().failedFunction().empty() || service().failedFunction() == "CertCloseStore" ||
                                  service().failedFunction() == "CertFreeCertificateContext" ||
                                  service().failedFunction() == "CryptMsgClose");
         },
         [&](const FaultOutcome& outcome) {
             if (outcome.function == "CryptMsgUpdate") {
                 EXPECT_EQ(fed, outcome.index - 1);
                 EXPECT_EQ(GetLastErrorEx(), faultCode);
             }
         },
         faultCode});
    EXPECT_EQ(count, attached.size() + 2);
    EXPECT_EQ(fed, 3U);
}

// ---- the place of a failure, where it leaves the tools

TEST_F(VerifyFault, OfTheSignersCertificateHasItsCodeAndPlace) {
    const std::vector<Thrown> places{
        Thrown(), // the message is opened by the test
        {code(faultCode), "tools", "certificate", 0},
        {code(faultCode), "tools", "certInfo", 0},
        {code(faultCode), "tools", "certInfo", 0},
        Thrown(), // no certificate found
        Thrown(), // the store is closed
        Thrown(), // the certificate is given back
        Thrown(), // the message is closed
    };
    bool found = false;
    const auto count = service_double::walkFaults(
        {"tools::certificate", [this] { arrangeFresh(); },
         [&] {
             found = false;
             CMSG_STREAM_INFO stream{};
             orvik::plugin::wincrypt::HCRYPTMSG message;
             *message.put() = orvik::plugin::wincrypt::CryptMsgOpenToDecode(0x10001, 0, 0, 0, nullptr, &stream);
             if (message) {
                 found = tools::certificate(message.get()) != nullptr;
             }
         },
         [&](const FaultOutcome& outcome) {
             ASSERT_LE(outcome.index, places.size());
             EXPECT_EQ(service_double::describe<SystemException>(outcome.thrown), places.at(outcome.index - 1));
             EXPECT_EQ(found, outcome.index > 5);
             EXPECT_THAT(log(), IsEmpty());
         },
         faultCode});
    EXPECT_EQ(count, places.size());
    EXPECT_TRUE(found);
}

TEST_F(VerifyFault, OfACountAndOfAChunkHasItsCodeAndPlace) {
    const std::vector<Thrown> places{
        Thrown(), // the message is opened by the test
        {code(faultCode), "tools", "param", 0},
        {code(faultCode), "tools", "read", 0},
        {code(faultCode), "tools", "read", 0},
        Thrown(), // the message is closed
    };
    const auto count = service_double::walkFaults(
        {"tools::param and tools::read", [this] { arrangeFresh(); },
         [] {
             orvik::plugin::wincrypt::HCRYPTMSG message;
             *message.put() = orvik::plugin::wincrypt::CryptMsgOpenToDecode(0x10001, 0, 0, 0, nullptr, nullptr);
             if (message) {
                 EXPECT_EQ(tools::param(message.get(), capi::CMSG_CERT_COUNT_PARAM), 2U);
                 std::istringstream in(std::string(5000, 's'));
                 EXPECT_TRUE(tools::read(message.get(), in));
             }
         },
         [&](const FaultOutcome& outcome) {
             ASSERT_LE(outcome.index, places.size());
             EXPECT_EQ(service_double::describe<SystemException>(outcome.thrown), places.at(outcome.index - 1));
         },
         faultCode});
    EXPECT_EQ(count, places.size());
}

} // namespace
} // namespace wincrypt_signatures
