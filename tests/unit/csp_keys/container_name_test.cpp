#include "core/error.hpp"
#include "keys/container_name.hpp"
#include "service.hpp"

#include <filesystem>
#include <set>

namespace csp_keys {

using namespace klunortredi::csp;

namespace {

constexpr DWORD gost = capi::PROV_GOST_2012_256;

DWORD refusalOf(std::wstring_view name) {
    try {
        parseContainerName(name, gost);
        return capi::ERROR_SUCCESS;
    } catch (const ApiError& e) {
        return e.code();
    }
}

} // namespace

TEST(ContainerName, EveryFormMeansThePlainName) {
    for (const wchar_t* form : {L"имя", L"KLUNORTREDI/имя", L"\\\\.\\HDIMAGE\\имя", L"\\\\.\\ANY READER\\имя",
                                L"\\\\.\\HDIMAGE\\KLUNORTREDI/имя"}) {
        EXPECT_EQ(parseContainerName(form, gost).name, "имя");
    }
}

TEST(ContainerName, LastComponentOfTheQualifiedNameIsThePlainOne) {
    const ContainerId id{"имя. с точкой", gost};
    EXPECT_EQ(std::filesystem::path(qualifiedName(id)).filename().string(), id.name);
}

TEST(ContainerName, NamesThatLeadElsewhereAreRefused) {
    for (const std::wstring_view name :
         {L"", L".", L"..", L"a/b", L"/etc/passwd", L"../x", L"KLUNORTREDI/", L"KLUNORTREDI/../x", L"KLUNORTREDI/a/b",
          L"a\\b", L"\\\\.\\x", L"\\\\.\\HDIMAGE\\", L"\\\\.\\HDIMAGE\\..", L"a\nb", L"a\x7f", L"\xD800"}) {
        EXPECT_EQ(refusalOf(name), capi::NTE_BAD_KEYSET_PARAM);
    }
    EXPECT_EQ(refusalOf(std::wstring_view(L"a\0b", 3)), capi::NTE_BAD_KEYSET_PARAM);
}

TEST(ContainerName, LengthIsBoundedByWhatAFileNameHolds) {
    EXPECT_EQ(refusalOf(std::wstring(118, L'я')), capi::ERROR_SUCCESS);
    EXPECT_EQ(refusalOf(std::wstring(119, L'я')), capi::NTE_BAD_KEYSET_PARAM);
    EXPECT_EQ(refusalOf(std::wstring(79, L'%')), capi::ERROR_SUCCESS);
    EXPECT_EQ(refusalOf(std::wstring(80, L'%')), capi::NTE_BAD_KEYSET_PARAM);
}

TEST(ContainerName, DirectoriesAreInjectiveAndReversible) {
    std::set<std::string> directories;
    for (const char* name : {"a", "A", ".a", "%2Ea", "%", "%25", "%%", "a.80", "имя", "a b", "...", "~"}) {
        for (const DWORD type : {80U, 81U}) {
            const std::string directory = directoryName({name, type});
            EXPECT_TRUE(directories.insert(directory).second) << directory;
            EXPECT_NE(directory.front(), '.');
            EXPECT_EQ(nameOfDirectory(directory, type), name);
            EXPECT_EQ(nameOfDirectory(directory, type == 80 ? 81 : 80), std::nullopt);
        }
    }
}

TEST(ContainerName, OtherDirectoriesAreNoContainers) {
    for (const char* directory :
         {".new-a.80", ".del-abc.80", ".80", "a", "%2.80", "%41.80", "a%2Eb.80", "lost+found"}) {
        EXPECT_EQ(nameOfDirectory(directory, gost), std::nullopt) << directory;
    }
}

TEST(ContainerName, TravelsInWindows1251ForTheProvidersOf2012) {
    EXPECT_EQ(parameterText("Ю", 80), "\xDE");
    EXPECT_EQ(parameterText("Ю", 81), "\xDE");
    EXPECT_EQ(parameterText("Ю", 75), "Ю");
    EXPECT_EQ(parameterText("Ю", 24), "Ю");
    EXPECT_THROW(parameterText("日", 80), ApiError);
}

} // namespace csp_keys
