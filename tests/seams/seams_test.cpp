// The three seams of the house: host and plug-in, plug-in and service, service and primitives. Nothing crosses them
// sideways, neither in what the linker binds nor in what a source file includes.

#include "capi/entry_points.h"
#include "support/process.hpp"
#include "support/temp_folder.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::set<std::string> exportedFunctions(const std::string& library) {
    const auto symbols = test_support::run({"nm", "-D", "--defined-only", "--format=posix", library});
    EXPECT_EQ(symbols.exit, 0) << symbols.err;
    std::set<std::string> names;
    std::istringstream lines(symbols.out);
    for (std::string line; std::getline(lines, line);) {
        names.insert(line.substr(0, line.find(' ')));
    }
    return names;
}

/// "file: included" for every include in `folder` that matches `pattern`.
std::vector<std::string> includes(const std::string& folder, const std::string& pattern) {
    const std::regex include("#include [<\"](" + pattern + ")");
    std::vector<std::string> found;
    std::size_t filesRead = 0;
    for (const auto& entry : fs::recursive_directory_iterator(fs::path(SOURCE_ROOT) / folder)) {
        const auto extension = entry.path().extension();
        if (extension != ".cpp" && extension != ".hpp" && extension != ".h") {
            continue;
        }
        ++filesRead;
        std::istringstream lines(test_support::readFile(entry.path().string()));
        for (std::string line; std::getline(lines, line);) {
            if (std::regex_search(line, include)) {
                found.push_back(entry.path().filename().string() + ": " + line);
            }
        }
    }
    EXPECT_GT(filesRead, 0U) << folder;
    return found;
}

TEST(Seams, ThePluginNeedsNeitherOpensslNorAService) {
    const auto dynamic = test_support::run({"readelf", "-d", PLUGIN_LIBRARY});
    ASSERT_EQ(dynamic.exit, 0) << dynamic.err;
    EXPECT_THAT(dynamic.out, HasSubstr("NEEDED"));
    EXPECT_THAT(dynamic.out, Not(HasSubstr("libcrypto")));
    EXPECT_THAT(dynamic.out, Not(HasSubstr("libssl")));
    EXPECT_THAT(dynamic.out, Not(HasSubstr("klunortredi_csp")));
}

TEST(Seams, TheServiceExportsTheEntryPointsAndNothingElse) {
    std::set<std::string> expected;
#define EXPECT_SYMBOL(reach, qualifier, result, member, pointer, symbol, parameters, arguments) expected.insert(symbol);
    KLUNORTREDI_ENTRY_POINTS(EXPECT_SYMBOL)
#undef EXPECT_SYMBOL
    EXPECT_EQ(expected.size(), 59U);
    EXPECT_EQ(exportedFunctions(SERVICE_LIBRARY), expected);
}

TEST(Seams, TheServiceNeedsNoHostAndNoPlugin) {
    const auto dynamic = test_support::run({"readelf", "-d", SERVICE_LIBRARY});
    ASSERT_EQ(dynamic.exit, 0) << dynamic.err;
    EXPECT_THAT(dynamic.out, HasSubstr("libcrypto"));
    EXPECT_THAT(dynamic.out, Not(HasSubstr("orvik")));
    EXPECT_THAT(dynamic.out, Not(HasSubstr("wincrypt")));
}

TEST(Seams, NobodyIsLinkedWithTheHttpLibrary) {
    for (const char* file : {HOST_LIBRARY, PLUGIN_LIBRARY, SERVICE_LIBRARY, COMMAND, ADMINISTRATION}) {
        const auto dynamic = test_support::run({"readelf", "-d", file});
        ASSERT_EQ(dynamic.exit, 0) << dynamic.err;
        EXPECT_THAT(dynamic.out, HasSubstr("NEEDED")) << file;
        EXPECT_THAT(dynamic.out, Not(HasSubstr("libcurl"))) << file << ": it is opened at the first request";
    }
}

TEST(Seams, NobodyIsLinkedWithTheXmlLibrary) {
    for (const char* file : {HOST_LIBRARY, PLUGIN_LIBRARY, SERVICE_LIBRARY, COMMAND, ADMINISTRATION}) {
        const auto dynamic = test_support::run({"readelf", "-d", file});
        ASSERT_EQ(dynamic.exit, 0) << dynamic.err;
        EXPECT_THAT(dynamic.out, HasSubstr("NEEDED")) << file;
        EXPECT_THAT(dynamic.out, Not(HasSubstr("libxml2"))) << file << ": it is opened with the first document";
    }
}

TEST(Seams, TheHttpClientIncludesNothingOfOurs) {
    EXPECT_THAT(includes("net", "orvik/|capi/|csp/|cli/|crypto/|core/|asn1/|text/|x509/|chains/|support/"), IsEmpty());
}

TEST(Seams, ThePluginIncludesNeitherOpensslNorTheServiceNorTheCommand) {
    EXPECT_THAT(
        includes("libs", "openssl/|net/|curl/|csp/|cli/|exports/|keys/|stores/|objects/|messages/|chains/|x509/|asn1/"),
        IsEmpty());
}

TEST(Seams, ThePluginKnowsNothingOfTheFrameworksTimeStamping) {
    EXPECT_THAT(includes("libs/crypto", "orvik/plugin/crypto/timestamp_tools|timestamp_glue"), IsEmpty());
    const auto symbols = test_support::run({"nm", "-D", PLUGIN_LIBRARY});
    EXPECT_EQ(symbols.exit, 0) << symbols.err;
    EXPECT_THAT(symbols.out, Not(HasSubstr("TimestampTools")));
}

TEST(Seams, TheLinkBetweenThemUsesPublicHeadersOnly) {
    EXPECT_THAT(
        includes("libs/timestamp_glue", "openssl/|curl/|(decoded_structure|struct_type|decoding_message)\\.hpp"),
        IsEmpty());
}

TEST(Seams, TheServiceIncludesNeitherHostNorPlugin) {
    EXPECT_THAT(includes("csp", "orvik/|crypto/wincrypt/|boost/"), IsEmpty());
}

TEST(Seams, TheHostIncludesNeitherPluginNorServiceNorCommand) {
    EXPECT_THAT(includes("host", "crypto/wincrypt/|capi/|csp/|cli/"), IsEmpty());
}

TEST(Seams, TheInterfaceTypesIncludeNothingOfOurs) {
    EXPECT_THAT(includes("capi", "orvik/|crypto/|openssl/"), IsEmpty());
}

/// The rooms of the service, lower ones first. A room includes itself and rooms of lower levels; rooms of one level
/// do not include each other.
const std::map<std::string, int> levelOfRoom{
    {"core", 0},    {"asn1", 1},   {"text", 1},     {"crypto", 2}, {"x509", 3},    {"keys", 4},
    {"objects", 5}, {"stores", 5}, {"messages", 6}, {"chains", 6}, {"exports", 7},
};

TEST(Seams, RoomsOfTheServiceIncludeLowerRoomsOnly) {
    std::set<std::string> rooms;
    for (const auto& entry : fs::directory_iterator(fs::path(SOURCE_ROOT) / "csp/src")) {
        rooms.insert(entry.path().filename().string());
    }
    std::set<std::string> known;
    for (const auto& [room, level] : levelOfRoom) {
        known.insert(room);
    }
    ASSERT_EQ(rooms, known) << "each room has a level here";
    for (const auto& [room, level] : levelOfRoom) {
        for (const auto& [other, otherLevel] : levelOfRoom) {
            if (other != room && otherLevel >= level) {
                EXPECT_THAT(includes("csp/src/" + room, other + "/"), IsEmpty()) << room << " includes " << other;
            }
        }
    }
}

/// The OpenSSL owners of the host are a room below the others.
TEST(Seams, TheHostsOpensslOwnersIncludeNoOtherRoom) {
    EXPECT_THAT(includes("host/src/ossl", "orvik/|crypto/|exception/|ssl/|system/|text/|xml/"), IsEmpty());
}

TEST(Seams, ForwardersIncludeNoTools) {
    for (const auto& line : includes("libs/crypto/wincrypt/src", "crypto/wincrypt/tools|.*tools")) {
        EXPECT_THAT(line, Not(HasSubstr("wincrypt_handler.")));
    }
}

TEST(Seams, VariablesThatNameCodeOrDataAreNotReadWithAnothersPrivileges) {
    // In a program with more privileges than its caller, secure_getenv finds no variable at all.
    const std::map<std::string, std::string> harmless{
        {"cli/common/pin_source.cpp", "the variable whose name the user gives, for a PIN"},
        {"csp/src/core/warning.cpp", "whether warnings are printed"},
    };
    const std::regex call("[^_]getenv\\(");
    std::set<std::string> found;
    for (const char* const folder : {"cli", "csp", "host", "libs", "net"}) {
        for (const auto& entry : fs::recursive_directory_iterator(fs::path(SOURCE_ROOT) / folder)) {
            const std::string extension = entry.path().extension().string();
            if (extension != ".cpp" && extension != ".hpp") {
                continue;
            }
            std::ifstream file(entry.path());
            const std::string text{std::istreambuf_iterator<char>(file), {}};
            if (std::regex_search(text, call)) {
                found.insert(fs::relative(entry.path(), SOURCE_ROOT).string());
            }
        }
    }
    for (const std::string& file : found) {
        EXPECT_TRUE(harmless.contains(file)) << file << " reads a variable with getenv";
    }
    EXPECT_EQ(found.size(), harmless.size());
}

TEST(Consumers, OfAddSubdirectoryBuildTheEmbeddedServiceBesideThePlugin) {
    const test_support::TempFolder folder;
    folder.write("app.cpp", "int main() {}\n");
    folder.write("CMakeLists.txt", "cmake_minimum_required(VERSION 3.25)\nproject(consumer CXX)\n"
                                   "add_subdirectory(" SOURCE_ROOT " klunortredi)\nadd_executable(app app.cpp)\n"
                                   "target_link_libraries(app PRIVATE klunortredi_wincrypt)\n");
    const auto configured = test_support::run(
        {CMAKE, "-S", folder.path(), "-B", folder / "build", "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release"});
    ASSERT_EQ(configured.exit, 0) << configured.err;
    // What a build of the application would do; a plug-in with its service takes minutes.
    const auto plan = test_support::run({NINJA, "-C", folder / "build", "-t", "commands", "app"});
    ASSERT_EQ(plan.exit, 0) << plan.err;
    EXPECT_THAT(plan.out, HasSubstr("lib/libklunortredi_wincrypt.so"));
    EXPECT_THAT(plan.out, HasSubstr("lib/libklunortredi_csp.so")) << "where the plug-in looks for it";
    EXPECT_THAT(plan.out, Not(HasSubstr("gtest"))) << "tests are for those who develop it";
}

TEST(Seams, LibrariesAreHardened) {
    for (const char* library : {PLUGIN_LIBRARY, SERVICE_LIBRARY}) {
        const auto headers = test_support::run({"readelf", "-lWd", library});
        EXPECT_THAT(headers.out, HasSubstr("GNU_RELRO")) << library;
        EXPECT_THAT(headers.out, ContainsRegex("FLAGS.*NOW")) << library;
        EXPECT_THAT(headers.out, Not(ContainsRegex("GNU_STACK.*RWE"))) << library;
    }
}

/// "Suite.Name" of every test in the sources.
std::set<std::string> testNames() {
    std::set<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(fs::path(SOURCE_ROOT) / "tests")) {
        if (entry.path().extension() != ".cpp") {
            continue;
        }
        const std::string source = test_support::readFile(entry.path().string());
        // TEST, TEST_F, TEST_P and TYPED_TEST
        for (std::size_t at = source.find("TEST"); at != std::string::npos; at = source.find("TEST", at + 1)) {
            const std::size_t open = source.find('(', at);
            std::string pair = source.substr(open + 1, source.find(')', open) - open - 1);
            std::erase_if(pair, [](char letter) { return letter == ' ' || letter == '\n'; });
            std::replace(pair.begin(), pair.end(), ',', '.');
            names.insert(pair);
        }
    }
    return names;
}

TEST(Documents, NameTestsThatExist) {
    const std::set<std::string> existing = testNames();
    EXPECT_GT(existing.size(), 2000U);
    const std::regex quoted("`([A-Z][A-Za-z0-9]+\\.[A-Z][A-Za-z0-9]+)`");
    std::size_t named = 0;
    for (const auto& entry : fs::directory_iterator(fs::path(SOURCE_ROOT) / "docs")) {
        std::istringstream lines(test_support::readFile(entry.path().string()));
        for (std::string line; std::getline(lines, line);) {
            for (std::sregex_iterator at(line.begin(), line.end(), quoted), end; at != end; ++at) {
                ++named;
                EXPECT_EQ(existing.count((*at)[1]), 1U) << entry.path().filename() << ": " << (*at)[1];
            }
        }
    }
    EXPECT_GT(named, 100U);
}

} // namespace
