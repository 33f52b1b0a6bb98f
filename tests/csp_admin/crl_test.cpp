#include "cli/pki.hpp"
#include "csp_admin/place.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <thread>

namespace admin_test {
namespace {

using test_support::Pki;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

/// An authority "root" with a list that revokes the serial number 7.
class Crls : public testing::Test {
protected:
    Crls() : pki(place.folder(), place.openssl()) {
        pki.root("root");
        pki.list("root", {"07"}, "05");
    }

    [[nodiscard]] Outcome crl(Words words) const {
        words.insert(words.begin(), {KLUNORTREDI_CSP, "crl"});
        RunOptions options;
        options.environment.emplace("KLUNORTREDI_HOME", place.home().path());
        options.folder = place.folder().path();
        return test_support::run(words, options);
    }
    [[nodiscard]] Json json(Words words) const {
        words.emplace_back("--json");
        return Json::parse(crl(std::move(words)).out);
    }
    [[nodiscard]] std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(place.home() / "stores/ca")) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    Place place;
    Pki pki;
};

TEST_F(Crls, AreAddedListedAndDeleted) {
    EXPECT_THAT(crl({"list"}).out, HasSubstr("no CRLs in store ca"));
    const Outcome added = crl({"add", "root.crl"});
    EXPECT_EQ(added.exit, 0) << added.err;
    EXPECT_THAT(added.out, HasSubstr("added the CRL of CN=root"));
    const Json list = json({"list"});
    ASSERT_EQ(list["crls"].size(), 1U);
    const Json& row = list["crls"][0];
    EXPECT_EQ(row["issuer"], "CN=root");
    EXPECT_EQ(row["number"], "05");
    EXPECT_EQ(row["entries"], 1);
    EXPECT_EQ(row["delta"], false);
    EXPECT_EQ(row["indirect"], false);
    EXPECT_LT(row["this_update"], row["next_update"]);
    EXPECT_EQ(crl({"delete", "nobody"}).exit, 1);
    EXPECT_EQ(crl({"delete", "CN=ROOT"}).exit, 0);
    EXPECT_THAT(json({"list"})["crls"], IsEmpty());
    EXPECT_EQ(crl({"delete", "root"}).exit, 1);
}

TEST_F(Crls, GoToTheStoreThatIsNamed) {
    ASSERT_EQ(crl({"add", "root.crl", "--store", "ROOT"}).exit, 0);
    EXPECT_EQ(json({"list", "--store", "root"})["crls"].size(), 1U);
    EXPECT_THAT(json({"list"})["crls"], IsEmpty());
    for (const char* store : {"../root", "a/b", ".hidden"}) {
        EXPECT_EQ(crl({"add", "root.crl", "--store", store}).exit, 2) << store;
    }
}

TEST_F(Crls, AddingAListAgainKeepsTheFileThatIsThere) {
    const std::string first = place.folder().read("root.crl");
    ASSERT_EQ(crl({"add", "root.crl"}).exit, 0);
    const Outcome again = crl({"add", "root.crl"});
    EXPECT_EQ(again.exit, 0) << again.err;
    EXPECT_THAT(again.out, HasSubstr("already"));
    EXPECT_EQ(json({"add", "root.crl"})["added"], nullptr);
    EXPECT_EQ(files().size(), 1U) << "nothing else is left in the folder";
}

TEST_F(Crls, ListsOfSeveralAuthoritiesAreToldApart) {
    pki.root("second");
    pki.list("second", {});
    ASSERT_EQ(crl({"add", "root.crl"}).exit, 0);
    ASSERT_EQ(crl({"add", "second.crl"}).exit, 0);
    EXPECT_EQ(crl({"delete", "CN="}).exit, 2) << "two match";
    const Json rows = json({"list"})["crls"];
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(crl({"delete", rows[0]["file"]}).exit, 0);
    ASSERT_EQ(json({"list"})["crls"].size(), 1U);
    EXPECT_EQ(json({"list"})["crls"][0]["issuer"], rows[1]["issuer"]);
}

TEST_F(Crls, OfChangesAndOfOtherIssuersAreShownAsSuch) {
    pki.list("root", {"08"}, "06", "5", "deltaCRL=critical,DER:02:01:05\n");
    ASSERT_EQ(crl({"add", "root.crl"}).exit, 0);
    pki.list("root", {}, "07", "5", "issuingDistributionPoint=critical,@p\n[p]\nindirectCRL=TRUE\n");
    ASSERT_EQ(crl({"add", "root.crl"}).exit, 0);
    const Json rows = json({"list"})["crls"];
    ASSERT_EQ(rows.size(), 2U);
    const Json& delta = rows[rows[0]["number"] == "06" ? 0 : 1];
    const Json& indirect = rows[rows[0]["number"] == "06" ? 1 : 0];
    EXPECT_EQ(delta["delta"], true);
    EXPECT_EQ(delta["indirect"], false);
    EXPECT_EQ(delta["entries"], 1);
    EXPECT_EQ(indirect["delta"], false);
    EXPECT_EQ(indirect["indirect"], true);
    EXPECT_THAT(crl({"list"}).out, AllOf(HasSubstr("1, delta\n"), HasSubstr("0, indirect\n")));
}

TEST_F(Crls, TakeThePlaceOfAnOlderOneWhenTheirSignatureIsVerified) {
    ASSERT_EQ(json({"add", "root.crl"})["verified"], false) << "its issuer is not in the stores";
    EXPECT_EQ(files().size(), 1U);
    const std::string home = place.home().path();
    RunOptions options;
    options.environment.emplace("KLUNORTREDI_HOME", home);
    options.folder = place.folder().path();
    ASSERT_EQ(test_support::run({KLUNORTREDI, "certs", "add", "root.pem", "--store", "ca"}, options).exit, 0);
    EXPECT_EQ(json({"add", "root.crl"})["verified"], true);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100)); // thisUpdate counts seconds
    pki.list("root", {"07", "08"}, "06");
    EXPECT_EQ(json({"add", "root.crl"})["added"]["number"], "06");
    const Json rows = json({"list"})["crls"];
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0]["entries"], 2);
}

TEST_F(Crls, ThatAreNotCrlsAreRefusedAndNothingIsKept) {
    place.folder().write("empty.crl", "");
    place.folder().write("text.crl", "hello\n");
    place.openssl().must({"crl", "-in", "root.crl", "-outform", "DER", "-out", "root.der"});
    const std::string der = place.folder().read("root.der");
    place.folder().write("cut.der", der.substr(0, der.size() - 1));
    place.folder().write("more.der", der + "x");
    for (const char* file : {"empty.crl", "text.crl", "cut.der", "more.der", "root.pem", "root.key", "missing", "."}) {
        EXPECT_EQ(crl({"add", file}).exit, 3) << file;
    }
    EXPECT_THAT(json({"list"})["crls"], IsEmpty());
    EXPECT_EQ(crl({"add", "root.der"}).exit, 0);
}

TEST_F(Crls, ThatSomebodyElseDamagedAreNamed) {
    ASSERT_EQ(crl({"add", "root.crl"}).exit, 0);
    place.home().write("stores/ca/junk.crl", "junk");
    const Json list = json({"list"});
    EXPECT_EQ(list["crls"].size(), 1U);
    EXPECT_EQ(list["unreadable"], Json::array({"junk.crl"}));
    EXPECT_THAT(list["skipped"][0]["reason"].get<std::string>(), HasSubstr("not a certificate or CRL"));
    EXPECT_THAT(crl({"list"}).out, HasSubstr("stores/ca/junk.crl"));
}

TEST_F(Crls, ThatCannotBeReadMakeTheListIncomplete) {
    ASSERT_EQ(crl({"add", "root.crl"}).exit, 0);
    std::filesystem::create_symlink("loop.crl", place.home() / "stores/ca/loop.crl");
    const Outcome list = crl({"list"});
    EXPECT_EQ(list.exit, 3);
    EXPECT_THAT(list.out, AllOf(HasSubstr("CN=root"), HasSubstr("loop.crl: reading it failed")));
    EXPECT_EQ(crl({"delete", "nobody"}).exit, 3) << "the unread one may be meant";
    EXPECT_EQ(crl({"delete", "CN=root"}).exit, 0);
}

} // namespace
} // namespace admin_test
