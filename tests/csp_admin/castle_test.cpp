// Key files made by Bouncy Castle, where Java and its jars are installed.

#include "csp_admin/place.hpp"

#include <gmock/gmock.h>

#include <filesystem>

namespace admin_test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* jars = "/usr/share/java/bcprov.jar:/usr/share/java/bcpkix.jar:/usr/share/java/bcutil.jar";

class Castle : public testing::Test {
protected:
    void SetUp() override {
        if (!installed("javac") || !std::filesystem::exists("/usr/share/java/bcprov.jar")) {
            GTEST_SKIP() << "Java or Bouncy Castle is not installed";
        }
        place_.mustTool({"javac", "-cp", jars, "-d", "classes", JAVA_SOURCES "/MakePfx.java"});
    }

    void expectToSign(const std::string& kind) const {
        const std::string classPath = std::string(jars) + ":classes";
        place_.mustTool({"java", "-cp", classPath, "MakePfx", kind, "castle.p12", "secret"});
        const Outcome importing = place_.import({"castle.p12", "--name", kind});
        ASSERT_EQ(importing.exit, 0) << importing.err;
        EXPECT_THAT(place_.signingProblem("Castle " + kind), IsEmpty());
    }

    Place place_;
};

TEST_F(Castle, ItsOwnKeyStoreIsOpenedAndSigns) {
    expectToSign("store");
    expectToSign("rsa");
}

TEST_F(Castle, AMacOf1994IsChecked) {
    expectToSign("gost94");
    EXPECT_EQ(
        place_.admin({"import", "castle.p12", "--name", "x", "--pin-file", "pin.txt", "--password-file", "wrong.txt"})
            .exit,
        6);
}

TEST_F(Castle, AKeyAndACertificateUnderTheAgreementOidAreTaken) {
    place_.mustTool({"java", "-cp", std::string(jars) + ":classes", "MakePfx", "agreement", "castle.p12", "secret"});
    const Outcome importing = place_.import({"castle.p12"});
    ASSERT_EQ(importing.exit, 0) << importing.err;
    EXPECT_THAT(importing.out, HasSubstr("(512)"));
}

} // namespace
} // namespace admin_test
