// How the command starts: where it finds its service, which words it reads, how it ends.

#include "workplace.hpp"

#include <gmock/gmock.h>

#include <filesystem>

namespace cli_test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* verbs[] = {"info",    "providers", "containers", "request", "install", "certs",
                                 "chain",   "sign",      "timestamp",  "cosign",  "verify",  "encrypt",
                                 "decrypt", "random",    "hash",       "demo"};

TEST(Starting, TheServiceIsFoundBesideTheProgramWhateverItIsCalled) {
    const Workplace place;
    place.folder().write("klunortredi", "not the program");
    place.folder().write("libklunortredi_csp.so", "not the service");
    RunOptions here;
    here.folder = place.folder().path();
    const Outcome named = place.cli({"info", "--json"});
    const Outcome called =
        test_support::run({"bash", "-c", R"(exec -a klunortredi "$0" info --json)", KLUNORTREDI}, here);
    EXPECT_EQ(called.exit, 0) << called.err;
    const Json service = Json::parse(called.out)["service"];
    EXPECT_EQ(service, Json::parse(named.out)["service"]);
    EXPECT_THAT(service.dump(), Not(HasSubstr(place.folder().path())));
}

TEST(Starting, LibrariesAreNotLookedForInTheCurrentFolder) {
    const std::string build = BUILD_FOLDER;
    for (const std::string& file : {std::string(KLUNORTREDI), build + "/bin/klunortredi-csp",
                                    build + "/lib/libklunortredi_wincrypt.so", build + "/lib/liborvik-host.so"}) {
        const auto dynamic = test_support::run({"readelf", "-dW", file});
        ASSERT_EQ(dynamic.exit, 0) << dynamic.err;
        EXPECT_THAT(dynamic.out, Not(testing::ContainsRegex(R"(R(UN)?PATH.*(\[:|::|:\]))"))) << file;
    }
}

TEST(Starting, AnInstalledCommandFindsItsServiceAndLibraries) {
    const Workplace place;
    const std::string prefix = place.folder().path() + "/prefix";
    const auto installed = test_support::run({CMAKE, "--install", BUILD_FOLDER, "--prefix", prefix});
    ASSERT_EQ(installed.exit, 0) << installed.err;
    const auto info = test_support::run({prefix + "/bin/klunortredi", "info", "--json"});
    ASSERT_EQ(info.exit, 0) << info.err;
    EXPECT_THAT(Json::parse(info.out)["service"].get<std::string>(), testing::StartsWith(prefix));
    const auto administration = test_support::run({prefix + "/bin/klunortredi-csp", "--help"});
    EXPECT_EQ(administration.exit, 0) << administration.err;
}

TEST(Starting, EveryVerbIsListed) {
    const Workplace place;
    const Outcome help = place.cli({"--help"});
    EXPECT_EQ(help.exit, 0);
    for (const char* verb : verbs) {
        EXPECT_THAT(help.out, HasSubstr(std::string("\n  ") + verb + " ")) << verb;
    }
}

TEST(Starting, AVerbIsTheSameAsTheFirstWordAndAfterAnOption) {
    const Workplace place;
    for (const char* verb : verbs) {
        const Outcome first = place.cli({verb, "--help"});
        EXPECT_EQ(first.exit, 0) << verb;
        EXPECT_THAT(first.out, HasSubstr("klunortredi " + std::string(verb))) << verb;
        EXPECT_EQ(first.out, place.cli({"--quiet", verb, "--help"}).out) << verb;
    }
}

TEST(Starting, ANameThatIsAVerbTooIsAName) {
    const Workplace place;
    place.folder().write("info", "x");
    for (const bool optionFirst : {false, true}) {
        std::vector<std::string> words{"hash", "info"};
        if (optionFirst) {
            words.insert(words.begin(), "--quiet");
        }
        const Outcome hashed = place.cli(words);
        EXPECT_EQ(hashed.exit, 0) << hashed.err;
        EXPECT_THAT(hashed.out, HasSubstr("info"));
    }
}

TEST(Starting, RecordsGoToStandardErrorWhenTheyAreAskedFor) {
    const Workplace place;
    EXPECT_THAT(place.cli({"providers", "-vvv"}).err, HasSubstr("info: cryptEnumProvidersFunction_ =1\n"));
    EXPECT_THAT(place.cli({"providers", "-v"}).err, Not(HasSubstr("info: ")));
    EXPECT_THAT(place.cli({"providers"}).err, IsEmpty());
}

TEST(Starting, AReportThatDoesNotReachItsReaderIsAFailure) {
    const Workplace place;
    RunOptions here;
    here.folder = place.folder().path();
    EXPECT_EQ(test_support::run({"bash", "-c", R"("$0" providers > /dev/full)", KLUNORTREDI}, here).exit, 3);
}

} // namespace
} // namespace cli_test
