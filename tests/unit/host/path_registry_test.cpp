#include "orvik/plugin/path_registry.hpp"
#include "support/process.hpp"
#include "support/temp_folder.hpp"

#include <boost/filesystem/operations.hpp>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

using orvik::plugin::PathRegistry;
namespace fs = std::filesystem;

/// Slots with nothing set and an empty configuration folder.
class Paths : public testing::Test {
protected:
    Paths() {
        for (const auto* variable : {"KLUNORTREDI_SERVICE", "KLUNORTREDI_VIPNET", "KLUNORTREDI_KERNEL32",
                                     "KLUNORTREDI_CRYPTOPRO", "KLUNORTREDI_CRYPTOAPI", "KLUNORTREDI_CRYPTOAPI2"}) {
            unsetenv(variable);
        }
        setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
    }
    ~Paths() override { PathRegistry::setService({}); }

    void configure(const std::string& lines) {
        fs::create_directories(fs::path(folder_.path()) / "klunortredi");
        folder_.write("klunortredi/config", lines);
    }

    test_support::TempFolder folder_; // NOLINT: the tests' own
};

TEST_F(Paths, EnvironmentNamesEachSlotsLibrary) {
    setenv("KLUNORTREDI_VIPNET", "/v/crypt32.so", 1);
    setenv("KLUNORTREDI_KERNEL32", "/v/kernel32.so", 1);
    setenv("KLUNORTREDI_CRYPTOPRO", "/c/capi20.so", 1);
    setenv("KLUNORTREDI_CRYPTOAPI", "/a/one.so", 1);
    setenv("KLUNORTREDI_CRYPTOAPI2", "/a/two.so", 1);
    EXPECT_EQ(PathRegistry::vipNetResourceFile(), "/v/crypt32.so");
    EXPECT_EQ(PathRegistry::kernel32ResourceFile(), "/v/kernel32.so");
    EXPECT_EQ(PathRegistry::cryptoProResourceFile(), "/c/capi20.so");
    EXPECT_EQ(PathRegistry::cryptoApiResourceFile(), "/a/one.so");
    EXPECT_EQ(PathRegistry::cryptoApi2ResourceFile(), "/a/two.so");
}

TEST_F(Paths, AnEmptyVariableMeansNoService) {
    setenv("KLUNORTREDI_CRYPTOPRO", "", 1);
    setenv("KLUNORTREDI_VIPNET", "", 1);
    configure("cryptopro=/configured.so\nvipnet=/configured.so\n");
    EXPECT_TRUE(PathRegistry::cryptoProResourceFile().empty());
    EXPECT_TRUE(PathRegistry::vipNetResourceFile().empty());
}

TEST_F(Paths, TheConfigurationFileNamesEachSlotsLibrary) {
    configure("# services\n\n vipnet = /v/crypt32.so \nkernel32=/v/kernel32.so\ncryptopro=/c/capi20.so\n"
              "cryptoapi=/a/one.so\ncryptoapi2=/a/two.so\nno separator here\n=\n");
    EXPECT_EQ(PathRegistry::vipNetResourceFile(), "/v/crypt32.so");
    EXPECT_EQ(PathRegistry::kernel32ResourceFile(), "/v/kernel32.so");
    EXPECT_EQ(PathRegistry::cryptoProResourceFile(), "/c/capi20.so");
    EXPECT_EQ(PathRegistry::cryptoApiResourceFile(), "/a/one.so");
    EXPECT_EQ(PathRegistry::cryptoApi2ResourceFile(), "/a/two.so");
}

TEST_F(Paths, CommentsInTheConfigurationFileAreNoSettings) {
    setenv("KLUNORTREDI_KERNEL32", "", 1);
    configure("#cryptopro=/commented.so\ncryptopro=/c/a=b.so\n  # cryptopro=/commented.so\n");
    EXPECT_EQ(PathRegistry::cryptoProResourceFile(), "/c/a=b.so");
}

TEST_F(Paths, AnEmptyConfiguredPathMeansNoService) {
    configure("cryptopro=\n");
    EXPECT_TRUE(PathRegistry::cryptoProResourceFile().empty());
}

TEST_F(Paths, EnvironmentGoesBeforeTheConfigurationFile) {
    configure("cryptopro=/configured.so\n");
    setenv("KLUNORTREDI_CRYPTOPRO", "/environment.so", 1);
    EXPECT_EQ(PathRegistry::cryptoProResourceFile(), "/environment.so");
}

TEST_F(Paths, TheConfigurationFileIsLookedForInTheHomeFolderToo) {
    fs::create_directories(fs::path(folder_.path()) / ".config/klunortredi");
    folder_.write(".config/klunortredi/config", "cryptopro=/home.so\n");
    setenv("HOME", folder_.path().c_str(), 1);
    unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(PathRegistry::cryptoProResourceFile(), "/home.so");
    setenv("XDG_CONFIG_HOME", "relative", 1);
    EXPECT_EQ(PathRegistry::cryptoProResourceFile(), "/home.so");
}

TEST_F(Paths, AChosenServiceStandsAlone) {
    setenv("KLUNORTREDI_CRYPTOPRO", "/environment.so", 1);
    setenv("KLUNORTREDI_VIPNET", "/v/crypt32.so", 1);
    setenv("KLUNORTREDI_KERNEL32", "/v/kernel32.so", 1);
    setenv("KLUNORTREDI_CRYPTOAPI", "/a/one.so", 1);
    setenv("KLUNORTREDI_CRYPTOAPI2", "/a/two.so", 1);
    PathRegistry::setService("/chosen.so");
    EXPECT_EQ(PathRegistry::cryptoProResourceFile(), "/chosen.so");
    EXPECT_TRUE(PathRegistry::vipNetResourceFile().empty());
    EXPECT_TRUE(PathRegistry::kernel32ResourceFile().empty());
    EXPECT_TRUE(PathRegistry::cryptoApiResourceFile().empty());
    EXPECT_TRUE(PathRegistry::cryptoApi2ResourceFile().empty());
    PathRegistry::setService({});
    EXPECT_EQ(PathRegistry::cryptoProResourceFile(), "/environment.so");
}

TEST_F(Paths, AVariableChoosesTheServiceUnlessTheApplicationDoes) {
    setenv("KLUNORTREDI_SERVICE", "/by-variable.so", 1);
    setenv("KLUNORTREDI_VIPNET", "/v/crypt32.so", 1);
    EXPECT_EQ(PathRegistry::cryptoProResourceFile(), "/by-variable.so");
    EXPECT_TRUE(PathRegistry::vipNetResourceFile().empty());
    PathRegistry::setService("/by-application.so");
    EXPECT_EQ(PathRegistry::cryptoProResourceFile(), "/by-application.so");
}

/// The framework's library in a folder of its own. A vendor's service that this machine may have still goes before the
/// embedded one.
class FrameworkElsewhere : public Paths {
protected:
    FrameworkElsewhere() {
        fs::create_directories(fs::path(folder_.path()) / "x/lib");
        fs::copy_file(HOST_LIBRARY, fs::path(folder_.path()) / "x/lib" / fs::path(HOST_LIBRARY).filename());
    }

    std::string found() {
        test_support::RunOptions options;
        options.environment = {{"LD_LIBRARY_PATH", folder_ / "x/lib"}};
        options.folder = "/";
        const auto printed = test_support::run({PRINT_EMBEDDED_PLACE}, options);
        EXPECT_EQ(printed.exit, 0) << printed.err;
        return printed.out;
    }

    static bool vendorInstalled() { return fs::exists("/opt/cprocsp/lib"); }
};

class EmbeddedService : public FrameworkElsewhere, public testing::WithParamInterface<const char*> {};

TEST_P(EmbeddedService, IsFoundAroundTheFramework) {
    const fs::path library = fs::path(folder_.path()) / "x/lib" / GetParam();
    fs::create_directories(library.parent_path());
    folder_.write(fs::relative(library, folder_.path()).string(), "");
    if (vendorInstalled()) {
        EXPECT_EQ(found().find("/opt/cprocsp/"), 0U);
    } else {
        EXPECT_EQ(found(), fs::canonical(library).string());
    }
}

INSTANTIATE_TEST_SUITE_P(Layouts, EmbeddedService,
                         testing::Values("libklunortredi_csp.so", "klunortredi/libklunortredi_csp.so"));

TEST_F(FrameworkElsewhere, FindsNoEmbeddedServiceThatIsNotThere) {
    if (vendorInstalled()) {
        EXPECT_EQ(found().find("/opt/cprocsp/"), 0U);
    } else {
        EXPECT_EQ(found(), "");
    }
}

} // namespace
