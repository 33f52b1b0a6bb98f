#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/tools.hpp"

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::string_literals;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::format::SignedAttribute;
using orvik::plugin::crypto::tools::signedAttributes;

constexpr const char* anOid = "1.2.3.4";
constexpr const char* signingTime = "1.2.840.113549.1.9.5";

SignedAttribute single(const std::string& type, const std::string& value, const std::string& oid = anOid) {
    const auto all = signedAttributes({{type, oid, value}});
    EXPECT_EQ(all.size(), 1U);
    return all.at(0);
}

void expectRefused(const std::string& type, const std::string& value, const std::string& told) {
    try {
        signedAttributes({{type, anOid, value}});
        FAIL() << type << " " << value;
    } catch (const CryptoException& e) {
        EXPECT_EQ(e.code().value(), 30048);
        EXPECT_EQ(*boost::get_error_info<orvik::plugin::exception::Value_>(e), told);
    }
}

TEST(SignedAttributes, MapTypeNamesToTags) {
    for (const auto& [name, tag] : {std::pair{"OCTET STRING", 4U},
                                    {"octets", 4U},
                                    {"UTF8String", 12U},
                                    {"utf8", 12U},
                                    {"INTEGER", 2U},
                                    {"int", 2U},
                                    {"Octet String", 4U},
                                    {"utf8STRING", 12U},
                                    {"INT", 2U}}) {
        const auto attribute = single(name, "42");
        EXPECT_EQ(attribute.type, tag) << name;
        EXPECT_EQ(attribute.oid, anOid);
        EXPECT_EQ(attribute.value, "42");
    }
}

TEST(SignedAttributes, KeepTheOrderOfTheSet) {
    const auto all = signedAttributes({{"utf8", "1.2.3", "b"}, {"int", "1.2.9", "1"}, {"utf8", "1.2.3", "a"}});
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].value, "1");
    EXPECT_EQ(all[1].value, "a");
    EXPECT_EQ(all[2].value, "b");
}

TEST(SignedAttributes, LeaveTheSigningTimeATextWhateverItsType) {
    for (const auto* type : {"time", "UTCTime", "utf8"}) {
        const auto attribute = single(type, "yesterday", signingTime);
        EXPECT_EQ(attribute.type, 23U);
        EXPECT_EQ(attribute.value, "yesterday");
    }
}

TEST(SignedAttributes, EncodeAnotherTime) {
    EXPECT_EQ(single("time", "1700000000").value, "\x17\x0D"s + "231114221320Z");
    EXPECT_EQ(single("time", "2023-11-14T22:13:20Z").value, "\x17\x0D"s + "231114221320Z");
    EXPECT_EQ(single("time", "2050-01-01T00:00:00Z").value, "\x18\x0F"s + "20500101000000Z");
    EXPECT_EQ(single("time", "1700000000").type, 23U);
}

TEST(SignedAttributes, RefuseATimeThatIsNone) {
    expectRefused("time", "yesterday", "yesterday");
    expectRefused("time", "99999999999999999999", "99999999999999999999");
    expectRefused("time", "", "");
}

TEST(SignedAttributes, TakeOneWholeDerValueAsHexadecimalText) {
    const auto attribute = single("DER", "0C0161");
    EXPECT_EQ(attribute.type, 0U);
    EXPECT_EQ(attribute.value, "\x0C\x01"s + "a");
}

TEST(SignedAttributes, RefuseDerThatIsNotOneWholeValue) {
    for (const auto* value : {"", "0C", "0C02", "0C0261", "0C016161", "0C0161 ", "hello"}) {
        expectRefused("der", value, value);
    }
}

TEST(SignedAttributes, RefuseATypeThatTheyDoNotKnow) {
    expectRefused("REAL", "1.5", "REAL");
    expectRefused("", "1.5", "");
    EXPECT_THROW(signedAttributes({{"REAL", signingTime, "0"}}), CryptoException);
}

} // namespace
