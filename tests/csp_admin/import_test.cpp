// Key files as other programs make them: imported, then signed with, and the signature verified by openssl.

#include "csp_admin/made_files.hpp"
#include "csp_admin/place.hpp"

#include <gmock/gmock.h>

namespace admin_test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

struct Kind {
    const char* name;
    Words algorithm;
    int providerType;
    friend void PrintTo(const Kind& value, std::ostream* out) { *out << value.name; }
};

class ImportOfKey : public testing::TestWithParam<Kind> {};

TEST_P(ImportOfKey, MadeByOpensslGoesToItsProviderAndSigns) {
    const Place place;
    place.makeKey("one", GetParam().algorithm);
    place.makePfx("one");
    const Outcome importing = place.import({"one.p12"});
    ASSERT_EQ(importing.exit, 0) << importing.err;
    EXPECT_EQ(place.json({"list"})["containers"][0]["type"], GetParam().providerType);
    EXPECT_THAT(place.signingProblem("Signer one"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Kinds, ImportOfKey,
                         testing::Values(Kind{"Gost256CryptoProA", {"gost2012_256", "-pkeyopt", "paramset:A"}, 80},
                                         Kind{"Gost256CryptoProXA", {"gost2012_256", "-pkeyopt", "paramset:XA"}, 80},
                                         Kind{"Gost256Tc26A", {"gost2012_256", "-pkeyopt", "paramset:TCA"}, 80},
                                         Kind{"Gost512A", {"gost2012_512", "-pkeyopt", "paramset:A"}, 81},
                                         Kind{"Gost512C", {"gost2012_512", "-pkeyopt", "paramset:C"}, 81},
                                         Kind{"Rsa", {"rsa:2048"}, 24}),
                         [](const auto& kind) { return kind.param.name; });

TEST(Import, TakesAKeyOf2001) {
    const Place place;
    place.makeKey("old", {"gost2001", "-pkeyopt", "paramset:A"});
    place.makePfx("old");
    const Outcome importing = place.import({"old.p12"});
    ASSERT_EQ(importing.exit, 0) << importing.err;
    EXPECT_EQ(place.json({"list"})["containers"][0]["type"], 75);
}

struct Protection {
    const char* name;
    Words words;
    friend void PrintTo(const Protection& value, std::ostream* out) { *out << value.name; }
};

class ImportOfProtection : public testing::TestWithParam<Protection> {};

TEST_P(ImportOfProtection, MadeByOpensslIsOpened) {
    const Place place;
    place.makeKey("one");
    place.makePfx("one", GetParam().words);
    EXPECT_EQ(place.admin({"import", "one.p12", "--pin-file", "pin.txt", "--password-file", "wrong.txt"}).exit, 6);
    const Outcome importing = place.import({"one.p12"});
    EXPECT_EQ(importing.exit, 0) << importing.err;
}

INSTANTIATE_TEST_SUITE_P(
    Protections, ImportOfProtection,
    testing::Values(
        Protection{"GostCipherAndMac256", {"-keypbe", "gost89", "-certpbe", "gost89", "-macalg", "md_gost12_256"}},
        Protection{"GostCipherAndMac512", {"-keypbe", "gost89", "-certpbe", "gost89", "-macalg", "md_gost12_512"}},
        Protection{"MacOf1994", {"-macalg", "md_gost94"}}, Protection{"NoMac", {"-nomac"}},
        Protection{"PlainCertificate", {"-certpbe", "NONE"}}, Protection{"OldCiphers", {"-legacy", "-macalg", "sha1"}}),
    [](const auto& protection) { return protection.param.name; });

TEST(Import, TakesAMacOf1994WithAKeyOfAppendixB) {
    const Place place;
    place.makeKey("one");
    const Outcome made = test_support::run(
        {"openssl", "pkcs12", "-export", "-inkey", place.folder() / "one.key", "-in", place.folder() / "one.pem",
         "-out", place.folder() / "one.p12", "-passout", "pass:secret", "-macalg", "md_gost94"},
        {{{"OPENSSL_CONF", place.folder() / "openssl.cnf"}, {"LEGACY_GOST_PKCS12", "1"}}, {}, {}});
    ASSERT_EQ(made.exit, 0) << made.err;
    EXPECT_NE(place.openssl().run({"pkcs12", "-in", "one.p12", "-passin", "pass:secret", "-noout"}).exit, 0)
        << "openssl reads it: this is not the case in question";
    const Outcome importing = place.import({"one.p12"});
    EXPECT_EQ(importing.exit, 0) << importing.err;
}

class ImportFromCerttool : public testing::TestWithParam<const char*> {};

TEST_P(ImportFromCerttool, IsOpenedAndSigns) {
    if (!installed("certtool")) {
        GTEST_SKIP() << "certtool is not installed";
    }
    const Place place;
    place.makeKey("one");
    place.mustTool({"certtool", "--to-p12", "--load-privkey", "one.key", "--load-certificate", "one.pem", "--p12-name",
                    "made by certtool", "--password", "secret", "--outder", "--outfile", "one.p12", "--pkcs-cipher",
                    GetParam()});
    const Outcome importing = place.import({"one.p12"});
    ASSERT_EQ(importing.exit, 0) << importing.err;
    EXPECT_THAT(importing.out, HasSubstr("container made by certtool"));
    EXPECT_THAT(place.signingProblem("Signer one"), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Ciphers, ImportFromCerttool, testing::Values("gost28147-tc26z", "gost28147-cpa", "aes-256"),
                         [](const auto& cipher) {
                             std::string name = cipher.param;
                             std::erase(name, '-');
                             return name;
                         });

TEST(Import, TakesPasswordsInCyrillicOfEitherDerivation) {
    const Place place;
    place.makeKey("one");
    place.folder().write("password.txt", "Пароль для ключа\n");
    for (const char* mac : {"md_gost12_512", "sha256"}) {
        place.makePfx("one", {"-macalg", mac});
        EXPECT_EQ(place.import({"one.p12", "--name", mac}).exit, 0) << mac;
    }
}

TEST(Import, OpensAFileWithoutPasswordUnasked) {
    const Place place;
    place.makeKey("one");
    place.openssl().must(
        {"pkcs12", "-export", "-inkey", "one.key", "-in", "one.pem", "-out", "empty.p12", "-passout", "pass:"});
    const Outcome importing = place.admin({"import", "empty.p12", "--pin-file", "pin.txt"});
    EXPECT_EQ(importing.exit, 0) << importing.err;
}

TEST(Import, NamesTheContainerAsAskedElseAsTheKeyElseAsTheFile) {
    const Place place;
    place.makeKey("one");
    place.makePfx("one");
    EXPECT_THAT(place.import({"one.p12"}).out, HasSubstr("container one\n"));
    place.makePfx("one", {"-name", "Ключ Иванова"});
    EXPECT_THAT(place.import({"one.p12"}).out, HasSubstr("container Ключ Иванова\n"));
    EXPECT_THAT(place.import({"one.p12", "--name", "mine"}).out, HasSubstr("container mine\n"));
    place.makePfx("one", {"-name", "no/container"});
    place.folder().write("file.p12", place.folder().read("one.p12"));
    EXPECT_THAT(place.import({"file.p12"}).out, HasSubstr("container file\n"));
}

TEST(Import, LeavesTheCertificatesOfOthersOut) {
    const Place place;
    place.makeKey("one");
    place.makePfx("one", {"-certfile", "ca.pem"});
    const Outcome importing = place.import({"one.p12"});
    ASSERT_EQ(importing.exit, 0) << importing.err;
    EXPECT_THAT(importing.err, HasSubstr("1 other certificate"));
    EXPECT_THAT(place.signingProblem("Signer one"), IsEmpty());
}

TEST(Import, TakesAKeyWithoutCertificateAndTellsWhatIsMissing) {
    const Place place;
    place.makeKey("one");
    place.openssl().must(
        {"pkcs12", "-export", "-inkey", "one.key", "-nocerts", "-out", "bare.p12", "-passout", "file:password.txt"});
    const Outcome importing = place.import({"bare.p12"});
    ASSERT_EQ(importing.exit, 0) << importing.err;
    EXPECT_THAT(importing.err, HasSubstr("klunortredi install"));
}

TEST(Import, ReadsPemArmour) {
    const Place place;
    place.makeKey("one");
    place.makePfx("one");
    place.openssl().must({"base64", "-in", "one.p12", "-out", "one.b64"});
    place.folder().write("armoured.p12",
                         "-----BEGIN PKCS12-----\n" + place.folder().read("one.b64") + "-----END PKCS12-----\n");
    EXPECT_EQ(place.import({"armoured.p12"}).exit, 0);
}

TEST(Import, TellsKeysApartThatCarryOneIdentifier) {
    const Place place;
    const Words rsa{"RSA", "-pkeyopt", "rsa_keygen_bits:2048"};
    place.makeKey("one", rsa);
    place.makeKey("two", rsa);
    const auto read = [&](const std::string& name) { return place.folder().read(name); };
    place.folder().write(
        "both.p12", pfxWithOneId({read("one.key"), read("two.key")}, {read("one.pem"), read("two.pem")}, "secret"));
    const Outcome undecided = place.import({"both.p12"});
    EXPECT_EQ(undecided.exit, 2) << undecided.err;
    place.mustImport({"both.p12", "--key", "1", "--name", "first"});
    place.mustImport({"both.p12", "--key", "2", "--name", "second"});
    EXPECT_EQ(place.signingProblem("Signer one"), "");
    EXPECT_EQ(place.signingProblem("Signer two"), "");
}

} // namespace
} // namespace admin_test
