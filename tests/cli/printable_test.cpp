// Names that others chose are shown so that they cannot act on a terminal or pass for words of the command.

#include "cli/signers_place.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

class Printable : public testing::Test {
protected:
    /// The command's words about a file of that name, which is not there.
    std::string wordsAbout(const std::string& name) { return place_.cli({"verify", name}).err; }

    Workplace place_;
};

TEST_F(Printable, OctetsThatAreNotUtf8AreEscaped) {
    const std::pair<std::string, const char*> rows[] = {
        {"a\x9B"
         "2Jb",
         "a\\x9B2Jb"},
        {"a\xC3", "a\\xC3"},
        {"a\xC0\x9B", "a\\xC0\\x9B"},                   // an overlong form
        {"a\xED\xA0\x80", "a\\xED\\xA0\\x80"},          // a surrogate
        {"a\xF4\x90\x80\x80", "a\\xF4\\x90\\x80\\x80"}, // beyond the last character
    };
    for (const auto& [name, shown] : rows) {
        EXPECT_THAT(wordsAbout(name), HasSubstr(shown));
    }
}

TEST_F(Printable, CharactersThatActOnATerminalOrAreInvisibleAreEscaped) {
    const std::pair<std::string, const char*> rows[] = {
        {"\x1b[2J", "\\x1B[2J"},     {"\x7f", "\\x7F"},           {"\xC2\x9B", "\\x9B"}, // U+009B
        {"\xE2\x80\x8B", "\\u200B"}, {"\xE2\x80\xAE", "\\u202E"}, {"\xE2\x81\xA0", "\\u2060"},
        {"\xE2\x81\xA9", "\\u2069"}, {"\xEF\xBB\xBF", "\\uFEFF"}, {"\xF3\xA0\x81\x81", "\\U000E0041"},
    };
    for (const auto& [name, shown] : rows) {
        const std::string words = wordsAbout("a" + name + "b");
        EXPECT_THAT(words, HasSubstr("a" + std::string(shown) + "b"));
        EXPECT_THAT(words, Not(HasSubstr(name)));
    }
}

TEST_F(Printable, OtherCharactersStay) {
    const std::string name = "\xD0\x96 \xE4\xB8\xAD \xF0\x9F\x98\x80";
    EXPECT_THAT(wordsAbout(name), HasSubstr(name));
}

TEST_F(Printable, JsonEscapesThemAndKeepsTheValue) {
    const std::string name = "a\x7f\xC2\x9B\xE2\x80\xAE\xF3\xA0\x81\x81\xD0\x96";
    const Outcome outcome = place_.cli({"verify", name, "--json"});
    EXPECT_THAT(outcome.out, HasSubstr("a\\u007f\\u009b\\u202e\\udb40\\udc41\xD0\x96"));
    EXPECT_THAT(Json::parse(outcome.out)["error"]["message"].get<std::string>(), HasSubstr(name));
}

TEST(PrintableName, AVeryLongNameIsCutInWordsAndWholeInJson) {
    SignersPlace place;
    std::string subject = "/";
    for (int i = 0; i < 15; ++i) {
        subject += "OU=" + std::string(60, 'u') + (i < 14 ? "/" : "");
    }
    place.makeIdentity("long");
    place.openssl().must({"req", "-x509", "-key", "long.key", "-out", "long.pem", "-subj", subject, "-days", "2"});
    place.sign("long.p7s", {"long"});
    const Outcome outcome = place.cli({"verify", "long.p7s"});
    ASSERT_EQ(outcome.exit, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("u...\n"));
    EXPECT_THAT(outcome.out, Not(HasSubstr(std::string(600, 'u'))));
    EXPECT_GT(place.json({"verify", "long.p7s"})["signers"][0]["subject"].get<std::string>().size(), 900U);
}

} // namespace
} // namespace cli_test
