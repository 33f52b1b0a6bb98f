// Killed at any moment, a command leaves the old state or the new one, and can be run again.

#include "csp_admin/place.hpp"

#include <gmock/gmock.h>

#include <csignal>

namespace admin_test {
namespace {

using std::chrono::microseconds;
using testing::IsEmpty;

constexpr int kills = 12;

template <class Command>
microseconds duration(Command&& command) {
    const auto start = std::chrono::steady_clock::now();
    command();
    return std::chrono::duration_cast<microseconds>(std::chrono::steady_clock::now() - start);
}

TEST(Interrupted, AnImportLeavesNoContainerOrAWholeOne) {
    const Place place;
    place.makeKey("one");
    const auto whole = duration([&] { place.mustImport({"one.key", "one.pem", "--name", "warm"}); });
    int killed = 0;
    for (int i = 1; i <= kills; ++i) {
        const std::string name = "c" + std::to_string(i);
        RunOptions options;
        options.killAfter = whole * i / (kills + 1);
        const Outcome first = place.import({"one.key", "one.pem", "--name", name}, options);
        killed += first.signal == SIGKILL ? 1 : 0;
        const Outcome checking = place.admin({"check"});
        EXPECT_EQ(checking.exit, 0) << checking.out;
        if (place.admin({"check", name}).exit == 1) { // there is none
            const Outcome second = place.import({"one.key", "one.pem", "--name", name});
            EXPECT_EQ(second.exit, 0) << second.err;
        }
    }
    EXPECT_GT(killed, 0);
    // The next import has swept what the killed ones had begun.
    place.mustImport({"one.key", "one.pem", "--name", "last"});
    EXPECT_THAT(place.tool({"find", place.home().path(), "-name", ".new-*"}).out, IsEmpty());
}

TEST(Interrupted, AChangeOfPinLeavesTheOldOneOrTheNewOne) {
    const Place place;
    place.makeKey("one");
    place.mustImport({"one.key", "one.pem"});
    std::string from = "pin.txt";
    std::string to = "other-pin.txt";
    const auto change = [&](RunOptions options) {
        return place.admin({"change-pin", "one", "--pin-file", from, "--new-pin-file", to}, std::move(options));
    };
    const auto whole = duration([&] { ASSERT_EQ(change({}).exit, 0); });
    std::swap(from, to);
    int killed = 0;
    for (int i = 1; i <= kills; ++i) {
        RunOptions options;
        options.killAfter = whole * i / (kills + 1);
        killed += change(options).signal == SIGKILL ? 1 : 0;
        EXPECT_EQ(place.admin({"check", "one"}).exit, 0);
        if (place.admin({"check", "one", "--pin-file", from}).exit != 0) {
            std::swap(from, to);
        }
        EXPECT_EQ(place.admin({"check", "one", "--pin-file", from}).exit, 0) << "neither PIN opens it";
    }
    EXPECT_GT(killed, 0);
}

TEST(Interrupted, AnExportLeavesNoFileOrAWholeOne) {
    const Place place;
    place.makeKey("one");
    place.mustImport({"one.key", "one.pem", "--exportable"});
    const auto exporting = [&](RunOptions options) {
        return place.admin({"export", "one", "--pin-file", "pin.txt", "--password-file", "password.txt", "--out",
                            "out.p12", "--force"},
                           std::move(options));
    };
    const auto whole = duration([&] { ASSERT_EQ(exporting({}).exit, 0); });
    const auto files = place.folder().count();
    for (int i = 1; i <= kills / 2; ++i) {
        RunOptions options;
        options.killAfter = whole * i / (kills / 2 + 1);
        static_cast<void>(exporting(options));
        EXPECT_EQ(place.folder().count(), files);
        EXPECT_EQ(place.openssl().run({"pkcs12", "-in", "out.p12", "-passin", "file:password.txt", "-noout"}).exit, 0);
    }
}

} // namespace
} // namespace admin_test
