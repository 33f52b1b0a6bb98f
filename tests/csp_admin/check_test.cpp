#include "csp_admin/place.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

namespace admin_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

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

TEST_F(Check, GoesOnBehindAContainerOfAnotherPin) {
    for (const char* name : {"two", "three"}) {
        ASSERT_EQ(place_
                      .admin({"import", "one.key", "one.pem", "--name", name, "--pin-file",
                              std::string(name) == "two" ? "pin.txt" : "other-pin.txt"})
                      .exit,
                  0);
    }
    const Outcome mixed = place_.admin({"check", "--pin-file", "pin.txt"});
    EXPECT_EQ(mixed.exit, 6);
    EXPECT_THAT(mixed.err, HasSubstr("cannot check container three: the PIN is wrong, 9 tries left"));
    EXPECT_THAT(mixed.out, HasSubstr("\ntwo  ("));
    std::filesystem::remove(place_.file("two.80", "tries"));
    EXPECT_EQ(place_.admin({"check", "--pin-file", "other-pin.txt"}).exit, 1) << "damage is the worst";
    const Json document = place_.json({"check", "--pin-file", "wrong.txt"});
    ASSERT_EQ(document["containers"].size(), 3U);
    EXPECT_EQ(document["good"], false);
    EXPECT_THAT(document["containers"][1]["error"]["message"], HasSubstr("the PIN is wrong"));
    EXPECT_EQ(document["containers"][1]["good"], false);
    EXPECT_THAT(document["containers"][2]["damaged_files"], ElementsAre("tries"));
}

TEST_F(Check, StopsWithoutThePinThatWasPromised) {
    EXPECT_EQ(place_.admin({"check", "--pin-file", "nowhere.txt"}).exit, 3);
}

TEST_F(Check, PassesOverAContainerThatGoesMeanwhile) {
    place_.mustImport({"one.key", "one.pem", "--name", "two"});
    const std::string pipe = place_.folder() / "pin.pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
    std::thread person([&] {
        std::ofstream answer(pipe); // opens when the command, with its list made, reads the PIN
        std::filesystem::remove_all(place_.home() / "containers/one.80");
        answer << "12345678\n";
    });
    const Outcome checking = place_.admin({"check", "--pin-file", "pin.pipe"});
    ::close(::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)); // lets the person go when nobody asked
    person.join();
    EXPECT_EQ(checking.exit, 0) << checking.err;
    EXPECT_THAT(checking.out, HasSubstr("two"));
    EXPECT_THAT(checking.out, Not(HasSubstr("one")));
}

TEST_F(Check, DoesNotCallDamagedWhatMayNotBeRead) {
    namespace fs = std::filesystem;
    fs::permissions(place_.home() / "containers/one.80", fs::perms::none);
    // Root reads everything, unless it lays that right down.
    Words command{KLUNORTREDI_CSP, "container", "list"};
    if (::geteuid() == 0) {
        command.insert(command.begin(), {"setpriv", "--bounding-set=-dac_override,-dac_read_search"});
    }
    const Outcome listing = place_.tool(command);
    command.back() = "check";
    const Outcome checking = place_.tool(command);
    fs::permissions(place_.home() / "containers/one.80", fs::perms::owner_all);
    EXPECT_EQ(listing.exit, 0) << listing.err;
    EXPECT_THAT(listing.out, HasSubstr("cannot be read: access to the service's data is denied"));
    EXPECT_EQ(checking.exit, 4);
    EXPECT_THAT(checking.out, HasSubstr("NOT CHECKED"));
}

TEST_F(Check, TakesNoStrayFileForAContainer) {
    place_.home().write("containers/file.80", "no folder");
    ASSERT_EQ(::mkfifo((place_.home() / "containers/pipe.80").c_str(), S_IRUSR | S_IWUSR), 0);
    EXPECT_EQ(place_.json({"list"})["containers"].size(), 1U);
    EXPECT_EQ(place_.admin({"check"}).exit, 0);
    const Outcome deleting = place_.tool({"timeout", "20", KLUNORTREDI, "containers", "delete", "pipe", "--yes"});
    EXPECT_EQ(deleting.exit, 1) << deleting.err;
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
