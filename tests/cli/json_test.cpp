#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <filesystem>

namespace cli_test {
namespace {

using testing::MatchesRegex;

TEST(JsonOutput, EveryDocumentCarriesItsFields) {
    Workplace place;
    place.makeSigner("one");

    const Json providers = place.json({"providers"});
    EXPECT_EQ(providers["schema"], 1);
    ASSERT_GE(providers["providers"].size(), 4U);
    for (const Json& provider : providers["providers"]) {
        EXPECT_TRUE(provider["type"].is_number() && provider["name"].is_string() && provider["version"].is_string() &&
                    provider["selected"].is_boolean());
    }

    const Json containers = place.json({"containers"});
    ASSERT_EQ(containers["containers"].size(), 1U);
    const Json& container = containers["containers"][0];
    EXPECT_EQ(container["name"], "one");
    EXPECT_EQ(container["type"], 80);
    EXPECT_EQ(container["keys"], Json::array({"exchange"}));

    const Json certs = place.json({"certs", "list"});
    ASSERT_EQ(certs["certificates"].size(), 1U);
    const Json& certificate = certs["certificates"][0];
    EXPECT_EQ(certificate["subject"], "CN=Signer one");
    EXPECT_EQ(certificate["issuer"], "CN=Test CA");
    EXPECT_THAT(certificate["thumbprint"].get<std::string>(), MatchesRegex("[0-9a-f]{40}"));
    EXPECT_EQ(certificate["thumbprint"], container["certificate"]);
    EXPECT_THAT(certificate["not_before"].get<std::string>(), MatchesRegex("20[0-9-]{8}T[0-9:]{8}Z"));
    EXPECT_EQ(certificate["algorithm"], "1.2.643.7.1.1.1.1");
    EXPECT_EQ(certificate["key_usage"], Json::array({"digitalSignature", "nonRepudiation"}));
    EXPECT_EQ(certificate["container"], "one");

    const Json signing = place.json({"sign", "report.txt", "--cert", "Signer one"});
    ASSERT_EQ(signing["files"].size(), 1U);
    EXPECT_EQ(signing["files"][0]["input"], "report.txt");
    EXPECT_EQ(signing["files"][0]["output"], "report.txt.sig");
    EXPECT_EQ(signing["files"][0]["format"], "detached");
    EXPECT_EQ(signing["files"][0]["bytes"], place.folder().read("report.txt.sig").size());

    const Json verdict = place.json({"verify", "report.txt.sig", "--chain"});
    EXPECT_EQ(verdict["valid"], true);
    EXPECT_EQ(verdict["format"], "detached");
    EXPECT_EQ(verdict["reason"], "");
    ASSERT_EQ(verdict["signers"].size(), 1U);
    EXPECT_EQ(verdict["signers"][0]["thumbprint"], certificate["thumbprint"]);
    EXPECT_EQ(verdict["signers"][0]["serial"], certificate["serial"]);
    EXPECT_EQ(verdict["signers"][0]["digest_algorithm"], "1.2.643.7.1.1.2.2");
    EXPECT_THAT(verdict["signers"][0]["signing_time"].get<std::string>(), MatchesRegex("20[0-9-]{8}T[0-9:]{8}Z"));
    EXPECT_EQ(verdict["chain"]["trusted"], false);
    EXPECT_NE(verdict["chain"]["status"], 0);
    EXPECT_FALSE(verdict["chain"]["status_names"].empty());
}

TEST(JsonOutput, ErrorsAreDocumentsToo) {
    Workplace place;
    EXPECT_EQ(place.json({"verify", "nowhere.sig"})["error"]["kind"], "input");
    EXPECT_EQ(place.json({"fly"})["error"]["kind"], "usage");
    const Json missing = place.json({"sign", "report.txt", "--cert", "nobody"});
    EXPECT_EQ(missing["error"]["kind"], "input");
    EXPECT_TRUE(missing["error"]["code"].is_number());
    EXPECT_TRUE(missing["error"]["message"].is_string());
}

TEST(JsonOutput, AnInvalidSignatureIsAVerdictNotAnError) {
    Workplace place;
    place.makeSigner("one");
    static_cast<void>(place.json({"sign", "report.txt", "--cert", "Signer one"}));
    place.folder().write("report.txt", "changed");
    const Json verdict = place.json({"verify", "report.txt.sig"});
    EXPECT_EQ(verdict["valid"], false);
    EXPECT_FALSE(verdict["reason"].get<std::string>().empty());
    EXPECT_FALSE(verdict.contains("error"));
}

TEST(DataFolder, IsWhereInfoSaysItIs) {
    const Workplace place;
    const std::string folder = place.folder().path();
    const std::pair<std::map<std::string, std::string>, std::string> rows[] = {
        {{{"KLUNORTREDI_HOME", "own"}}, folder + "/own"},
        {{{"KLUNORTREDI_HOME", ""}, {"XDG_DATA_HOME", folder + "/xdg"}}, folder + "/xdg/klunortredi"},
        {{{"KLUNORTREDI_HOME", ""}, {"XDG_DATA_HOME", "relative"}, {"HOME", folder + "/me"}},
         folder + "/me/.local/share/klunortredi"},
    };
    for (const auto& [environment, expected] : rows) {
        RunOptions options;
        options.environment = environment;
        const Outcome info = place.cli({"info", "--json"}, options);
        EXPECT_EQ(Json::parse(info.out)["data_directory"], expected);
        ASSERT_EQ(
            place.cliWithPin({"request", "--container", "one", "--subject", "2.5.4.3=One", "--force"}, options).exit,
            0);
        EXPECT_TRUE(std::filesystem::exists(expected + "/containers/one.80/container.json")) << expected;
    }
}

TEST(JsonOutput, HasSerialNumbersOfOneOctet) {
    const Workplace place;
    place.openssl().must({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout",
                          "short.key", "-out", "short.pem", "-subj", "/CN=Short", "-set_serial", "5"});
    ASSERT_EQ(place.cli({"certs", "add", "short.pem"}).exit, 0);
    EXPECT_EQ(place.json({"certs", "show", "Short"})["certificates"][0]["serial"], "05");
    EXPECT_EQ(place.json({"certs", "show", "05"})["certificates"].size(), 1U);
    place.openssl().must({"cms", "-sign", "-binary", "-nodetach", "-in", "report.txt", "-signer", "short.pem", "-inkey",
                          "short.key", "-outform", "DER", "-out", "report.p7s"});
    EXPECT_THAT(place.cli({"verify", "report.p7s"}).out, testing::HasSubstr("\n  serial       05\n"));
}

} // namespace
} // namespace cli_test
