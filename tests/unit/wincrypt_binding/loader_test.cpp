// Which service is picked, and how its entry points are found.

#include "binding.hpp"
#include "support/temp_folder.hpp"

#include <boost/filesystem/operations.hpp>

#include <cstdlib>
#include <fstream>

namespace wincrypt_binding {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned vipNetFamily = 3;
constexpr unsigned cryptoProFamily = 4;
constexpr const char* unloadRecord = "KLUNORTREDI_UNLOAD_RECORD";
const std::string absentFile = "/nonexistent/library.so";
/// A name longer than any may be: asking whether it is there fails, for whichever user.
const std::string unaskableFile = "/" + std::string(300, 'x') + "/library.so";

template <class Tag>
class WithSlots : public DoubleFixture {
protected:
    WithSlots() : DoubleFixture(Tag::slots()) {}

    /// Of the libraries "first" and "second", that the second one is not asked.
    void expectFirstLibraryAlone() const {
        EXPECT_EQ(libraryCalled(), "first");
        EXPECT_FALSE(wincrypt::CertCloseStore(nullptr, 0));
        EXPECT_THAT(log(), ElementsAre(LogRecord{Severity::info, "0, function=CertCloseStore"}));
    }
};

#define WITH_SLOTS(name, ...)                                                                                          \
    struct name##Slots {                                                                                               \
        static Slots slots() {                                                                                         \
            return Slots{__VA_ARGS__};                                                                                 \
        }                                                                                                              \
    };                                                                                                                 \
    using name = WithSlots<name##Slots>

WITH_SLOTS(BothServices, .vipNet = "vipnet", .cryptoPro = "full");
WITH_SLOTS(OnlyVipNet, .vipNet = "vipnet");
WITH_SLOTS(OnlyCryptoPro, .cryptoPro = "full");
WITH_SLOTS(VipNetWithoutItsMainLibrary, .vipNet = absentFile, .kernel32 = "second", .cryptoPro = "full");
WITH_SLOTS(OnlyKernel32, .vipNet = absentFile, .kernel32 = "second");
WITH_SLOTS(OnlyCryptoApi, .kernel32 = "second", .cryptoApi = "full", .cryptoApi2 = "vipnet");
WITH_SLOTS(TwoLibraries, .vipNet = "first", .kernel32 = "second");
WITH_SLOTS(SuffixedBeforePlain, .vipNet = "sign_a", .kernel32 = "full");
WITH_SLOTS(MissingKernel32, .vipNet = "first", .kernel32 = absentFile);
WITH_SLOTS(UnaskableKernel32, .vipNet = "first", .kernel32 = unaskableFile);
WITH_SLOTS(UnaskableVipNet, .vipNet = unaskableFile, .cryptoPro = "full");
WITH_SLOTS(CryptoProBesideKernel32, .kernel32 = "second", .cryptoPro = "first");
WITH_SLOTS(OnlyCryptSignHashA, .cryptoPro = "sign_a");
WITH_SLOTS(OnlyCryptAcquireContextW, .cryptoPro = "acquire_w");
WITH_SLOTS(OnlyCryptAcquireContextA, .cryptoPro = "acquire_a");
WITH_SLOTS(BothSpellings, .cryptoPro = "both_spellings");
WITH_SLOTS(UnresolvedFunction, .cryptoPro = "unresolved");
WITH_SLOTS(NoEntryPoints, .cryptoPro = "empty");

TEST_F(BothServices, PrefersVipNet) {
    EXPECT_EQ(libraryCalled(), "vipnet");
}

TEST_F(BothServices, ReportsTheOtherOneAsInstalledWithoutChangingTheService) {
    EXPECT_EQ(wincrypt::CoInitializeEx(cryptoProFamily), 1U);
    EXPECT_EQ(libraryCalled(), "vipnet");
    EXPECT_EQ(wincrypt::CoInitializeEx(vipNetFamily), 1U);
}

TEST_F(VipNetWithoutItsMainLibrary, PicksTheOtherService) {
    EXPECT_EQ(libraryCalled(), "full");
    EXPECT_EQ(wincrypt::CoInitializeEx(vipNetFamily), 0U);
}

TEST_F(UnaskableVipNet, PicksTheOtherService) {
    EXPECT_EQ(libraryCalled(), "full");
    EXPECT_EQ(wincrypt::CoInitializeEx(vipNetFamily), 0U);
}

TEST_F(OnlyKernel32, PicksNoService) {
    EXPECT_EQ(thrownBy<CryptoException>([] { wincrypt::CryptGenRandom(0, 0, nullptr); }), noServiceInstalled);
}

TEST_F(OnlyCryptoApi, PicksNoService) {
    EXPECT_EQ(thrownBy<CryptoException>([] { wincrypt::CryptReleaseContext(1, 0); }), noServiceInstalled);
    EXPECT_THAT(service().calls(), IsEmpty());
}

TEST_F(OnlyCryptoApi, ThrowsFromTheSizingHelpersToo) {
    EXPECT_EQ(thrownBy<CryptoException>([] { wincrypt::CryptGetProvParamEx(1, 4); }), noServiceInstalled);
    EXPECT_EQ(thrownBy<CryptoException>([] { wincrypt::CertEnumCertificatesInStoreEx("my"); }), noServiceInstalled);
}

TEST_F(OnlyCryptoApi, ThrowsFromCoInitializeExForEveryFamily) {
    for (const unsigned family : {0U, vipNetFamily, cryptoProFamily}) {
        EXPECT_EQ(thrownBy<CryptoException>([&] { wincrypt::CoInitializeEx(family); }), noServiceInstalled);
    }
}

TEST_F(OnlyCryptoApi, HasNoLastError) {
    EXPECT_NO_THROW(wincrypt::SetLastErrorEx(5));
    EXPECT_NO_THROW(wincrypt::SetLastError(5));
    EXPECT_EQ(wincrypt::GetLastErrorEx(), 0U);
    EXPECT_EQ(SystemException().code().value(), 0);
}

TEST_F(OnlyCryptoApi, EnumeratesNoProviders) {
    EXPECT_THAT(wincrypt::EnumProvidersEx(), IsEmpty());
}

TEST_F(BothServices, AreChosenBetweenByTheFirstQuestionForTheLastError) {
    service().on.GetLastError = [] { return DWORD{7}; };
    EXPECT_EQ(wincrypt::GetLastError(), 0U) << "which asks nobody";
    EXPECT_EQ(wincrypt::GetLastErrorEx(), 7U);
    setenv("KLUNORTREDI_VIPNET", "", 1);
    EXPECT_EQ(libraryCalled(), "vipnet") << "chosen already";
}

TEST_F(OnlyCryptoApi, ReportsNoErrorOfItsOwn) {
    EXPECT_EQ(wincrypt::GetLastError(), 0U);
}

TEST_F(OnlyVipNet, ReportsWhichFamilyIsInstalled) {
    EXPECT_EQ(wincrypt::CoInitializeEx(cryptoProFamily), 0U);
    EXPECT_EQ(libraryCalled(), "vipnet");
    EXPECT_EQ(wincrypt::CoInitializeEx(vipNetFamily), 1U);
}

TEST_F(OnlyCryptoPro, ReportsWhichFamilyIsInstalled) {
    EXPECT_EQ(wincrypt::CoInitializeEx(vipNetFamily), 0U);
    EXPECT_EQ(wincrypt::CoInitializeEx(cryptoProFamily), 1U);
    EXPECT_EQ(libraryCalled(), "full");
}

TEST_F(OnlyCryptoPro, ReportsOtherFamiliesAsNotInstalled) {
    for (const unsigned family : {0U, 1U, 2U, 5U, 0xFFFFFFFFU}) {
        EXPECT_EQ(wincrypt::CoInitializeEx(family), 0U) << family;
    }
}

TEST_F(OnlyCryptoPro, HasNothingToDoForCoInitializeAndCoUninitialize) {
    EXPECT_EQ(wincrypt::CoInitialize(nullptr), 0);
    wincrypt::CoUninitialize();
    EXPECT_THAT(service().calls(), IsEmpty());
}

TEST_F(OnlyCryptoPro, StaysWithItsServiceWhenAnotherAppears) {
    ASSERT_EQ(libraryCalled(), "full");
    setenv("KLUNORTREDI_VIPNET", service_double::libraryPath("vipnet").c_str(), 1);
    EXPECT_EQ(libraryCalled(), "full");
    EXPECT_EQ(wincrypt::CoInitializeEx(vipNetFamily), 0U);
}

TEST_F(OnlyCryptoPro, LogsTheResolutionOfTheProviderEnumerationOnce) {
    wincrypt::EnumProvidersEx();
    wincrypt::EnumProvidersEx();
    EXPECT_THAT(log(), ElementsAre(LogRecord{Severity::info, "cryptEnumProvidersFunction_ =1"}));
}

TEST_F(TwoLibraries, TakesFromTheSecondWhatTheFirstLacks) {
    service().on.CertCloseStore = [](void*, DWORD) { return 1; };
    EXPECT_EQ(libraryCalled(), "first");
    wincrypt::CertCloseStore(nullptr, 0);
    EXPECT_EQ(service().calls().back().library, "second");
}

TEST_F(TwoLibraries, ReadsTheLastErrorFromTheSecond) {
    service().failFunction("CryptGenRandom", 0x80090020);
    EXPECT_FALSE(wincrypt::CryptGenRandom(1, 0, nullptr));
    EXPECT_EQ(wincrypt::GetLastErrorEx(), 0x80090020U);
}

/// Registered before the service is looked for, so it runs after the loader is gone, but before what is still loaded is
/// unloaded by the system.
void recordExit() {
    std::ofstream(std::getenv(unloadRecord), std::ios::app) << "exit\n";
}

TEST_F(TwoLibraries, AreClosedInOrderWhenTheProcessEnds) {
    const test_support::TempFolder folder;
    setenv(unloadRecord, (folder / "record").c_str(), 1);
    EXPECT_EXIT(
        {
            std::atexit(recordExit);
            libraryCalled();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(folder.read("record"), "first\nsecond\nexit\n");
}

TEST_F(SuffixedBeforePlain, TakesTheFirstLibrarysSpelling) {
    wincrypt::CryptSignHashW(1, 2, nullptr, 0, nullptr, nullptr);
    EXPECT_EQ(service().calls().back().library, "sign_a");
}

TEST_F(MissingKernel32, LeavesTheMissingLibraryOut) {
    expectFirstLibraryAlone();
}

TEST_F(UnaskableKernel32, LeavesThatLibraryOut) {
    expectFirstLibraryAlone();
}

TEST_F(CryptoProBesideKernel32, IsOneLibraryAlone) {
    expectFirstLibraryAlone();
}

TEST_F(OnlyCryptSignHashA, SatisfiesCryptSignHashW) {
    service().on.CryptSignHashW = [](unsigned long, DWORD, const char*, DWORD, BYTE*, DWORD*) { return 7; };
    EXPECT_EQ(wincrypt::CryptSignHashW(1, 2, nullptr, 0, nullptr, nullptr), 7);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(OnlyCryptAcquireContextW, SatisfiesCryptAcquireContextW) {
    service().on.CryptAcquireContextW = [](unsigned long*, const wchar_t*, const wchar_t*, DWORD, DWORD) { return 7; };
    EXPECT_EQ(wincrypt::CryptAcquireContextW(nullptr, nullptr, nullptr, 0, 0), 7);
}

TEST_F(OnlyCryptAcquireContextA, DoesNotSatisfyCryptAcquireContextW) {
    EXPECT_EQ(wincrypt::CryptAcquireContextW(nullptr, nullptr, nullptr, 0, 0), 0);
    EXPECT_THAT(log(), ElementsAre(LogRecord{Severity::info, "0, function=CryptAcquireContextW"}));
}

TEST_F(BothSpellings, TakesThePlainOne) {
    service().on.CryptGenRandom = [](unsigned long, DWORD, BYTE*) { return 7; };
    EXPECT_EQ(wincrypt::CryptGenRandom(1, 0, nullptr), 7);
}

TEST_F(UnresolvedFunction, LeavesTheRestOfItsLibraryUsable) {
    EXPECT_EQ(libraryCalled(), "unresolved");
}

TEST_F(NoEntryPoints, SearchesAMissingEntryPointAgainEachTime) {
    EXPECT_EQ(wincrypt::CryptGenRandom(1, 0, nullptr), 0);
    EXPECT_EQ(wincrypt::CryptGenRandom(1, 0, nullptr), 0);
    const LogRecord search{Severity::info, "0, function=CryptGenRandom"};
    EXPECT_THAT(log(), ElementsAre(search, search));
}

TEST_F(NoEntryPoints, LogsEveryFailedResolutionOfTheProviderEnumeration) {
    EXPECT_THAT(wincrypt::EnumProvidersEx(), IsEmpty());
    wincrypt::EnumProvidersEx();
    const LogRecord search{Severity::info, "0, function=CryptEnumProviders"};
    const LogRecord resolution{Severity::info, "cryptEnumProvidersFunction_ =0"};
    EXPECT_THAT(log(), ElementsAre(search, resolution, search, resolution));
}

TEST_F(NoEntryPoints, HasNoLastError) {
    wincrypt::SetLastErrorEx(5);
    EXPECT_EQ(wincrypt::GetLastErrorEx(), 0U);
}

/// A file that is there but is no library, made before the service is looked for.
class UnloadableLibrary : public DoubleFixture {
protected:
    explicit UnloadableLibrary(Slots slots = {}) : DoubleFixture(withFile(std::move(slots))) {}
    ~UnloadableLibrary() override { boost::filesystem::remove(file()); }

    static std::string file() {
        static const auto path = boost::filesystem::temp_directory_path() / boost::filesystem::unique_path();
        return path.string();
    }

private:
    static Slots withFile(Slots slots) {
        std::ofstream(file()) << "no library";
        (slots.kernel32.empty() ? slots.cryptoPro : slots.vipNet) = file();
        return slots;
    }
};

class UnloadableFirstLibrary : public UnloadableLibrary {
protected:
    UnloadableFirstLibrary() : UnloadableLibrary(Slots{.kernel32 = "full"}) {}
};

TEST_F(UnloadableFirstLibrary, IsSkippedInSilence) {
    EXPECT_EQ(libraryCalled(), "full");
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(UnloadableLibrary, AnswersNothingAndLogsNothing) {
    EXPECT_EQ(wincrypt::CryptGenRandom(1, 0, nullptr), 0);
    EXPECT_THAT(log(), IsEmpty());
}

} // namespace
} // namespace wincrypt_binding
