#include "csp_admin/place.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

namespace admin_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Check : public testing::Test {
protected:
    Check() {
        place_.makeKey("one");
        place_.mustImport({"one.key", "one.pem"});
    }

    std::vector<std::string> damaged() const { return place_.json({"check", "one"})["containers"][0]["damaged_files"]; }

    void overwrite(const std::string& name, const std::string& octets) const {
        std::ofstream(place_.file("one.80", name), std::ios::binary) << octets;
    }

    Place place_;
};

TEST_F(Check, FindsAHealthyContainerGood) {
    const Outcome checking = place_.admin({"check", "one"});
    EXPECT_EQ(checking.exit, 0);
    EXPECT_THAT(checking.out, HasSubstr("good"));
    EXPECT_THAT(damaged(), IsEmpty());
}

TEST_F(Check, GostContainersAreNotCalledDamagedWithoutTheEngine) {
    RunOptions options;
    options.environment["OPENSSL_ENGINES"] = place_.folder() / "none";
    const Outcome checking = place_.admin({"check"}, options);
    EXPECT_EQ(checking.exit, 4) << checking.out;
    EXPECT_THAT(checking.err, HasSubstr("install the package libengine-gost-openssl"));
    EXPECT_EQ(place_.admin({"list"}, options).exit, 0);
    EXPECT_EQ(place_.admin({"unlock", "one"}, options).exit, 0);
}

TEST_F(Check, LooksAtAllWhenNoneIsNamed) {
    place_.makeKey("rsa", {"rsa:2048"});
    place_.mustImport({"rsa.key", "rsa.pem"});
    EXPECT_EQ(place_.json({"check"})["containers"].size(), 2U);
    overwrite("tries", "many");
    const Outcome checking = place_.admin({"check"});
    EXPECT_EQ(checking.exit, 1);
    EXPECT_THAT(checking.out, HasSubstr("DAMAGED: tries"));
    EXPECT_THAT(checking.out, HasSubstr("good"));
}

TEST_F(Check, NamesTheKeyFile) {
    const std::string key = test_support::readFile(place_.file("one.80", "exchange.1.p8"));
    overwrite("exchange.1.p8", key.substr(0, key.size() - 1));
    EXPECT_THAT(damaged(), ElementsAre("exchange.1.p8"));
    std::filesystem::remove(place_.file("one.80", "exchange.1.p8"));
    EXPECT_THAT(damaged(), ElementsAre("exchange.1.p8"));
}

TEST_F(Check, NamesTheCount) {
    std::filesystem::remove(place_.file("one.80", "tries"));
    EXPECT_THAT(damaged(), ElementsAre("tries"));
}

TEST_F(Check, NamesTheCertificate) {
    overwrite("exchange.crt", "no certificate");
    EXPECT_THAT(damaged(), ElementsAre("exchange.crt"));
    place_.openssl().must({"x509", "-in", "ca.pem", "-outform", "DER", "-out", "ca.der"});
    overwrite("exchange.crt", place_.folder().read("ca.der"));
    EXPECT_THAT(damaged(), ElementsAre("exchange.crt")) << "the certificate of another key";
}

TEST_F(Check, NamesTheDescription) {
    overwrite("container.json", "{}");
    EXPECT_THAT(damaged(), ElementsAre("container.json"));
    std::filesystem::remove(place_.file("one.80", "container.json"));
    EXPECT_THAT(damaged(), ElementsAre("container.json"));
}

TEST_F(Check, NamesEveryDamagedFile) {
    overwrite("exchange.crt", "");
    overwrite("exchange.1.p8", "");
    overwrite("tries", "");
    EXPECT_THAT(damaged(), ElementsAre("tries", "exchange.1.p8", "exchange.crt"));
}

TEST_F(Check, PutsAPinToTheTestWhenOneIsGiven) {
    EXPECT_EQ(place_.json({"check", "one", "--pin-file", "pin.txt"})["containers"][0]["pin_checked"], true);
    EXPECT_EQ(place_.admin({"check", "one", "--pin-file", "wrong.txt"}).exit, 6);
}

TEST_F(Check, TellsALockedContainer) {
    overwrite("tries", "10\n");
    const Json document = place_.json({"check", "one"});
    EXPECT_EQ(document["good"], true);
    EXPECT_EQ(document["containers"][0]["locked"], true);
}

TEST_F(Check, OfADamagedContainerOtherVerbsSaySoAndChangeNothing) {
    overwrite("exchange.1.p8", "");
    const Outcome changing =
        place_.admin({"change-pin", "one", "--pin-file", "pin.txt", "--new-pin-file", "other-pin.txt"});
    EXPECT_EQ(changing.exit, 3);
    EXPECT_THAT(changing.err, HasSubstr("damaged"));
    EXPECT_EQ(place_.json({"list"})["containers"][0]["tries_left"], 10) << "damage cost a try";
}

TEST_F(Check, UnlockingMendsTheCount) {
    overwrite("tries", "many");
    EXPECT_EQ(place_.admin({"unlock", "one"}).exit, 0);
    EXPECT_THAT(damaged(), IsEmpty());
}

} // namespace
} // namespace admin_test
