#include "csp_admin/place.hpp"

#include <gmock/gmock.h>

namespace admin_test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Pin : public testing::Test {
protected:
    Pin() {
        place_.makeKey("one");
        place_.mustImport({"one.key", "one.pem"});
    }

    Outcome change(const std::string& from, const std::string& to) const {
        return place_.admin({"change-pin", "one", "--pin-file", from, "--new-pin-file", to});
    }

    void lock() const {
        for (int i = 0; i < 10; ++i) {
            ASSERT_EQ(change("wrong.txt", "other-pin.txt").exit, 6);
        }
    }

    Place place_;
};

TEST_F(Pin, IsChanged) {
    const Outcome changing = change("pin.txt", "other-pin.txt");
    ASSERT_EQ(changing.exit, 0) << changing.err;
    EXPECT_THAT(place_.signingProblem("Signer one", "pin.txt"), HasSubstr("PIN is wrong"));
    EXPECT_THAT(place_.signingProblem("Signer one", "other-pin.txt"), IsEmpty());
}

TEST_F(Pin, StaysWhenTheOldOneIsWrong) {
    const Outcome changing = change("wrong.txt", "other-pin.txt");
    EXPECT_EQ(changing.exit, 6);
    EXPECT_THAT(changing.err, HasSubstr("the PIN is wrong, 9 tries left"));
    EXPECT_THAT(place_.signingProblem("Signer one", "pin.txt"), IsEmpty());
}

TEST_F(Pin, StaysWhenTheNewOneCannotBeHad) {
    EXPECT_EQ(change("pin.txt", "nowhere.txt").exit, 3);
    const Outcome unasked = place_.admin({"change-pin", "one", "--pin-file", "pin.txt"});
    EXPECT_EQ(unasked.exit, 2);
    EXPECT_THAT(unasked.err, HasSubstr("--new-pin-file"));
    EXPECT_THAT(place_.signingProblem("Signer one", "pin.txt"), IsEmpty());
}

TEST_F(Pin, ThatNoLoginCouldGiveIsRefused) {
    place_.folder().write("long.txt", std::string(256, '1'));
    place_.folder().write("zero.txt", std::string("12345678\0"
                                                  "9",
                                                  10));
    for (const char* file : {"long.txt", "zero.txt"}) {
        const Outcome changing = change("pin.txt", file);
        EXPECT_EQ(changing.exit, 2) << file;
        EXPECT_THAT(changing.err, HasSubstr("cannot use the PIN")) << file;
        EXPECT_EQ(place_.admin({"import", "one.key", "one.pem", "--name", "two", "--pin-file", file}).exit, 2) << file;
    }
    EXPECT_EQ(place_.json({"list"})["containers"].size(), 1U);
    EXPECT_THAT(place_.signingProblem("Signer one"), IsEmpty());
    place_.folder().write("longest.txt", std::string(255, '1'));
    ASSERT_EQ(change("pin.txt", "longest.txt").exit, 0);
    EXPECT_THAT(place_.signingProblem("Signer one", "longest.txt"), IsEmpty());
}

TEST_F(Pin, StaysWhenTheDiskIsFull) {
    RunOptions options;
    options.fileSizeLimit = 64; // the count of tries still fits, the key does not
    EXPECT_NE(
        place_.admin({"change-pin", "one", "--pin-file", "pin.txt", "--new-pin-file", "other-pin.txt"}, options).exit,
        0);
    EXPECT_EQ(place_.admin({"check", "one"}).exit, 0);
    EXPECT_THAT(place_.signingProblem("Signer one", "pin.txt"), IsEmpty());
}

TEST_F(Pin, TriesAreNotLostWithoutTheEngine) {
    RunOptions options;
    options.environment["OPENSSL_ENGINES"] = place_.folder() / "none";
    const Outcome changing =
        place_.admin({"change-pin", "one", "--pin-file", "pin.txt", "--new-pin-file", "other-pin.txt"}, options);
    EXPECT_EQ(changing.exit, 4);
    EXPECT_THAT(changing.err, HasSubstr("install the package libengine-gost-openssl"));
    EXPECT_EQ(place_.json({"list"})["containers"][0]["tries_left"], 10);
}

TEST_F(Pin, ComesFromTheEnvironmentOrADescriptor) {
    RunOptions options;
    options.environment = {{"OLD", "12345678"}};
    options.input = "87654321\n";
    EXPECT_EQ(place_.admin({"change-pin", "one", "--pin-env", "OLD", "--new-pin-fd", "0"}, options).exit, 0);
    EXPECT_THAT(place_.signingProblem("Signer one", "other-pin.txt"), IsEmpty());
}

TEST_F(Pin, LocksAfterTenWrongOnesAndUnlocks) {
    lock();
    const Outcome locked = change("pin.txt", "other-pin.txt");
    EXPECT_EQ(locked.exit, 6);
    EXPECT_THAT(locked.err, HasSubstr("locked"));
    const Outcome unlocking = place_.admin({"unlock", "one"});
    EXPECT_EQ(unlocking.exit, 0) << unlocking.err;
    EXPECT_THAT(unlocking.out, HasSubstr("10 tries left"));
    EXPECT_EQ(change("wrong.txt", "other-pin.txt").exit, 6) << "unlocking let a wrong PIN in";
    EXPECT_THAT(place_.signingProblem("Signer one", "pin.txt"), IsEmpty());
}

TEST_F(Pin, OfALockedContainerIsNotAskedFor) {
    lock();
    const Outcome changing = place_.admin({"change-pin", "one"});
    EXPECT_EQ(changing.exit, 6) << changing.err;
    EXPECT_THAT(changing.err, Not(HasSubstr("--pin-file")));
}

TEST_F(Pin, OfNoContainerCannotBeChanged) {
    EXPECT_EQ(place_.admin({"change-pin", "two", "--pin-file", "pin.txt"}).exit, 1);
    EXPECT_EQ(place_.admin({"unlock", "two"}).exit, 1);
}

TEST_F(Pin, NeedsTheProviderWhereTwoContainersHaveTheName) {
    place_.makeKey("rsa", {"rsa:2048"});
    place_.mustImport({"rsa.key", "rsa.pem", "--name", "one"});
    EXPECT_EQ(change("pin.txt", "other-pin.txt").exit, 2);
    EXPECT_EQ(
        place_.admin({"change-pin", "one", "--provider", "24", "--pin-file", "pin.txt", "--new-pin-file", "wrong.txt"})
            .exit,
        0);
    EXPECT_THAT(place_.signingProblem("Signer one", "pin.txt"), IsEmpty());
}

} // namespace
} // namespace admin_test
