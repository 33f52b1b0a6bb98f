// Keys that others published.

#include "corpora/tally.hpp"
#include "csp_admin/place.hpp"

#include <gmock/gmock.h>

namespace admin_test {
namespace {

using testing::IsEmpty;

class PublishedKey : public testing::Test {
protected:
    void SetUp() override {
        root_ = corpora::root();
        if (!root_) {
            GTEST_SKIP() << "the folder of published cases is not here";
        }
    }

    std::optional<std::string> root_;
    Place place_;
};

TEST_F(PublishedKey, Pkcs12FilesGetTheVerdictOfTheirPublishers) {
    corpora::Tally tally("gnutls-gost (p12)");
    for (const corpora::Case& row : corpora::cases(*root_, "gnutls-gost")) {
        if (row.op != "p12" || !tally.offered(row)) {
            continue;
        }
        place_.folder().write("password.txt", row.args.at("pass") + "\n");
        tally.note(row, place_.import({row.folder + "/" + row.input}).exit == 0 ? "OK" : "FAIL");
    }
    tally.print();
    EXPECT_GT(tally.right(), 0);
    EXPECT_THAT(tally.surprises(), IsEmpty());
}

/// The certificate is made by certtool from the same file: another judge of what its octets mean. One curve is unknown
/// to it; there openssl judges.
TEST_F(PublishedKey, Pkcs8FilesAreUnderstoodAsGnutlsUnderstandsThem) {
    if (!installed("certtool")) {
        GTEST_SKIP() << "certtool is not installed";
    }
    int imported = 0;
    int byCerttool = 0;
    for (const corpora::Case& row : corpora::cases(*root_, "gnutls-gost")) {
        if (row.op != "parse" || row.args.at("type") != "pkey") {
            continue;
        }
        const std::string key = row.folder + "/" + row.input;
        // A serial number of its own: the store does not replace a certificate by one of another key.
        place_.folder().write("template", "cn = \"Published\"\nserial = " + std::to_string(7 + imported) +
                                              "\nexpiration_days = 30\nsigning_key\n");
        const bool judged = place_
                                .tool({"certtool", "--generate-self-signed", "--load-privkey", key, "--template",
                                       "template", "--outfile", "certificate.pem"})
                                .exit == 0;
        if (!judged) {
            place_.openssl().must({"req", "-x509", "-key", key, "-subj", "/CN=Published", "-out", "certificate.pem"});
        }
        byCerttool += judged ? 1 : 0;
        const Outcome importing = place_.import({key, "certificate.pem", "--name", row.id});
        EXPECT_EQ(importing.exit, 0) << row.id << ": " << importing.err;
        imported += importing.exit == 0 ? 1 : 0;
    }
    EXPECT_EQ(imported, 5);
    EXPECT_GE(byCerttool, 4);
}

TEST_F(PublishedKey, ExampleKeysOfTk26BelongToTheirCertificatesAndSign) {
    for (const std::string bits : {"256", "512"}) {
        const std::string stem = *root_ + "/gost-tk26-pygost/";
        const Outcome importing =
            place_.import({stem + "key" + bits + ".p8.der", stem + "cert" + bits + ".der", "--name", bits});
        ASSERT_EQ(importing.exit, 0) << importing.err;
        EXPECT_THAT(place_.signingProblem(bits + " bit"), IsEmpty());
    }
}

} // namespace
} // namespace admin_test
