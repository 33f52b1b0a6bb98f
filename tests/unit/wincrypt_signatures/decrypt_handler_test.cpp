#include "decrypt_handler_fixture.hpp"

#include "crypto/wincrypt/wincrypt_handler.hpp"

namespace wincrypt_signatures {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr DWORD faultCode = 0x8009000E;
const std::string failureRecord = "warning wincrypt::Decrypt: finalize failed: No memory.";

TEST_F(DecryptHandlerTest, GivesThePlaintextInPlaceOfWhatStoodInTheOutput) {
    DecryptDataHandler handler;
    open(handler);
    EXPECT_EQ(finalize(handler), "the plaintext");
    std::vector<unsigned char> out;
    EXPECT_FALSE(handler.finalize(out)) << "done";
}

TEST_F(DecryptHandlerTest, ParametersAreNewAndEmpty) {
    const DecryptDataHandler handler;
    const auto made = handler.params();
    const auto* own = dynamic_cast<const DecryptDataHandler::Params*>(made.get());
    ASSERT_NE(own, nullptr);
    EXPECT_EQ(own->certificate, nullptr);
}

TEST_F(DecryptHandlerTest, CallsTheServiceInTheDocumentedOrder) {
    const auto recipient = linked();
    service().on.CryptMsgOpenToDecode = [](DWORD encoding, DWORD flags, DWORD type, unsigned long context,
                                           CERT_INFO* info, CMSG_STREAM_INFO* stream) {
        EXPECT_EQ(encoding, 0x00010001U);
        EXPECT_EQ(flags, 0U);
        EXPECT_EQ(type, 0U);
        EXPECT_EQ(context, 0U);
        EXPECT_EQ(info, nullptr);
        EXPECT_EQ(stream->cbContent, 0xFFFFFFFFU);
        BYTE octet = 0;
        EXPECT_EQ(stream->pfnStreamOutput(nullptr, &octet, 1, 1), 0);
        EXPECT_EQ(stream->pfnStreamOutput(stream->pvArg, nullptr, 0, 1), 1);
        return Defaults::CryptMsgOpenToDecode(encoding, flags, type, context, info, stream);
    };
    service().on.CryptMsgControl = [&](void* message, DWORD flags, DWORD type, const void* parameter) {
        const auto& decrypt = *static_cast<const CMSG_CTRL_DECRYPT_PARA*>(parameter);
        EXPECT_EQ(flags, 0U);
        EXPECT_EQ(type, 2U);
        EXPECT_EQ(decrypt.cbSize, 24U);
        EXPECT_EQ(decrypt.hCryptProv, reinterpret_cast<unsigned long>(recipient->privateKey()->context()));
        EXPECT_EQ(decrypt.dwKeySpec, recipient->privateKey()->keySpec());
        EXPECT_EQ(decrypt.dwRecipientIndex, 1U) << "the first that fits";
        return Defaults::CryptMsgControl(message, flags, type, parameter);
    };
    {
        DecryptDataHandler handler;
        handler.initialize(params(recipient));
        update(handler, "mess");
        update(handler, "age");
        EXPECT_EQ(finalize(handler), "the plaintext");
    }
    EXPECT_THAT(functions().front(), "CertGetCertificateContextProperty");
    EXPECT_THAT(messageCalls(),
                ElementsAre("CryptMsgOpenToDecode", "CryptMsgUpdate", "CryptMsgUpdate", "CryptMsgUpdate",
                            "CryptMsgUpdate", "CryptMsgGetParam", "CryptMsgGetParam", "CryptMsgGetParam",
                            "CryptMsgGetParam", "CryptMsgGetParam", "CryptMsgControl", "CryptMsgClose"));
    EXPECT_THAT(updates(), ElementsAre("3, 0)", "1, 0)", "2, 0)", "1, 1)"));
}

TEST_F(DecryptHandlerTest, HoldsTheLastOctetBack) {
    DecryptDataHandler handler;
    handler.initialize(params(linked()));
    update(handler, "abc");
    update(handler, "d");
    std::size_t consumed = 7;
    EXPECT_TRUE(handler.update(nullptr, 5, &consumed));
    EXPECT_EQ(consumed, 5U);
    const unsigned char octet = 'e';
    EXPECT_TRUE(handler.update(&octet, 0, &consumed));
    EXPECT_EQ(consumed, 0U);
    EXPECT_TRUE(handler.update(&octet, 1, &consumed));
    EXPECT_EQ(consumed, 1U);
    finalize(handler);
    EXPECT_THAT(updates(), ElementsAre("2, 0)", "1, 0)", "1, 0)", "1, 1)"));
}

TEST_F(DecryptHandlerTest, ReportsAllThatCameAsConsumed) {
    DecryptDataHandler handler;
    handler.initialize(params(linked()));
    const std::string data(5000, 'x');
    std::size_t consumed = 7;
    EXPECT_TRUE(handler.update(reinterpret_cast<const unsigned char*>(data.data()), data.size(), &consumed));
    EXPECT_EQ(consumed, data.size());
    EXPECT_THAT(updates(), ElementsAre("4999, 0)"));
}

TEST_F(DecryptHandlerTest, AnEmptyPieceFlushesTheOctetAndLeavesNothingToFinishWith) {
    const unsigned char octet = 'e';
    for (const unsigned char* const piece : {&octet, static_cast<const unsigned char*>(nullptr)}) {
        service().clearCalls();
        DecryptDataHandler handler;
        handler.initialize(params(linked()));
        update(handler, "a");
        EXPECT_TRUE(handler.update(piece, 0));
        EXPECT_THAT(updates(), ElementsAre("1, 0)"));
        std::vector<unsigned char> out;
        EXPECT_FALSE(handler.finalize(out));
        EXPECT_THAT(updates(), ElementsAre("1, 0)")) << "no final update without an octet";
        EXPECT_EQ(service().count("CryptMsgControl"), 0U);
    }
}

TEST_F(DecryptHandlerTest, WhatTheFrameworkDidNotThrowIsNotHidden) {
    DecryptDataHandler handler;
    open(handler);
    service().on.CryptMsgControl = [](void*, DWORD, DWORD, const void*) -> BOOL { throw std::runtime_error("odd"); };
    std::vector<unsigned char> out;
    EXPECT_THROW(handler.finalize(out), std::runtime_error);
    EXPECT_THAT(warnings(), IsEmpty());
    EXPECT_FALSE(handler.finalize(out)) << "it is over all the same";
}

TEST_F(DecryptHandlerTest, DoesNothingBeforeItIsInitialized) {
    DecryptDataHandler handler;
    std::vector<unsigned char> out;
    std::size_t consumed = 7;
    const unsigned char octet = 'e';
    EXPECT_FALSE(handler.update(&octet, 1, &consumed));
    EXPECT_EQ(consumed, 7U);
    EXPECT_FALSE(handler.finalize(out));
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(DecryptHandlerTest, FinalizeWithoutDataProducesNothingAndCloses) {
    DecryptDataHandler handler;
    handler.initialize(params(linked()));
    std::vector<unsigned char> out(former.begin(), former.end());
    EXPECT_FALSE(handler.finalize(out));
    EXPECT_EQ(std::string(out.begin(), out.end()), former);
    EXPECT_THAT(messageCalls(), ElementsAre("CryptMsgOpenToDecode", "CryptMsgClose"));
    EXPECT_FALSE(update(handler, "data"));
}

TEST_F(DecryptHandlerTest, MessageForOthersGivesNoPlaintext) {
    service().message.recipients = {der(enciphermentCertificate), der(plainCertificate)};
    DecryptDataHandler handler;
    open(handler);
    EXPECT_EQ(finalize(handler), "");
    EXPECT_EQ(service().count("CryptMsgControl"), 0U);
    EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(DecryptHandlerTest, RecipientWithTheSameSerialOfAnotherIssuerIsAnother) {
    const auto named = [](const std::string& issuer, const std::string& serial) {
        std::string octets(sizeof(CERT_INFO), '\0');
        CERT_INFO info{};
        info.Issuer = {static_cast<DWORD>(issuer.size()), reinterpret_cast<BYTE*>(const_cast<char*>(issuer.data()))};
        info.SerialNumber = {static_cast<DWORD>(serial.size()),
                             reinterpret_cast<BYTE*>(const_cast<char*>(serial.data()))};
        octets.assign(reinterpret_cast<const char*>(&info), sizeof info);
        return octets;
    };
    const auto recipient = linked();
    const auto& own = *static_cast<PCCERT_CONTEXT>(recipient->context())->pCertInfo;
    const std::string issuer(reinterpret_cast<const char*>(own.Issuer.pbData), own.Issuer.cbData);
    const std::string serial(reinterpret_cast<const char*>(own.SerialNumber.pbData), own.SerialNumber.cbData);
    auto otherIssuer = issuer;
    otherIssuer.back() = static_cast<char>(otherIssuer.back() ^ 1);
    const auto longerIssuer = issuer + "x";
    const auto longerSerial = serial + std::string(1, '\0');
    service().message.recipients.assign(4, der(plainCertificate));
    service().message.parameters[{19, 0}] = named(otherIssuer, serial);
    service().message.parameters[{19, 1}] = named(longerIssuer, serial);
    service().message.parameters[{19, 2}] = named(issuer, longerSerial);
    service().message.parameters[{19, 3}] = std::string(16, 'x'); // shorter than the structure
    DecryptDataHandler handler;
    open(handler, recipient);
    EXPECT_EQ(finalize(handler), "");
    EXPECT_EQ(service().count("CryptMsgControl"), 0U);
}

TEST_F(DecryptHandlerTest, ForeignParametersAreRefused) {
    EXPECT_THROW(DecryptDataHandler().initialize(IDataHandler::Params()), std::bad_cast);
}

TEST_F(DecryptHandlerTest, CertificateMustBeGivenAndLinked) {
    const auto refusal = [](const boost::shared_ptr<Certificate>& recipient) {
        return thrownBy<CryptoException>([&] { DecryptDataHandler().initialize(params(recipient)); });
    };
    EXPECT_EQ(refusal(nullptr), validation(30003));
    EXPECT_EQ(refusal(certificate()), validation(30005));
}

TEST_F(DecryptHandlerTest, KeyUsageIsNotTested) {
    DecryptDataHandler handler;
    EXPECT_TRUE(handler.initialize(params(linked(plainCertificate))));
    EXPECT_TRUE(handler.initialize(params(linked(enciphermentCertificate))));
}

TEST_F(DecryptHandlerTest, LinkMustNameProviderAndContainer) {
    const auto recipient = certificate();
    const auto refusal = [&](const wchar_t* container, const wchar_t* provider) {
        CRYPT_KEY_PROV_INFO info{};
        info.pwszContainerName = const_cast<wchar_t*>(container);
        info.pwszProvName = const_cast<wchar_t*>(provider);
        orvik::plugin::wincrypt::CertSetCertificateContextProperty(static_cast<PCCERT_CONTEXT>(recipient->context()), 2,
                                                                   0, &info);
        return thrownBy<CryptoException>([&] { DecryptDataHandler().initialize(params(recipient)); });
    };
    EXPECT_EQ(refusal(L"box", nullptr), validation(30004));
    EXPECT_EQ(refusal(nullptr, nullptr), validation(30004));
    EXPECT_EQ(refusal(nullptr, L"name"), validation(30005));
}

TEST_F(DecryptHandlerTest, MessageThatDoesNotOpenLeavesTheHandlerUnconfigured) {
    service().failFunction("CryptMsgOpenToDecode", capi::CRYPT_E_UNKNOWN_ALGO);
    DecryptDataHandler handler;
    EXPECT_EQ(thrownBy<SystemException>([&] { handler.initialize(params(linked())); }),
              (Thrown{code(capi::CRYPT_E_UNKNOWN_ALGO), "encrypt_data_handler", "initializeImpl", 0}));
    EXPECT_FALSE(update(handler, "data"));
}

TEST_F(DecryptHandlerTest, SecondInitializeForgetsWhatCameBefore) {
    DecryptDataHandler handler;
    open(handler);
    handler.initialize(params(linked()));
    EXPECT_EQ(service().count("CryptMsgClose"), 1U);
    std::vector<unsigned char> out;
    EXPECT_FALSE(handler.finalize(out)) << "no data since";
}

TEST_F(DecryptHandlerTest, CancelledUpdateIsTheUsersChoice) {
    for (const DWORD cancelled : {1223U, 0x8010006EU}) {
        DecryptDataHandler handler;
        handler.initialize(params(linked()));
        service().failFunction("CryptMsgUpdate", cancelled);
        EXPECT_EQ(thrownBy<ApplicationException>([&] { update(handler, "data"); }), updating(20003));
        service().failFunction("CryptMsgUpdate", 0);
    }
}

TEST_F(DecryptHandlerTest, OtherFailedUpdateIsTheServicesRefusal) {
    DecryptDataHandler handler;
    handler.initialize(params(linked()));
    service().failFunction("CryptMsgUpdate", 87);
    EXPECT_EQ(thrownBy<SystemException>([&] { update(handler, "data"); }), updating(87));
}

TEST_F(DecryptHandlerTest, FailedFinalUpdateLeavesTheHandlerOpenEvenWhenCancelled) {
    DecryptDataHandler handler;
    open(handler);
    service().failFunction("CryptMsgUpdate", 1223);
    std::vector<unsigned char> out;
    EXPECT_EQ(thrownBy<SystemException>([&] { handler.finalize(out); }), finalization(1223));
    EXPECT_EQ(service().count("CryptMsgClose"), 0U);
    service().failFunction("CryptMsgUpdate", 0);
    EXPECT_EQ(finalize(handler), "the plaintext");
}

TEST_F(DecryptHandlerTest, RefusedPinIsAnUnavailableKeyAndEndsTheOperation) {
    DecryptDataHandler handler;
    open(handler);
    answerPinWith(boost::none);
    std::vector<unsigned char> out(former.begin(), former.end());
    EXPECT_EQ(thrownBy<CryptoException>([&] { handler.finalize(out); }), finalization(30001));
    EXPECT_EQ(std::string(out.begin(), out.end()), former);
    EXPECT_EQ(service().count("CryptMsgClose"), 1U);
    EXPECT_EQ(service().count("CryptMsgGetParam"), 0U) << "the recipients are read after the PIN";
    EXPECT_THAT(warnings(), IsEmpty());
    EXPECT_FALSE(handler.finalize(out));
}

TEST_F(DecryptHandlerTest, KeyThatIsUnlockedBeforehandIsNotAskedForAgain) {
    const auto recipient = linked();
    DecryptDataHandler handler;
    open(handler, recipient);
    EXPECT_TRUE(AuthProvider::authorize(recipient->privateKey(), "early"));
    answerPinWith(boost::none);
    EXPECT_EQ(finalize(handler), "the plaintext");
}

TEST_F(DecryptHandlerTest, FailureToDecryptIsLoggedAndHidden) {
    service().messages[faultCode] = "No memory.\r\n";
    for (const char* const function : {"CryptMsgGetParam", "CryptMsgControl"}) {
        DecryptDataHandler handler;
        open(handler);
        service().failFunction(function, faultCode);
        std::vector<unsigned char> out(former.begin(), former.end());
        EXPECT_EQ(thrownBy<CryptoException>([&] { handler.finalize(out); }), finalization(30058)) << function;
        EXPECT_EQ(std::string(out.begin(), out.end()), former);
        EXPECT_THAT(warnings(), ElementsAre(failureRecord)) << function;
        EXPECT_FALSE(handler.finalize(out));
        service().failFunction(function, 0);
        clearLog();
    }
}

/// How a run of the walk ended: exception, code, location; "" when it returned.
std::string ending(const FaultOutcome& outcome) {
    const auto text = [](const char* kind, const Thrown& thrown) {
        return std::string(kind) + " " + std::to_string(static_cast<unsigned>(thrown.code)) + " " + thrown.file + " " +
               thrown.function;
    };
    try {
        if (outcome.thrown) {
            std::rethrow_exception(outcome.thrown);
        }
    } catch (const SystemException& e) {
        return text("system", service_double::describe(e));
    } catch (const CryptoException& e) {
        return text("crypto", service_double::describe(e));
    } catch (const std::exception& e) {
        return e.what();
    }
    return "";
}

struct Step {
    const char* function;
    const char* ending;
};
constexpr const char* cannotOpen = "system 2148073486 encrypt_data_handler initializeImpl";
constexpr const char* cannotUpdate = "system 2148073486 encrypt_data_handler validateCryptMsgUpdate";
constexpr const char* cannotFinish = "system 2148073486 encrypt_data_handler finalizeImpl";
constexpr const char* cannotDecrypt = "crypto 30058 encrypt_data_handler finalizeImpl";
constexpr const char* notLinked = "crypto 30005 encrypt_data_handler validateCertificate";
constexpr const char* noCopy = "system 2148073486 certificate privateKey";

/// The calls that a decryption makes itself; those between them are the key's and are tried again or do no harm.
const std::vector<Step> beforeTheKey{
    {"CertGetCertificateContextProperty", notLinked},
    {"CertGetCertificateContextProperty", notLinked},
    {"CryptMsgOpenToDecode", cannotOpen},
    {"CryptMsgUpdate", cannotUpdate},
    {"CryptMsgUpdate", cannotUpdate},
    {"CryptMsgUpdate", cannotUpdate},
    {"CryptMsgUpdate", cannotFinish},
    {"CertDuplicateCertificateContext", noCopy},
};

constexpr const char* pinRefused = "crypto 30001 encrypt_data_handler finalizeImpl";

/// Asserts how a run of the walk ended.
void expectEnding(const FaultOutcome& outcome, const std::string& plaintext, const std::vector<std::string>& records) {
    std::string expected;
    if (outcome.index <= beforeTheKey.size()) {
        EXPECT_EQ(outcome.function, beforeTheKey[outcome.index - 1].function);
        expected = beforeTheKey[outcome.index - 1].ending;
    } else if (outcome.function == "CryptMsgGetParam" || outcome.function == "CryptMsgControl") {
        expected = cannotDecrypt;
    }
    EXPECT_EQ(ending(outcome), expected);
    EXPECT_EQ(plaintext, expected.empty() ? "the plaintext" : former);
    EXPECT_EQ(records, expected == cannotDecrypt ? std::vector{failureRecord} : std::vector<std::string>{});
}

TEST_F(DecryptHandlerTest, EveryFailingCallIsReportedWithItsCodeAndPlace) {
    boost::shared_ptr<Certificate> recipient;
    std::string plaintext;
    service_double::FaultWalk walk;
    walk.name = "decrypt";
    walk.code = faultCode;
    walk.arrange = [&] {
        arrangeService();
        recipient = linked();
        arrangeMessage();
        service().messages[faultCode] = "No memory.\r\n";
        clearLog();
    };
    walk.scenario = [&] {
        plaintext = former;
        DecryptDataHandler handler;
        handler.initialize(params(std::exchange(recipient, nullptr)));
        update(handler, "mess");
        update(handler, "age");
        std::vector<unsigned char> out(former.begin(), former.end());
        try {
            plaintext = handler.finalize(out) ? std::string(out.begin(), out.end()) : "false";
        } catch (...) {
            EXPECT_EQ(std::string(out.begin(), out.end()), former);
            throw;
        }
    };
    walk.expect = [&](const FaultOutcome& outcome) { expectEnding(outcome, plaintext, warnings()); };
    walk.arrange();
    walk.scenario(); // what a process asks once only is asked here, whatever ran before
    EXPECT_EQ(service_double::walkFaults(walk), 37U);
}

TEST_F(DecryptHandlerTest, RefusedPinIsReportedWhateverCallFails) {
    boost::shared_ptr<Certificate> recipient;
    std::exception_ptr ended;
    std::string result;
    service_double::FaultWalk walk;
    walk.name = "decrypt with a refused PIN";
    walk.code = faultCode;
    walk.arrange = [&] {
        arrangeService();
        recipient = linked();
        arrangeMessage();
        answerPinWith(boost::none);
        clearLog();
    };
    walk.scenario = [&] { // a refusal is how it ends without a failing call, too
        std::vector<unsigned char> out(former.begin(), former.end());
        ended = nullptr;
        try {
            DecryptDataHandler handler;
            handler.initialize(params(std::exchange(recipient, nullptr)));
            update(handler, "mess");
            update(handler, "age");
            handler.finalize(out);
        } catch (...) {
            ended = std::current_exception();
        }
        result.assign(out.begin(), out.end());
    };
    walk.expect = [&](FaultOutcome outcome) {
        outcome.thrown = ended;
        const bool ofTheHandler = outcome.index <= beforeTheKey.size();
        EXPECT_EQ(outcome.function, ofTheHandler ? beforeTheKey[outcome.index - 1].function : outcome.function);
        EXPECT_EQ(ending(outcome), ofTheHandler ? beforeTheKey[outcome.index - 1].ending : pinRefused) << outcome.call;
        EXPECT_EQ(result, former) << outcome.call;
        EXPECT_THAT(warnings(), IsEmpty()) << outcome.call;
        EXPECT_EQ(service().count("CryptMsgGetParam") + service().count("CryptMsgControl"), 0U) << outcome.call;
    };
    walk.arrange();
    walk.scenario(); // what a process asks once only is asked here, whatever ran before
    EXPECT_EQ(service_double::walkFaults(walk), 29U);
    EXPECT_EQ(thrownBy<CryptoException>([&] { std::rethrow_exception(ended); }), finalization(30001));
}

} // namespace
} // namespace wincrypt_signatures
