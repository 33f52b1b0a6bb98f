#include "asn1/der.hpp"

#include "support.hpp"

#include <openssl/asn1.h>

namespace klunortredi::csp::test {

namespace {

DWORD readFailure(std::string_view text) {
    const Bytes der = hex(text);
    return failureOf([&] { der::readOnly(der); });
}

TEST(DerReader, TakesElementsFromLeftToRight) {
    const Bytes der = hex("30 05 02 01 07 05 00");
    der::Reader reader = der::Reader(der).enter(der::tag::Sequence);
    EXPECT_EQ(der::toInt32(reader.read(der::tag::Integer)), 7);
    EXPECT_FALSE(reader.readIf(der::tag::Boolean));
    EXPECT_TRUE(reader.readIf(der::tag::Null));
    EXPECT_TRUE(reader.empty());
    reader.finish();
}

TEST(DerReader, RefusesWhatIsNotDer) {
    using namespace capi;
    struct Row {
        const char* der;
        DWORD error;
    };
    for (const Row& row : {Row{"", CRYPT_E_ASN1_EOD}, Row{"30", CRYPT_E_ASN1_EOD}, Row{"30 01", CRYPT_E_ASN1_EOD},
                           Row{"30 81", CRYPT_E_ASN1_EOD}, Row{"30 82 01", CRYPT_E_ASN1_EOD},
                           Row{"30 80 00 00", CRYPT_E_ASN1_CORRUPT}, Row{"04 81 01 AA", CRYPT_E_ASN1_CORRUPT},
                           Row{"04 82 00 01 AA", CRYPT_E_ASN1_CORRUPT}, Row{"04 85 01 00 00 00 00", CRYPT_E_ASN1_LARGE},
                           Row{"04 84 FF FF FF FF", CRYPT_E_ASN1_EOD}, Row{"1F 01 00", CRYPT_E_ASN1_BADTAG},
                           Row{"00 00", CRYPT_E_ASN1_BADTAG}, Row{"05 00 00", CRYPT_E_ASN1_CORRUPT}}) {
        EXPECT_EQ(readFailure(row.der), row.error) << row.der;
    }
}

TEST(DerReader, RefusesALengthThatBeginsWithAZero) {
    Bytes der = hex("04 82 00 80");
    der.resize(der.size() + 128);
    EXPECT_EQ(failureOf([&] { der::readOnly(der); }), capi::CRYPT_E_ASN1_CORRUPT);
}

TEST(DerReader, RefusesNumbersThatAreNotMinimal) {
    for (const char* const text : {"02 00", "02 02 00 7F", "02 02 FF 80"}) {
        EXPECT_EQ(failureOf([&] { der::toInteger(der::readOnly(hex(text))); }), capi::CRYPT_E_ASN1_CORRUPT) << text;
    }
    const Bytes large = hex("02 05 01 00 00 00 00");
    EXPECT_EQ(failureOf([&] { der::toUint32(der::readOnly(large)); }), capi::CRYPT_E_ASN1_LARGE);
    const Bytes negative = hex("02 01 FF");
    EXPECT_EQ(failureOf([&] { der::toUint32(der::readOnly(negative)); }), capi::CRYPT_E_ASN1_LARGE);
    EXPECT_EQ(der::toInt32(der::readOnly(negative)), -1);
}

TEST(DerReader, RefusesBitsSetBehindTheEnd) {
    for (const char* const text : {"03 00", "03 01 01", "03 02 08 00", "03 02 01 01"}) {
        const Bytes der = hex(text);
        EXPECT_EQ(failureOf([&] { der::toBitString(der::readOnly(der)); }), capi::CRYPT_E_ASN1_CORRUPT) << text;
    }
}

TEST(DerReader, RefusesMalformedIdentifiersAndBooleans) {
    for (const char* const text :
         {"06 00", "06 01 80", "06 02 80 01", "06 02 2A 83", "06 03 2A 80 01", "06 04 2A 03 80 80"}) {
        const Bytes der = hex(text);
        EXPECT_EQ(failureOf([&] { der::toOid(der::readOnly(der)); }), capi::CRYPT_E_ASN1_CORRUPT) << text;
    }
    const Bytes one = hex("01 01 01");
    EXPECT_EQ(failureOf([&] { der::toBool(der::readOnly(one)); }), capi::CRYPT_E_ASN1_CORRUPT);
}

TEST(DerReader, GivesIdentifiersOfAnyLengthAsText) {
    const std::string texts[] = {"2.25.329800735698586629295641978511506172918.1.2",
                                 "2.25.18446744073709551615.1", // 64 bits
                                 "2.25.18446744073709551616.1",
                                 "2.18446744073709551535.1", // with the 80 of its root 64 bits
                                 "2.18446744073709551536.1",
                                 "2.999.3",
                                 "2.47",
                                 "2.48",
                                 "1.39",
                                 "1.0",
                                 "0.39.127.128.16383.16384",
                                 "0.0"};
    for (const std::string& text : texts) {
        EXPECT_EQ(der::toOid(der::readOnly(der::objectIdentifier(text))), text);
    }
}

TEST(DerReader, TellsOneBerValue) {
    EXPECT_TRUE(der::isOneBerValue(hex("30 80 02 01 05 00 00")));
    EXPECT_TRUE(der::isOneBerValue(hex("A0 03 02 01 05")));
    for (const char* const text : {"", "30 80 02 01 05", "30 80 02 01 05 00 00 00", "02 01", "04 05 00"}) {
        EXPECT_FALSE(der::isOneBerValue(hex(text))) << text;
    }
}

TEST(DerWriter, WritesTheShortestLength) {
    for (const std::size_t size : {0U, 1U, 127U, 128U, 255U, 256U, 65535U, 65536U}) {
        const Bytes der = der::octetString(Bytes(size, 0xAB));
        EXPECT_EQ(der::readOnly(der).content.size(), size);
        EXPECT_TRUE((opensslAgrees<d2i_ASN1_OCTET_STRING, i2d_ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>(der))) << size;
    }
}

TEST(DerWriter, WritesNumbersAsOpenSslDoes) {
    for (const std::int64_t value :
         {std::int64_t{0}, std::int64_t{1}, std::int64_t{127}, std::int64_t{128}, std::int64_t{-1}, std::int64_t{-128},
          std::int64_t{-129}, std::int64_t{0x7FFFFFFF}, std::int64_t{0x80000000}, std::int64_t{0xFFFFFFFF},
          std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
        const Bytes der = der::integer(value);
        const unsigned char* at = der.data();
        ASN1_INTEGER* const number = d2i_ASN1_INTEGER(nullptr, &at, static_cast<long>(der.size()));
        std::int64_t read = 0;
        ASSERT_NE(number, nullptr);
        EXPECT_EQ(ASN1_INTEGER_get_int64(&read, number), 1);
        EXPECT_EQ(read, value);
        ASN1_INTEGER_free(number);
    }
    EXPECT_EQ(failureOf([] { der::integer(ByteView{}); }), capi::CRYPT_E_BAD_ENCODE);
}

TEST(DerWriter, SortsTheMembersOfASet) {
    const Bytes set = der::setOf({hex("04 01 02"), hex("02 01 05"), hex("04 01 01"), hex("04 02 00 00")});
    EXPECT_EQ(set, hex("31 0D 02 01 05 04 01 01 04 01 02 04 02 00 00"));
}

TEST(DerWriter, ClearsUnusedBits) {
    EXPECT_EQ(der::bitString(hex("FF"), 5), hex("03 02 05 E0"));
    EXPECT_EQ(failureOf([] { der::bitString({}, 1); }), capi::CRYPT_E_BAD_ENCODE);
    EXPECT_EQ(failureOf([] { der::bitString(hex("FF"), 8); }), capi::CRYPT_E_BAD_ENCODE);
}

TEST(DerWriter, RefusesWhatIsNoIdentifier) {
    for (const char* const text : {"", "1", "3.1", "1.40", "1..2", "1 2 3", "CN", "1.2.x", ".1.2", "1.2."}) {
        EXPECT_EQ(failureOf([&] { der::objectIdentifier(text); }), capi::CRYPT_E_OID_FORMAT) << text;
    }
}

TEST(DerWriter, TagsImplicitlyAndExplicitly) {
    EXPECT_EQ(der::explicitTag(1, hex("02 01 05")), hex("A1 03 02 01 05"));
    EXPECT_EQ(der::implicitTag(1, hex("02 01 05")), hex("81 01 05"));
    EXPECT_EQ(der::implicitTag(1, hex("30 03 02 01 05")), hex("A1 03 02 01 05"));
}

} // namespace

} // namespace klunortredi::csp::test
