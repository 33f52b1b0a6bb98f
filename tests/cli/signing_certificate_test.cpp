// CMS signatures name the signer's certificate among what is signed (CAdES-BES).

#include "cli/workplace.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

class SigningCertificate : public testing::TestWithParam<const char*> {
protected:
    SigningCertificate() { place_.makeSigner("one", GetParam()); }

    void sign(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> words{"sign", "report.txt", "--cert", "Signer one", "--force"};
        words.insert(words.end(), more.begin(), more.end());
        const Outcome signing = place_.cliWithPin(words);
        ASSERT_EQ(signing.exit, 0) << signing.err;
    }
    [[nodiscard]] Outcome opensslVerify(const std::vector<std::string>& more) const {
        std::vector<std::string> words{"cms",        "-verify",  "-inform",    "DER",     "-in",    "report.txt.sig",
                                       "-binary",    "-content", "report.txt", "-CAfile", "ca.pem", "-out",
                                       "openssl.out"};
        words.insert(words.end(), more.begin(), more.end());
        return place_.openssl().run(words);
    }
    [[nodiscard]] std::string shown() const {
        return place_.openssl().run({"cms", "-cmsout", "-print", "-inform", "DER", "-in", "report.txt.sig"}).out;
    }

    Workplace place_;
};

TEST_P(SigningCertificate, IsNamedByDefault) {
    sign();
    EXPECT_THAT(shown(), HasSubstr("id-smime-aa-signingCertificateV2"));
    const Outcome plain = opensslVerify({});
    EXPECT_EQ(plain.exit, 0) << plain.err;
    EXPECT_EQ(place_.cli({"verify", "report.txt.sig"}).exit, 0);
}

TEST_P(SigningCertificate, IsLeftOutOnRequest) {
    sign({"--no-signing-certificate"});
    EXPECT_THAT(shown(), Not(HasSubstr("id-smime-aa-signingCertificate")));
    EXPECT_EQ(place_.cli({"verify", "report.txt.sig"}).exit, 0);
}

TEST_P(SigningCertificate, OfTheUsersOwnIsNotReplaced) {
    // one ESSCertIDv2 with a hash of zeros: it names another certificate, and that is judged
    sign({"--attribute", "1.2.840.113549.1.9.16.2.47=DER:30263024302204200000" + std::string(60, '0')});
    EXPECT_EQ(place_.cli({"verify", "report.txt.sig"}).exit, 1);
}

INSTANTIATE_TEST_SUITE_P(Provider, SigningCertificate, testing::Values("80", "24"),
                         [](const auto& row) { return std::string("Type") + row.param; });

TEST(SigningCertificateOfRsa, IsWhatOtherToolsExpect) {
    Workplace place;
    place.makeSigner("one", "24");
    for (const bool named : {true, false}) {
        std::vector<std::string> words{"sign", "report.txt", "--cert", "Signer one", "--force"};
        if (!named) {
            words.emplace_back("--no-signing-certificate");
        }
        ASSERT_EQ(place.cliWithPin(words).exit, 0);
        const Outcome judged =
            place.openssl().run({"cms", "-verify", "-cades", "-inform", "DER", "-in", "report.txt.sig", "-binary",
                                 "-content", "report.txt", "-CAfile", "ca.pem", "-out", "openssl.out"});
        EXPECT_EQ(judged.exit == 0, named) << judged.err;
    }
}

} // namespace
} // namespace cli_test
