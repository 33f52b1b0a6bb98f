// Time-stamps with each call of the service failing in turn: number, place and result of every one.

#include "timestamp_fixture.hpp"

#include "service_double/fault_walk.hpp"

namespace wincrypt_signatures {
namespace {

using orvik::plugin::wincrypt::HCRYPTPROV;
using service_double::FaultOutcome;
namespace tools = orvik::plugin::wincrypt::tools;

constexpr DWORD faultCode = 0x8009000E;

/// A call, and where its failure ends the operation; an empty place where it does no harm.
struct Step {
    const char* function;
    const char* place;
};

class TimestampFault : public TimestampFixture {
protected:
    void walk(const char* name, const std::function<void()>& scenario, const std::vector<Step>& steps) {
        const auto count = service_double::walkFaults({name, [this] { arrangeTimestamps(); }, scenario,
                                                       [&](const FaultOutcome& outcome) {
                                                           ASSERT_LE(outcome.index, steps.size());
                                                           const Step& step = steps[outcome.index - 1];
                                                           EXPECT_EQ(outcome.function, step.function);
                                                           EXPECT_EQ(ending(outcome), step.place);
                                                       },
                                                       faultCode});
        EXPECT_EQ(count, steps.size());
    }

    static std::string ending(const FaultOutcome& outcome) {
        if (!outcome.thrown) {
            return "";
        }
        if (const auto place = service_double::describe<SystemException>(outcome.thrown); place.code != 0) {
            EXPECT_EQ(place.code, code(faultCode));
            return place.file + ", " + place.function;
        }
        if (const auto place = service_double::describe<CryptoException>(outcome.thrown); place.code != 0) {
            return std::to_string(place.code) + " at " + place.file + ", " + place.function;
        }
        const auto place = service_double::describe<ApplicationException>(outcome.thrown);
        return std::to_string(place.code) + " at " + place.file + ", " + place.function;
    }
};

constexpr const char* param = "wincrypt_handler, CryptMsgGetParamEx";
constexpr const char* encoder = "wincrypt_handler, CryptEncodeObjectEx";

TEST_F(TimestampFault, OfARequest) {
    std::string request;
    walk("makeTspRequest",
         [&] {
             request.clear();
             const HCRYPTPROV context(provider(), nullptr);
             request = tools::makeTspRequest(context, "signature", "nonce", 0);
         },
         {{"CryptAcquireContextW", "30004 at hash, CryptHash"},
          {"CryptMsgOpenToDecode", "tools, makeTspRequest"},
          {"CryptMsgUpdate", "tools, makeTspRequest"},
          {"CryptMsgGetParam", param},
          {"CryptMsgGetParam", param},
          {"CryptMsgGetParam", param},
          {"CryptMsgGetParam", param},
          {"CryptContextAddRef", "hash, CryptHash"},
          {"CryptFindOIDInfo", ""}, // the service is asked for algorithm 0, and says itself that it has none
          {"CryptCreateHash", "hash, CryptHash"},
          {"CryptHashData", "hash, update"},
          {"CryptGetHashParam", "hash, finalize"},
          {"CryptGetHashParam", "hash, finalize"},
          {"CryptDestroyHash", ""},
          {"CryptReleaseContext", ""},
          {"CryptEncodeObject", encoder},
          {"CryptEncodeObject", encoder},
          {"CryptMsgClose", ""},
          {"CryptReleaseContext", ""}});
    EXPECT_EQ(request, "request");
}

TEST_F(TimestampFault, OfAResponse) {
    bool parsed = false;
    walk("parseTspResponse",
         [&] {
             parsed = false;
             const HCRYPTPROV context;
             parsed = tools::parseTspResponse(context, "response").content.has_value();
         },
         {{"CryptDecodeObject", "tools, parseTspResponse"},
          {"CryptDecodeObject", "tools, parseTspResponse"},
          {"CryptMsgOpenToDecode", "tools, parseTspContent"},
          {"CryptMsgUpdate", "tools, parseTspContent"},
          {"CryptMsgGetParam", param},
          {"CryptMsgGetParam", param},
          {"CryptMsgGetParam", param},
          {"CryptMsgGetParam", param},
          {"CryptDecodeObject", "tools, parseTspContent"},
          {"CryptDecodeObject", "tools, parseTspContent"},
          {"CryptMsgClose", ""}});
    EXPECT_TRUE(parsed);
}

TEST_F(TimestampFault, OfTheChecks) {
    script_.imprint = "imprint";
    bool valid = false;
    const tools::TspResponse response{0, tools::TspResponse::Content{"token", der(signerCertificate), "imprint", {}}};
    walk("validateTspResponse",
         [&] {
             valid = false;
             const HCRYPTPROV context;
             tools::validateTspResponse(response, context, "imprint");
             valid = true;
         },
         {{"CertCreateCertificateContext", "certificate, Certificate"},
          {"CryptMsgOpenToDecode", "tools, isTspResponseSignatureValid"},
          {"CryptMsgUpdate", "tools, isTspResponseSignatureValid"},
          {"CryptMsgControl", "20017 at tools, validateTspContent"},
          {"CryptMsgClose", ""},
          {"CertFreeCertificateContext", ""}});
    EXPECT_TRUE(valid);
}

TEST_F(TimestampFault, OfTheToken) {
    std::string stamped;
    walk("addTimestampToSignature",
         [&] {
             stamped.clear();
             const HCRYPTPROV context;
             stamped = tools::addTimestampToSignature(context, "signature", "token");
         },
         {{"CryptMsgOpenToDecode", "tools, addTimestampToSignature"},
          {"CryptMsgUpdate", "tools, addTimestampToSignature"},
          {"CryptEncodeObject", encoder},
          {"CryptEncodeObject", encoder},
          {"CryptMsgControl", "tools, addTimestampToSignature"},
          {"CryptMsgGetParam", param},
          {"CryptMsgGetParam", param},
          {"CryptMsgClose", ""}});
    EXPECT_EQ(stamped, "stamped");
}

} // namespace
} // namespace wincrypt_signatures
