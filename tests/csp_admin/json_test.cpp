// The documents that programs read.

#include "csp_admin/place.hpp"

#include <gmock/gmock.h>

namespace admin_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Documents : public testing::Test {
protected:
    Documents() { place_.makeKey("one"); }
    Place place_;
};

TEST_F(Documents, OfAnImportTellContainerProviderAndCertificate) {
    const Json document = place_.json({"import", "one.key", "one.pem", "--name", "ключ", "--pin-file", "pin.txt"});
    EXPECT_EQ(document["schema"], 1);
    EXPECT_EQ(document["name"], "ключ");
    EXPECT_EQ(document["path"], "KLUNORTREDI/ключ");
    EXPECT_EQ(document["type"], 80);
    EXPECT_EQ(document["exportable"], false);
    EXPECT_EQ(document["store"], "my");
    EXPECT_EQ(document["certificate"].get<std::string>().size(), 40U);
}

TEST_F(Documents, OfAListTellKeysAndTries) {
    EXPECT_THAT(place_.json({"list"})["containers"], IsEmpty());
    place_.mustImport({"one.key", "one.pem", "--exportable"});
    const Json row = place_.json({"list"})["containers"].at(0);
    EXPECT_EQ(row["name"], "one");
    EXPECT_THAT(row["keys"], ElementsAre("exchange"));
    EXPECT_EQ(row["exportable"], true);
    EXPECT_EQ(row["pin"], true);
    EXPECT_EQ(row["tries_left"], 10);
    EXPECT_EQ(row["damaged"], false);
    EXPECT_THAT(place_.json({"list", "--provider", "24"})["containers"], IsEmpty());
}

TEST_F(Documents, OfAFailureTellKindCodeAndMessageBesideTheExitCode) {
    place_.mustImport({"one.key", "one.pem"});
    const Outcome exporting = place_.admin({"export", "one", "--json"});
    EXPECT_EQ(exporting.exit, 4);
    const Json error = Json::parse(exporting.out)["error"];
    EXPECT_EQ(error["kind"], "service");
    EXPECT_EQ(error["code"], 0x80090010U);
    EXPECT_THAT(error["message"].get<std::string>(), HasSubstr("exportable"));
    EXPECT_THAT(exporting.err, testing::StartsWith("klunortredi-csp: cannot export container one: "));
    EXPECT_EQ(place_.json({"imp"})["error"]["kind"], "usage");
}

TEST_F(Documents, OfTheOtherVerbsNameTheContainer) {
    place_.mustImport({"one.key", "one.pem", "--exportable"});
    EXPECT_EQ(place_.json({"unlock", "one"})["tries_left"], 10);
    EXPECT_EQ(place_.json({"change-pin", "one", "--pin-file", "pin.txt", "--new-pin-file", "pin.txt"})["name"], "one");
    const Json exported = place_.json({"export", "one", "--pin-file", "pin.txt", "--password-file", "password.txt"});
    EXPECT_EQ(exported["output"], "one.p12");
}

} // namespace
} // namespace admin_test
