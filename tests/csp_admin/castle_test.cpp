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

    void make(const std::string& kind) const {
        place_.mustTool({"java", "-cp", std::string(jars) + ":classes", "MakePfx", kind, "castle.p12", "secret"});
    }

    void expectToSign(const std::string& kind) const {
        make(kind);
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
    make("agreement");
    const Outcome importing = place_.import({"castle.p12"});
    ASSERT_EQ(importing.exit, 0) << importing.err;
    EXPECT_THAT(importing.out, HasSubstr("(512)"));
}

TEST_F(Castle, OfTwoKeysOneIsChosen) {
    make("two");
    const Outcome unsure = place_.import({"castle.p12"});
    EXPECT_EQ(unsure.exit, 2);
    EXPECT_THAT(unsure.err, AllOf(HasSubstr("'first'"), HasSubstr("'second'")));
    EXPECT_EQ(place_.import({"castle.p12", "--key", "third"}).exit, 1);
    EXPECT_EQ(place_.import({"castle.p12", "--key", "3"}).exit, 1);
    const Outcome importing = place_.import({"castle.p12", "--key", "second"});
    ASSERT_EQ(importing.exit, 0) << importing.err;
    EXPECT_THAT(place_.signingProblem("Castle second"), IsEmpty());
    EXPECT_EQ(place_.import({"castle.p12", "--key", "1", "--name", "by number"}).exit, 0);
}

TEST_F(Castle, AKeyBesideTheCertificateOfAnotherIsRefused) {
    make("mismatch");
    const Outcome importing = place_.import({"castle.p12"});
    EXPECT_EQ(importing.exit, 4);
    EXPECT_THAT(importing.err, HasSubstr("no certificate of the file belongs to it"));
    EXPECT_THAT(place_.json({"list"})["containers"], IsEmpty());
}

} // namespace
} // namespace admin_test
