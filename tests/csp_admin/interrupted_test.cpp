// Killed at any moment, a command leaves the old state or the new one, and can be run again.

#include "csp_admin/place.hpp"

#include <gmock/gmock.h>

namespace admin_test {
namespace {

using test_support::killAtEachChange;
using testing::IsEmpty;

TEST(Interrupted, AnImportLeavesNoContainerOrAWholeOne) {
    const Place place;
    place.makeKey("one");
    const auto name = [](int n) { return "c" + std::to_string(n); };
    const int kills = killAtEachChange(
        [&](const RunOptions& options, int n) {
            return place.import({"one.key", "one.pem", "--name", name(n)}, options);
        },
        [&](int n) {
            const Outcome checking = place.admin({"check"});
            EXPECT_EQ(checking.exit, 0) << "killed before change " << n << ": " << checking.out;
            if (place.admin({"check", name(n)}).exit == 1) { // there is none
                const Outcome second = place.import({"one.key", "one.pem", "--name", name(n)});
                EXPECT_EQ(second.exit, 0) << second.err;
            }
        });
    EXPECT_GT(kills, 5);
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
    const int kills = killAtEachChange(
        [&](const RunOptions& options, int) {
            return place.admin({"change-pin", "one", "--pin-file", from, "--new-pin-file", to}, options);
        },
        [&](int n) {
            const auto opens = [&](const std::string& pin) {
                return place.admin({"check", "one", "--pin-file", pin}).exit == 0;
            };
            EXPECT_EQ(place.admin({"check", "one"}).exit, 0) << n;
            if (!opens(from)) {
                std::swap(from, to);
                EXPECT_TRUE(opens(from)) << "killed before change " << n << ": neither PIN opens it";
            }
        });
    EXPECT_GT(kills, 5);
}

TEST(Interrupted, AnExportLeavesNoFileOrAWholeOne) {
    const Place place;
    // The file is written the same way for every kind of key, and an RSA key's is encrypted the quickest.
    place.makeKey("one", {"rsa:2048"});
    place.mustImport({"one.key", "one.pem", "--exportable"});
    const auto exporting = [&](const RunOptions& options) {
        return place.admin({"export", "one", "--pin-file", "pin.txt", "--password-file", "password.txt", "--out",
                            "out.p12", "--force"},
                           options);
    };
    ASSERT_EQ(exporting({}).exit, 0);
    const auto files = place.folder().count();
    const int kills = killAtEachChange(
        [&](const RunOptions& options, int) { return exporting(options); },
        [&](int n) {
            EXPECT_EQ(place.openssl().run({"pkcs12", "-in", "out.p12", "-passin", "file:password.txt", "-noout"}).exit,
                      0)
                << n;
        });
    EXPECT_GT(kills, 3);
    EXPECT_EQ(place.folder().count(), files);
}

} // namespace
} // namespace admin_test
