// A certificate request with every extension, with each call of the service failing.
#include "csr_fixture.hpp"

#include "service_double/fault_walk.hpp"
#include "unit/wincrypt_keys/fault_fixture.hpp"

namespace wincrypt_signatures {
namespace {

using wincrypt_keys::faultCode;

class CsrFault : public CsrFixture {
protected:
    void arrangeFresh() {
        arrangeService();
        arrangeEncoder();
        arrangeParameters();
        service().clearCalls();
        clearLog();
    }
};
/// A call, and how the request ends when it fails: the exception, or where the key is said to lie (path, name).
struct Step {
    const char* function;
    std::string ending;
    std::size_t times = 1;
};

constexpr const char* same = "new, new";

std::vector<Step> everyCall() {
    using wincrypt_keys::system;
    const std::string encoder = system(faultCode, "wincrypt_handler, CryptEncodeObjectEx");
    const std::string exporter = system(faultCode, "wincrypt_handler, CryptExportPublicKeyInfoEx");
    const auto at = [](const char* place) { return system(faultCode, place); };
    return {
        {"CryptEncodeObject", encoder, 2},                               // the subject
        {"CryptAcquireContextW", R"(\\.\HDIMAGE\new, \\.\HDIMAGE\new)"}, // made under the file reader's prefix
        {"CryptGetUserKey", same, 2},
        {"CryptSetProvParam", at("csr_creator, setAgreementAlgorithm")},
        {"CryptSetProvParam", at("csr_creator, generateKey")},
        {"CryptGenKey", at("csr_creator, generateKey")},
        {"CryptExportPublicKeyInfo", exporter, 2},
        {"CryptFindOIDInfo", "CryptoException 30007 at csr_creator, create"},
        {"CryptAcquireContextW", "CryptoException 30004 at hash, CryptHash"},
        {"CryptCreateHash", at("hash, CryptHash")},
        {"CryptHashData", at("hash, update")},
        {"CryptGetHashParam", at("hash, finalize"), 2},
        {"CryptDestroyHash", same},
        {"CryptReleaseContext", same},
        {"CryptEncodeObject", encoder, 38}, // eight extensions, four attributes, the list of extensions
        {"CryptSignAndEncodeCertificate", at("csr_creator, create"), 2},
        {"CryptGetProvParam", same},       // there is no path: it is the name
        {"CryptGetProvParam", ", new", 2}, // which cannot be read
        {"CryptGetProvParam", same, 2},    // its encoding
        {"CryptGetProvParam", "new, ", 2}, // the name
        {"CryptGetProvParam", same, 2},
        {"CryptDestroyKey", same},
        {"CryptReleaseContext", same},
    };
}

TEST_F(CsrFault, HasItsCodeAndPlaceAndLeavesNoContainer) {
    askForEverything();
    std::vector<Step> calls;
    for (const Step& step : everyCall()) {
        calls.insert(calls.end(), step.times, step);
    }
    std::string answer;
    const auto count = service_double::walkFaults(
        {"request with every extension", [this] { arrangeFresh(); },
         [&] {
             answer.clear();
             const auto result = create();
             answer = result->containerPath + ", " + result->containerName;
         },
         [&](const service_double::FaultOutcome& outcome) {
             ASSERT_LE(outcome.index, calls.size()) << "one call more";
             const Step& step = calls[outcome.index - 1];
             EXPECT_EQ(outcome.function, step.function);
             EXPECT_EQ(outcome.thrown ? wincrypt_keys::ending(outcome) : answer, step.ending);
             const bool failed = outcome.thrown != nullptr;
             EXPECT_EQ(containers().size(), failed ? 1U : 2U) << "no new container without a request";
             EXPECT_EQ(containers().front(), L"box");
             const auto records = logTexts(Severity::info);
             const bool refusedEarly = outcome.index <= 2;
             EXPECT_EQ(records.empty(), refusedEarly) << "the subject comes first";
             if (!refusedEarly) {
                 EXPECT_EQ(records.back(),
                           std::string("wincrypt: certificate request: ") + (failed ? "failed" : "done"));
             }
         },
         faultCode});
    EXPECT_EQ(count, calls.size());
    EXPECT_EQ(answer, same) << "nothing failed";
}

TEST_F(CsrFault, OfTheDeletionIsTriedAgainAndTheFirstCodeIsReported) {
    // The second acquisition is the deletion: refused while the container is in use, then done.
    service().failFunction("CryptGenKey", 5);
    int acquisitions = 0;
    service().on.CryptAcquireContextW = [&](unsigned long* handle, const wchar_t* container, const wchar_t* provider,
                                            DWORD type, DWORD flags) -> BOOL {
        return ++acquisitions == 2 ? static_cast<BOOL>(service_double::fail(32))
                                   : Defaults::CryptAcquireContextW(handle, container, provider, type, flags);
    };
    EXPECT_EQ(thrownBy<SystemException>([&] { create(); }), at("generateKey", 5));
    EXPECT_EQ(acquisitions, 3);
    EXPECT_EQ(containers().size(), 1U);
}

} // namespace
} // namespace wincrypt_signatures
