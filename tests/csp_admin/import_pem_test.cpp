// Private keys as files of their own, each with its certificate.

#include "csp_admin/place.hpp"

#include <gmock/gmock.h>

namespace admin_test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

TEST(ImportOfPair, SignsWithAKeyInPkcs8) {
    const Place place;
    place.makeKey("one");
    const Outcome importing = place.import({"one.key", "one.pem"});
    ASSERT_EQ(importing.exit, 0) << importing.err;
    EXPECT_THAT(place.signingProblem("Signer one"), IsEmpty());
}

TEST(ImportOfPair, TakesBothFilesInOneWord) {
    const Place place;
    place.makeKey("one");
    EXPECT_EQ(place.import({"one.key+one.pem"}).exit, 0);
    place.folder().write("a+b.key", place.folder().read("one.key"));
    EXPECT_EQ(place.import({"a+b.key+one.pem"}).exit, 0) << "a plus in a name";
    EXPECT_EQ(place.import({"one.key+nowhere.pem"}).exit, 3);
}

TEST(ImportOfPair, TakesDerAndBase64) {
    const Place place;
    place.makeKey("one");
    place.openssl().must({"pkey", "-in", "one.key", "-outform", "DER", "-out", "der.key"});
    place.openssl().must({"x509", "-in", "one.pem", "-outform", "DER", "-out", "one.der"});
    place.openssl().must({"base64", "-in", "der.key", "-out", "base64.key"});
    EXPECT_EQ(place.import({"der.key", "one.der"}).exit, 0);
    EXPECT_EQ(place.import({"base64.key", "one.pem"}).exit, 0);
}

TEST(ImportOfPair, TakesFilesThatBeginWithLongText) {
    const Place place;
    place.makeKey("one");
    std::string text;
    for (int line = 0; line < 400; ++line) {
        text += "    00:11:22:33:44:55:66:77:88:99:aa:bb:cc:dd:ee:\n";
    }
    for (const char* file : {"one.key", "one.pem"}) {
        place.folder().write(file, text + place.folder().read(file));
    }
    const Outcome importing = place.import({"one.key", "one.pem"});
    EXPECT_EQ(importing.exit, 0) << importing.err;
}

TEST(ImportOfPair, TakesBothFromAFileThatHoldsTheKeyFirst) {
    const Place place;
    place.makeKey("one");
    place.folder().write("both.pem", place.folder().read("one.key") + place.folder().read("one.pem"));
    const Outcome importing = place.import({"both.pem", "both.pem"});
    EXPECT_EQ(importing.exit, 0) << importing.err;
    EXPECT_THAT(place.signingProblem("Signer one"), IsEmpty());
}

TEST(ImportOfPair, AsksForThePasswordOfAnEncryptedKey) {
    const Place place;
    place.makeKey("one");
    place.openssl().must({"pkcs8", "-topk8", "-in", "one.key", "-v2", "aes-256-cbc", "-out", "locked.key", "-passout",
                          "file:password.txt"});
    EXPECT_EQ(place.admin({"import", "locked.key", "one.pem", "--pin-file", "pin.txt"}).exit, 2);
    const Outcome wrong =
        place.admin({"import", "locked.key", "one.pem", "--pin-file", "pin.txt", "--password-file", "wrong.txt"});
    EXPECT_EQ(wrong.exit, 6);
    EXPECT_THAT(wrong.err, HasSubstr("password"));
    EXPECT_EQ(place.import({"locked.key", "one.pem"}).exit, 0);
}

TEST(ImportOfPair, TakesATraditionalRsaKeyEncryptedOrNot) {
    const Place place;
    place.makeKey("rsa", {"rsa:2048"});
    place.openssl().must({"rsa", "-in", "rsa.key", "-traditional", "-out", "plain.key"});
    place.openssl().must(
        {"rsa", "-in", "rsa.key", "-traditional", "-aes256", "-passout", "file:password.txt", "-out", "locked.key"});
    ASSERT_THAT(place.folder().read("locked.key"), HasSubstr("BEGIN RSA PRIVATE KEY"));
    EXPECT_EQ(place.import({"plain.key", "rsa.pem"}).exit, 0);
    EXPECT_EQ(place.import({"locked.key", "rsa.pem"}).exit, 0);
    EXPECT_EQ(place
                  .admin({"import", "locked.key", "rsa.pem", "--name", "x", "--pin-file", "pin.txt", "--password-file",
                          "wrong.txt"})
                  .exit,
              6);
}

TEST(ImportOfPair, TakesAKeyUnderTheAgreementOid) {
    const Place place;
    place.makeKey("one");
    place.openssl().must({"pkey", "-in", "one.key", "-outform", "DER", "-out", "one.der"});
    std::string key = place.folder().read("one.der");
    const std::string signature("\x2A\x85\x03\x07\x01\x01\x01\x01", 8);
    const std::string agreement("\x2A\x85\x03\x07\x01\x01\x06\x01", 8);
    const auto at = key.find(signature);
    ASSERT_NE(at, std::string::npos);
    place.folder().write("agreement.der", key.replace(at, signature.size(), agreement));
    const Outcome importing = place.import({"agreement.der", "one.pem"});
    ASSERT_EQ(importing.exit, 0) << importing.err;
    EXPECT_THAT(place.signingProblem("Signer one"), IsEmpty());
}

TEST(ImportOfPair, RefusesTheCertificateOfAnotherKey) {
    const Place place;
    place.makeKey("one");
    place.makeKey("two");
    const Outcome importing = place.import({"one.key", "two.pem"});
    EXPECT_EQ(importing.exit, 4);
    EXPECT_THAT(importing.err, HasSubstr("the certificate is of another key"));
    EXPECT_THAT(place.json({"list"})["containers"], IsEmpty());
}

} // namespace
} // namespace admin_test
