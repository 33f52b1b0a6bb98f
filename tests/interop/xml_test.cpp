// Signed XML documents as Java's XML-DSig and xmlsec1 judge them: RSA keys, the only ones that both know.

#include "cli/workplace.hpp"
#include "interop/bouncy_castle.hpp"

#include <gmock/gmock.h>

#include <optional>

namespace interop {
namespace {

using cli_test::Outcome;
using cli_test::Workplace;
using testing::ElementsAre;

class Xml : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string lack = BouncyCastle::lacks(); !lack.empty()) {
            GTEST_SKIP() << "Java cannot judge here: " << lack;
        }
        java_.emplace(place_.folder(), "XmlTool");
        place_.makeSigner("rsa", "24");
        place_.folder().write("order.xml", "<?xml version=\"1.0\"?>\n<order xmlns:x=\"urn:x\"><x:sum "
                                           "currency='RUB'>100</x:sum><!-- note --></order>\n");
        const Outcome signing = place_.cliWithPin(
            {"sign", "order.xml", "--cert", "Signer rsa", "--format", "xmldsig", "--out", "signed.xml"});
        ASSERT_EQ(signing.exit, 0) << signing.err;
    }

    /// Copies `file` to `changed` with that text replaced.
    void change(const std::string& file, const std::string& changed, const std::string& from, const std::string& to) {
        std::string text = place_.folder().read(file);
        const auto at = text.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        place_.folder().write(changed, text.replace(at, from.size(), to));
    }

    [[nodiscard]] int xmlsec(const std::string& file) const {
        const auto& folder = place_.folder();
        return test_support::run({"xmlsec1", "--verify", "--pubkey-cert-pem", folder / "rsa.pem", "--id-attr:Id",
                                  "http://uri.etsi.org/01903/v1.3.2#:SignedProperties", folder / file})
            .exit;
    }

    Workplace place_;
    std::optional<BouncyCastle> java_;
};

TEST_F(Xml, SignaturesWithPropertiesAreValidElsewhere) {
    change("signed.xml", "changed.xml", ">100<", ">101<");
    change("signed.xml", "time.xml", "SigningTime>2", "SigningTime>3");
    EXPECT_THAT(java_->run({"verify", "signed.xml", "changed.xml", "time.xml"}),
                ElementsAre("valid CN=Signer rsa", "invalid", "invalid"));
    EXPECT_EQ(xmlsec("signed.xml"), 0);
    EXPECT_NE(xmlsec("changed.xml"), 0);
    EXPECT_NE(xmlsec("time.xml"), 0);
}

} // namespace
} // namespace interop
