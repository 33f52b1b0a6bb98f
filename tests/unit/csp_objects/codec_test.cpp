#include "objects/codec.hpp"

#include "exports/export.hpp"
#include "samples.hpp"
#include "support.hpp"

namespace klunortredi::csp::test {

namespace {

using namespace capi;

TEST(ObjectCodec, RefusesUnknownStructureTypesAndEncodings) {
    const LONG five = 5;
    const Bytes der = hex("02 01 05");
    DWORD size = 0;
    for (const char* const structType : {type(DWORD{0}), type(DWORD{9999}), "1.2.3", "", "27"}) {
        EXPECT_EQ(failureOf([&] { encodeObject(X509_ASN_ENCODING, structType, &five); }), ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(failureOf([&] { decodeObject(X509_ASN_ENCODING, structType, der, 0, nullptr, &size); }),
                  ERROR_FILE_NOT_FOUND);
    }
    for (const DWORD encoding : {DWORD{0}, DWORD{2}, DWORD{0x20000}}) {
        EXPECT_EQ(failureOf([&] { encodeObject(encoding, type(X509_INTEGER), &five); }), ERROR_FILE_NOT_FOUND);
    }
}

TEST(ObjectCodec, EveryRowAnswersToEitherEncodingAndToBoth) {
    for (const Sample& sample : samples()) {
        DWORD sizes[3] = {};
        DWORD* size = sizes;
        for (const DWORD encoding : {X509_ASN_ENCODING, PKCS_7_ASN_ENCODING, X509_AND_PKCS_7}) {
            decodeObject(encoding, sample.structType, sample.der, 0, nullptr, size++);
        }
        EXPECT_EQ(sizes[0], sizes[1]);
        EXPECT_EQ(sizes[0], sizes[2]);
    }
}

TEST(ObjectCodec, EveryRowGivesBackItsSamples) {
    for (const Sample& sample : samples()) {
        const Decoded<std::byte> decoded(sample.structType, sample.der);
        Bytes expected = sample.der;
        if (sample.structType == type(X509_CERT_TO_BE_SIGNED)) {
            const auto whole = decode<CERT_SIGNED_CONTENT_INFO>(X509_CERT, sample.der);
            expected = bytes(whole->ToBeSigned);
        }
        EXPECT_EQ(encodeObject(X509_AND_PKCS_7, sample.structType, &*decoded), expected)
            << ::testing::PrintToString(sample.der);
    }
}

TEST(ObjectCodec, FollowsTheTwoCallProtocol) {
    Bytes value = hex("01 02 03");
    const CRYPT_DATA_BLOB info = blob(value);
    DWORD size = 0;
    ASSERT_TRUE(exports::CryptEncodeObject(X509_ASN_ENCODING, type(X509_OCTET_STRING), &info, nullptr, &size));
    EXPECT_EQ(size, 5U);

    Bytes out(5, 0xEE);
    DWORD small = 4;
    setLastError(0);
    EXPECT_FALSE(exports::CryptEncodeObject(X509_ASN_ENCODING, type(X509_OCTET_STRING), &info, out.data(), &small));
    EXPECT_EQ(lastError(), ERROR_MORE_DATA);
    EXPECT_EQ(small, 5U);
    EXPECT_EQ(out, Bytes(5, 0xEE));

    ASSERT_TRUE(exports::CryptEncodeObject(X509_ASN_ENCODING, type(X509_OCTET_STRING), &info, out.data(), &size));
    EXPECT_EQ(out, hex("04 03 01 02 03"));
    EXPECT_FALSE(exports::CryptEncodeObject(X509_ASN_ENCODING, type(X509_OCTET_STRING), &info, out.data(), nullptr));
    EXPECT_EQ(lastError(), ERROR_INVALID_PARAMETER);
}

TEST(ObjectCodec, DecodesByTheTwoCallProtocol) {
    const Bytes der = hex("04 03 01 02 03");
    DWORD size = 0;
    ASSERT_TRUE(
        exports::CryptDecodeObject(X509_ASN_ENCODING, type(X509_OCTET_STRING), der.data(), 5, 0, nullptr, &size));
    ASSERT_EQ(size, sizeof(CRYPT_DATA_BLOB) + 3);
    alignas(8) BYTE block[sizeof(CRYPT_DATA_BLOB) + 3];
    DWORD small = size - 1;
    EXPECT_FALSE(
        exports::CryptDecodeObject(X509_ASN_ENCODING, type(X509_OCTET_STRING), der.data(), 5, 0, block, &small));
    EXPECT_EQ(lastError(), ERROR_MORE_DATA);
    EXPECT_EQ(small, size);
    ASSERT_TRUE(exports::CryptDecodeObject(X509_ASN_ENCODING, type(X509_OCTET_STRING), der.data(), 5, 0, block, &size));
    const auto* const info = reinterpret_cast<const CRYPT_DATA_BLOB*>(block);
    EXPECT_EQ(bytes(*info), hex("01 02 03"));
    EXPECT_EQ(info->pbData, block + sizeof(CRYPT_DATA_BLOB));
}

TEST(ObjectCodec, RefusesNullArguments) {
    DWORD size = 0;
    EXPECT_FALSE(exports::CryptEncodeObject(X509_ASN_ENCODING, type(X509_INTEGER), nullptr, nullptr, &size));
    EXPECT_EQ(lastError(), ERROR_INVALID_PARAMETER);
    EXPECT_FALSE(exports::CryptDecodeObject(X509_ASN_ENCODING, type(X509_INTEGER), nullptr, 3, 0, nullptr, &size));
    EXPECT_EQ(lastError(), ERROR_INVALID_PARAMETER);
    EXPECT_FALSE(exports::CryptDecodeObject(X509_ASN_ENCODING, type(X509_INTEGER), nullptr, 0, 0, nullptr, &size));
    EXPECT_EQ(lastError(), CRYPT_E_ASN1_EOD);
    EXPECT_FALSE(exports::CryptEncodeObject(X509_ASN_ENCODING, nullptr, &size, nullptr, &size));
    EXPECT_EQ(lastError(), ERROR_FILE_NOT_FOUND);
}

TEST(ObjectCodec, RefusesArraysThatAreNotThere) {
    const CRYPT_SEQUENCE_OF_ANY sequence{2, nullptr};
    EXPECT_EQ(failureOf([&] { encode(X509_SEQUENCE_OF_ANY, sequence); }), ERROR_INVALID_PARAMETER);
    const CERT_NAME_INFO name{1, nullptr};
    EXPECT_EQ(failureOf([&] { encode(capi::X509_NAME, name); }), ERROR_INVALID_PARAMETER);
    const CERT_ENHKEY_USAGE usage{1, nullptr};
    EXPECT_EQ(failureOf([&] { encode(X509_ENHANCED_KEY_USAGE, usage); }), ERROR_INVALID_PARAMETER);
}

TEST(ObjectCodec, RefusesWhatIsTooLarge) {
    Bytes huge = hex("04 84 01 00 00 00");
    huge.resize((16U << 20U) + 6);
    DWORD size = 0;
    EXPECT_EQ(failureOf([&] { decodeObject(X509_ASN_ENCODING, type(X509_OCTET_STRING), huge, 0, nullptr, &size); }),
              CRYPT_E_ASN1_LARGE);
}

} // namespace

} // namespace klunortredi::csp::test
