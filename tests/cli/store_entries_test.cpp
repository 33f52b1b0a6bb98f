// Entries of a store that are not certificates, or cannot be read: named, never silently left out. A link to itself
// cannot be read by anybody, not even by root.

#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class StoreEntries : public testing::Test {
protected:
    StoreEntries() { place.makeSigner("one"); }
    [[nodiscard]] std::filesystem::path entry(char digit) const {
        return std::filesystem::path(place.home()) / "stores/my" / (std::string(40, digit) + ".pem");
    }
    void putDamaged() const { std::ofstream(entry('a')) << "junk"; }
    void putUnreadable() const { std::filesystem::create_symlink(entry('b').filename(), entry('b')); }

    Workplace place;
};

TEST_F(StoreEntries, ThatIsDamagedIsNamedBesideTheOthers) {
    putDamaged();
    const Outcome listed = place.cli({"certs", "list", "--json"});
    EXPECT_EQ(listed.exit, 0) << "the list is complete";
    const Json document = Json::parse(listed.out);
    EXPECT_EQ(document["certificates"].size(), 1U);
    ASSERT_EQ(document["skipped"].size(), 1U);
    EXPECT_EQ(document["skipped"][0]["file"], entry('a').string());
    EXPECT_THAT(document["skipped"][0]["reason"].get<std::string>(), HasSubstr("not a certificate"));
    EXPECT_THAT(listed.err, HasSubstr("skipped " + entry('a').string()));
    EXPECT_EQ(place.cli({"certs", "show", "nobody"}).exit, 1);
    EXPECT_EQ(place.cli({"certs", "show", "one"}).exit, 0);
}

TEST_F(StoreEntries, ThatCannotBeReadMakesTheListIncomplete) {
    putUnreadable();
    const Outcome listed = place.cli({"certs", "list", "--json"});
    EXPECT_EQ(listed.exit, 3);
    const Json document = Json::parse(listed.out);
    EXPECT_EQ(document["certificates"].size(), 1U) << "the others are shown";
    EXPECT_EQ(document["skipped"][0]["reason"], "reading it failed");
    EXPECT_THAT(listed.err, HasSubstr("skipped " + entry('b').string()));
}

TEST_F(StoreEntries, ThatCannotBeReadIsNotAbsent) {
    putUnreadable();
    for (const char* verb : {"show", "delete", "export"}) {
        const Outcome missing = place.cli({"certs", verb, "nobody"});
        EXPECT_EQ(missing.exit, 3) << verb;
        EXPECT_THAT(missing.err, HasSubstr("cannot tell whether there is a certificate")) << verb;
        EXPECT_THAT(missing.err, HasSubstr(entry('b').string())) << verb;
    }
    EXPECT_EQ(place.cli({"certs", "show", "one"}).exit, 0) << "what is found is certain";
}

TEST_F(StoreEntries, ThatIsTheOnlyOneAndCannotBeReadIsNoEmptyStore) {
    for (const auto& file : std::filesystem::directory_iterator(entry('x').parent_path())) {
        std::filesystem::remove(file);
    }
    putUnreadable();
    const Outcome listed = place.cli({"certs", "list"});
    EXPECT_EQ(listed.exit, 3);
    EXPECT_THAT(listed.out, Not(HasSubstr("no certificates")));
    EXPECT_THAT(listed.err, HasSubstr(entry('b').string()));
}

TEST_F(StoreEntries, FolderThatCannotBeReadIsNoEmptyStore) {
    const auto folder = std::filesystem::path(place.home()) / "stores/ca";
    std::filesystem::remove_all(folder);
    std::filesystem::create_symlink("ca", folder);
    const Outcome listed = place.cli({"certs", "list", "--store", "ca", "--json"});
    EXPECT_EQ(listed.exit, 3) << listed.out;
    EXPECT_THAT(listed.err, HasSubstr("cannot read its data"));
    EXPECT_EQ(place.cli({"certs", "show", "one", "--store", "ca"}).exit, 3);
    EXPECT_EQ(place.cli({"certs", "delete", "one", "--store", "ca"}).exit, 3);
}

TEST_F(StoreEntries, OfWhichNothingIsSkippedAreNotSpokenOf) {
    const Outcome listed = place.cli({"certs", "list", "--json"});
    EXPECT_THAT(Json::parse(listed.out)["skipped"], IsEmpty());
    EXPECT_THAT(listed.err, IsEmpty());
}

} // namespace
} // namespace cli_test
