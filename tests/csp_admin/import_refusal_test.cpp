// What cannot be imported: one clear line, the right exit code, and nothing left behind.

#include "csp_admin/made_files.hpp"
#include "csp_admin/place.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <filesystem>

namespace admin_test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class RefusedImport : public testing::Test {
protected:
    RefusedImport() {
        place_.makeKey("one");
        place_.makePfx("one");
    }

    void expectNothing() const { EXPECT_THAT(place_.json({"list"})["containers"], IsEmpty()); }

    Place place_;
};

TEST_F(RefusedImport, WrongPassword) {
    const Outcome importing =
        place_.admin({"import", "one.p12", "--pin-file", "pin.txt", "--password-file", "wrong.txt"});
    EXPECT_EQ(importing.exit, 6);
    EXPECT_THAT(importing.err, HasSubstr("the password is wrong"));
    expectNothing();
}

TEST_F(RefusedImport, AKeyThatAsksForHoursOfWorkBeforeItsPasswordIsJudged) {
    const std::vector<std::string> slow{encryptedKeyOf(20'000'001), encryptedKeyOf(2'147'483'647),
                                        scryptKeyOf(1U << 14U, 8, 15'000)};
    for (const std::string& key : slow) {
        place_.folder().write("slow.key", key);
        const Outcome importing = place_.import({"slow.key", "one.pem"});
        EXPECT_EQ(importing.exit, 3);
        EXPECT_THAT(importing.err, HasSubstr("more work than any key file needs"));
    }
    for (const std::string& key : {encryptedKeyOf(1000), scryptKeyOf(1U << 14U, 8, 1)}) {
        place_.folder().write("quick.key", key);
        EXPECT_EQ(place_.import({"quick.key", "one.pem"}).exit, 6);
    }
    expectNothing();
}

TEST_F(RefusedImport, AKeyAfterAMalformedOneInPemWhoseWorkNobodyEstimated) {
    place_.folder().write("second.key", pemOfEncryptedKey("no key") + pemOfEncryptedKey(encryptedKeyOf(1000)));
    EXPECT_EQ(place_.import({"second.key", "one.pem"}).exit, 3) << "6: its password was judged";
    expectNothing();
}

TEST_F(RefusedImport, PfxWhosePartsTogetherAskForHoursOfWork) {
    const std::vector<std::string> slow{pfxOfSlowKeys(1000, 30'000, nullptr), pfxOfSlowKeys(1000, 30'000, "pass"),
                                        pfxOfSlowKeys(5000, 10'000'000, nullptr), pfxWithSlowMac(2'000'000'000)};
    place_.folder().write("pass.txt", "pass\n");
    for (const std::string& file : slow) {
        place_.folder().write("slow.p12", file);
        const Outcome importing =
            place_.admin({"import", "slow.p12", "--pin-file", "pin.txt", "--password-file", "pass.txt"});
        EXPECT_EQ(importing.exit, 3);
        EXPECT_THAT(importing.err, HasSubstr("more work than any key file needs"));
    }
    expectNothing();
}

TEST_F(RefusedImport, AKeyOnATestCurve) {
    place_.makeKey("sample", {"gost2012_256", "-pkeyopt", "paramset:0"});
    const Outcome importing = place_.import({"sample.key", "sample.pem"});
    EXPECT_EQ(importing.exit, 4);
    EXPECT_THAT(importing.err, HasSubstr("it is on the test curve 1.2.643.2.2.35.0"));
    expectNothing();
}

TEST_F(RefusedImport, NoFile) {
    EXPECT_EQ(place_.import({"nowhere.p12"}).exit, 3);
    EXPECT_EQ(place_.import({"one.key", "nowhere.pem"}).exit, 3);
    EXPECT_EQ(place_.import({"."}).exit, 3);
    expectNothing();
}

TEST_F(RefusedImport, AFileThatIsNoKeyFile) {
    const Outcome certificate = place_.import({"one.pem"});
    EXPECT_EQ(certificate.exit, 3);
    EXPECT_THAT(certificate.err, HasSubstr("no PKCS#12 file"));
    EXPECT_EQ(place_.import({"report.txt", "one.pem"}).exit, 3);
    EXPECT_EQ(place_.import({"one.key", "report.txt"}).exit, 3);
    expectNothing();
}

TEST_F(RefusedImport, AFileCutShortAnywhere) {
    const std::string whole = place_.folder().read("one.p12");
    for (std::size_t size = 0; size < whole.size(); size += 97) {
        place_.folder().write("cut.p12", whole.substr(0, size));
        const Outcome importing = place_.import({"cut.p12"});
        EXPECT_EQ(importing.exit, 3) << size << ": " << importing.err;
    }
    expectNothing();
}

TEST_F(RefusedImport, AFileChangedAnywhere) {
    const std::string whole = place_.folder().read("one.p12");
    int damaged = 0;
    for (std::size_t at = 0; at < whole.size(); at += 101) {
        std::string changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ 0x41);
        place_.folder().write("changed.p12", changed);
        const Outcome importing = place_.import({"changed.p12"});
        EXPECT_TRUE(importing.exit == 3 || importing.exit == 6) << at << ": " << importing.exit << importing.err;
        damaged += importing.exit == 3 ? 1 : 0;
    }
    EXPECT_GT(damaged, 0);
    expectNothing();
}

TEST_F(RefusedImport, AnExistingContainerStays) {
    place_.mustImport({"one.p12", "--name", "taken"});
    place_.makeKey("two");
    place_.makePfx("two");
    const Outcome importing = place_.import({"two.p12", "--name", "taken"});
    EXPECT_EQ(importing.exit, 4);
    EXPECT_THAT(importing.err, HasSubstr("there already"));
    EXPECT_THAT(place_.signingProblem("Signer one"), IsEmpty());
}

TEST_F(RefusedImport, NamesThatNoContainerCanHave) {
    EXPECT_EQ(place_.import({"one.p12", "--name", "a/b"}).exit, 4);
    EXPECT_EQ(place_.import({"one.p12", "--name", ".."}).exit, 4);
    EXPECT_EQ(place_.import({"one.p12", "--name", "日本"}).exit, 4) << "not in Windows-1251";
    expectNothing();
}

TEST_F(RefusedImport, AKeyOfAnotherAlgorithm) {
    place_.makeKey("curve", {"ec", "-pkeyopt", "ec_paramgen_curve:P-256"});
    place_.makePfx("curve");
    const Outcome importing = place_.import({"curve.p12"});
    EXPECT_EQ(importing.exit, 4);
    EXPECT_THAT(importing.err, HasSubstr("1.2.840.10045.2.1"));
    place_.makeKey("short", {"rsa:1024"});
    place_.makePfx("short");
    EXPECT_EQ(place_.import({"short.p12"}).exit, 4);
    expectNothing();
}

TEST_F(RefusedImport, OfAFileWithoutKey) {
    place_.openssl().must(
        {"pkcs12", "-export", "-nokeys", "-in", "one.pem", "-out", "certificate.p12", "-passout", "file:password.txt"});
    const Outcome importing = place_.import({"certificate.p12"});
    EXPECT_EQ(importing.exit, 3);
    EXPECT_THAT(importing.err, HasSubstr("no private key"));
}

TEST_F(RefusedImport, WithoutPinAndTerminal) {
    const Outcome importing = place_.admin({"import", "one.p12", "--password-file", "password.txt"});
    EXPECT_EQ(importing.exit, 2);
    EXPECT_THAT(importing.err, HasSubstr("--pin-file"));
    const Outcome locked = place_.admin({"import", "one.p12", "--pin-file", "pin.txt"});
    EXPECT_EQ(locked.exit, 2);
    EXPECT_THAT(locked.err, HasSubstr("--password-file"));
    expectNothing();
    EXPECT_EQ(place_.import({"one.p12"}).exit, 0) << "the refused one left its name taken";
}

TEST_F(RefusedImport, WhereTheDataCannotBeWritten) {
    RunOptions options;
    options.fileSizeLimit = 256; // stands for a full disk
    const Outcome importing = place_.import({"one.p12"}, options);
    EXPECT_NE(importing.exit, 0);
    expectNothing();
    EXPECT_EQ(place_.import({"one.p12"}).exit, 0);
}

TEST_F(RefusedImport, AtTheSizeLimitOfTheUser) {
    const Outcome importing =
        place_.tool({"sh", "-c",
                     std::string("ulimit -f 0; exec '") + KLUNORTREDI_CSP +
                         "' container import one.p12 --pin-file pin.txt --password-file password.txt"});
    EXPECT_EQ(importing.exit, 3) << "signal " << importing.signal;
    EXPECT_THAT(importing.err, HasSubstr("the disk is full"));
    expectNothing();
}

TEST_F(RefusedImport, WhereTheCertificateCannotBeLinked) {
    place_.home().write("stores", "no folder");
    const Outcome importing = place_.import({"one.p12"});
    EXPECT_NE(importing.exit, 0);
    expectNothing();
    place_.home().remove("stores");
    const Outcome again = place_.import({"one.p12"});
    EXPECT_EQ(again.exit, 0) << again.err;
    EXPECT_THAT(place_.signingProblem("Signer one"), IsEmpty());
}

TEST_F(RefusedImport, WrongUsage) {
    EXPECT_EQ(place_.admin({}).exit, 2);
    EXPECT_EQ(place_.admin({"import"}).exit, 2);
    EXPECT_EQ(place_.admin({"impart", "one.p12"}).exit, 2);
    EXPECT_EQ(place_.admin({"unlock"}).exit, 2);
}

TEST_F(RefusedImport, FilesOfTheContainerAreTheOwnersAlone) {
    place_.mustImport({"one.p12"});
    for (const auto& entry : std::filesystem::recursive_directory_iterator(place_.home().path())) {
        const auto others = std::filesystem::perms::group_all | std::filesystem::perms::others_all;
        EXPECT_EQ(entry.status().permissions() & others, std::filesystem::perms::none) << entry.path();
    }
}

} // namespace
} // namespace admin_test
