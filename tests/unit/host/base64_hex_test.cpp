#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/hex.hpp"

#include <gmock/gmock.h>

#include <string>

namespace {

using namespace std::string_literals;
namespace base64 = orvik::plugin::base64;
namespace hex = orvik::plugin::hex;
using testing::Not;

std::string everyOctet(std::size_t size) {
    std::string octets(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        octets[i] = static_cast<char>(i * 7 % 256);
    }
    return octets;
}

// RFC 4648, section 10.
TEST(Base64, EncodesTheVectorsOfTheStandard) {
    EXPECT_EQ(base64::encode(""), "");
    EXPECT_EQ(base64::encode("f"), "Zg==");
    EXPECT_EQ(base64::encode("fo"), "Zm8=");
    EXPECT_EQ(base64::encode("foo"), "Zm9v");
    EXPECT_EQ(base64::encode("foob"), "Zm9vYg==");
    EXPECT_EQ(base64::encode("fooba"), "Zm9vYmE=");
    EXPECT_EQ(base64::encode("foobar"), "Zm9vYmFy");
}

TEST(Base64, DecodesWhatItEncodes) {
    for (std::size_t size = 0; size < 300; ++size) {
        const std::string octets = everyOctet(size);
        EXPECT_EQ(base64::decode(base64::encode(octets)), octets) << size;
    }
}

// Pieces go through OpenSSL's int lengths: no seam may show.
TEST(Base64, DecodesWhatItEncodesAcrossPieces) {
    const std::string octets = everyOctet((std::size_t{3} << 20) * 2 + 2);
    const std::string text = base64::encode(octets);
    EXPECT_EQ(text.find_first_of("\n\r"), std::string::npos);
    EXPECT_EQ(base64::decode(text), octets);
}

TEST(Base64, AllowsWhiteSpaceAnywhere) {
    EXPECT_EQ(base64::decode(" Zm9v\r\nYm\tFy \n"), "foobar");
    EXPECT_EQ(base64::decode("Zm8\n="), "fo");
}

TEST(Base64, IsEmptyForWhatIsNotBase64) {
    for (const auto* text : {"", " \n", "=", "====", "Z===", "Zg=", "Zg", "Zm9v!", "Zg==Zg==", "Zm9=v", "Zm9vY-Fy",
                             "Zm9vY_Fy", "-----BEGIN"}) {
        EXPECT_EQ(base64::decode(text), "") << text;
    }
    EXPECT_EQ(base64::decode("Zm9\0"s), "");
    EXPECT_EQ(base64::decode("Zm9\xD0"), "");
}

TEST(Base64Likely, LooksAtTheFirstCharactersOnly) {
    EXPECT_TRUE(base64::likely("MIIBszCCAV", 10));
    EXPECT_TRUE(base64::likely("MIIBszCCAV\x01\xFF", 10));
    EXPECT_FALSE(base64::likely("MIIBszCCA\x01", 10));
}

TEST(Base64Likely, LooksAtAllOfAShorterText) {
    EXPECT_TRUE(base64::likely("MII=", 10));
    EXPECT_FALSE(base64::likely("MI!", 10));
}

TEST(Base64Likely, IsFalseForAnEmptyText) {
    EXPECT_FALSE(base64::likely("", 10));
}

TEST(Base64Likely, IsFalseForDerAndForArmour) {
    EXPECT_FALSE(base64::likely("\x30\x82\x01\xB3\x30\x82\x01\x5E\xA0\x03", 10));
    EXPECT_FALSE(base64::likely("-----BEGIN CERTIFICATE-----", 10));
}

TEST(Hex, EncodesInLowerCase) {
    EXPECT_EQ(hex::encode("\x00\x7F\xAB\xFF"s), "007fabff");
    EXPECT_EQ(hex::encode(""), "");
}

TEST(Hex, DecodesEitherCase) {
    EXPECT_EQ(hex::decode("007FabFf"), "\x00\x7F\xAB\xFF"s);
    EXPECT_EQ(hex::decode(""), "");
}

TEST(Hex, RefusesOtherText) {
    EXPECT_THROW(hex::decode("0"), std::exception);
    EXPECT_THROW(hex::decode("0g"), std::exception);
    EXPECT_THROW(hex::decode("00 11"), std::exception);
}

} // namespace
