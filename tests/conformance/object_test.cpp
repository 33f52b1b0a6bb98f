// CryptEncodeObject and CryptDecodeObject: the structures that callers use, each with its DER.

#include "object_rows.hpp"
#include "samples.hpp"

#include <algorithm>
#include <iterator>

namespace conformance {

namespace {

using namespace capi;

bool encode(const char* type, const void* info, void* buffer, DWORD* size) {
    return api().CryptEncodeObject(X509_AND_PKCS_7, type, info, static_cast<BYTE*>(buffer), size) != 0;
}

bool decode(const char* type, const Bytes& der, void* buffer, DWORD* size) {
    return api().CryptDecodeObject(X509_AND_PKCS_7, type, der.data(), sizeOf(der), 0, buffer, size) != 0;
}

class Structure : public ConformanceTest, public testing::WithParamInterface<ObjectRow> {
protected:
    const char* const type_ = GetParam().type;
    const Bytes der_ = fromHex(GetParam().der);
    DWORD size_ = 0;
};

/// Structures that have one type alone. X509_UNICODE_NAME_VALUE takes whatever there is: what is no text comes encoded.
class TypedStructure : public Structure {
public:
    static std::vector<ObjectRow> rows() {
        std::vector<ObjectRow> typed;
        std::ranges::copy_if(objectRows(), std::back_inserter(typed),
                             [](const ObjectRow& row) { return row.type != numbered(X509_UNICODE_NAME_VALUE); });
        return typed;
    }
};

class AnyObject : public ConformanceTest {
protected:
    DWORD size_ = 0;
};

} // namespace

TEST_P(Structure, IsEncodedAsItsDer) {
    const Bytes made =
        walkSizes([&](void* buffer, DWORD* size) { return encode(type_, GetParam().info, buffer, size); });
    EXPECT_EQ(toHex(made), GetParam().der);
}

TEST_P(Structure, IsDecodedToWhatEncodesAlike) {
    const Bytes block = walkSizes([&](void* buffer, DWORD* size) { return decode(type_, der_, buffer, size); });
    const Bytes again = fetch([&](void* buffer, DWORD* size) { return encode(type_, block.data(), buffer, size); });
    EXPECT_EQ(toHex(again), GetParam().der);
}

TEST_P(Structure, IsRefusedWhenItBreaksOff) {
    for (std::size_t size = 1; size < der_.size(); ++size) {
        const Bytes part(der_.begin(), der_.begin() + static_cast<long>(size));
        EXPECT_FALSE(decode(type_, part, nullptr, &size_)) << size;
    }
}

TEST_P(TypedStructure, IsRefusedUnderAnotherTag) {
    Bytes other = der_;
    other[0] = 0x05;
    EXPECT_FALSE(decode(type_, other, nullptr, &size_));
}

TEST_P(Structure, IsNotEncodedFromNothing) {
    EXPECT_REFUSED(encode(type_, nullptr, nullptr, &size_), BAD_ARGUMENT);
}

INSTANTIATE_TEST_SUITE_P(Rows, Structure, testing::ValuesIn(objectRows()), nameOfObjectRow);
INSTANTIATE_TEST_SUITE_P(Rows, TypedStructure, testing::ValuesIn(TypedStructure::rows()), nameOfObjectRow);

TEST_F(AnyObject, OfAnUnknownTypeIsRefused) {
    const LONG number = 1;
    const Bytes der = fromHex("020101");
    for (const char* const type : {numbered(9999), "1.2.3.4.5.6"}) {
        EXPECT_REFUSED(encode(type, &number, nullptr, &size_), ERROR_FILE_NOT_FOUND);
        EXPECT_REFUSED(decode(type, der, nullptr, &size_), ERROR_FILE_NOT_FOUND);
    }
}

TEST_F(AnyObject, InAnUnknownEncodingIsRefused) {
    const LONG number = 1;
    const Bytes der = fromHex("020101");
    EXPECT_REFUSED(api().CryptEncodeObject(0, numbered(X509_INTEGER), &number, nullptr, &size_), ERROR_FILE_NOT_FOUND);
    EXPECT_REFUSED(api().CryptDecodeObject(0, numbered(X509_INTEGER), der.data(), sizeOf(der), 0, nullptr, &size_),
                   ERROR_FILE_NOT_FOUND);
}

TEST_F(AnyObject, OfNullOctetsIsRefused) {
    EXPECT_REFUSED(api().CryptDecodeObject(X509_ASN_ENCODING, numbered(X509_INTEGER), nullptr, 3, 0, nullptr, &size_),
                   BAD_ARGUMENT, CRYPT_E_ASN1_EOD);
}

TEST_F(AnyObject, IntegerBeyond32BitsIsRefused) {
    EXPECT_REFUSED(decode(numbered(X509_INTEGER), fromHex("02050100000000"), nullptr, &size_), CRYPT_E_ASN1_LARGE);
}

TEST_F(AnyObject, CertificateIsTakenApart) {
    const Bytes block = walkSizes(
        [&](void* buffer, DWORD* size) { return decode(numbered(X509_CERT), samples::leaf(), buffer, size); });
    const auto& parts = as<CERT_SIGNED_CONTENT_INFO>(block);
    EXPECT_STREQ(parts.SignatureAlgorithm.pszObjId, "1.2.840.113549.1.1.11");
    EXPECT_EQ(parts.Signature.cbData, 256U);
    EXPECT_LT(parts.ToBeSigned.cbData, samples::leaf().size());
    const Bytes again =
        fetch([&](void* buffer, DWORD* size) { return encode(numbered(X509_CERT), block.data(), buffer, size); });
    EXPECT_EQ(again, samples::leaf());
}

TEST_F(AnyObject, TextsAreDecodedToWideCharacters) {
    const Bytes block = fetch([&](void* buffer, DWORD* size) {
        return decode(numbered(X509_UNICODE_NAME_VALUE), fromHex("0c04d0afd18f"), buffer, size);
    });
    const auto& value = as<CERT_NAME_VALUE>(block);
    EXPECT_EQ(value.dwValueType, CERT_RDN_UTF8_STRING);
    EXPECT_STREQ(reinterpret_cast<const wchar_t*>(value.Value.pbData), L"Яя");
}

TEST_F(AnyObject, ValueThatIsNoTextIsDecodedAsItsEncoding) {
    const Bytes der = fromHex("020101");
    const Bytes block =
        fetch([&](void* buffer, DWORD* size) { return decode(numbered(X509_UNICODE_NAME_VALUE), der, buffer, size); });
    const auto& value = as<CERT_NAME_VALUE>(block);
    EXPECT_EQ(value.dwValueType, CERT_RDN_ENCODED_BLOB);
    EXPECT_EQ(bytesOf(value.Value), der);
}

TEST_F(AnyObject, TimesBefore2050AreUtcTimes) {
    const Bytes block = fetch([&](void* buffer, DWORD* size) {
        return decode(numbered(X509_CHOICE_OF_TIME),
                      octets("\x17\x0D"
                             "231114221320Z"),
                      buffer, size);
    });
    const auto& time = as<FILETIME>(block);
    EXPECT_EQ((std::uint64_t{time.dwHighDateTime} << 32U) | time.dwLowDateTime, 133'444'736'000'000'000U);
}

} // namespace conformance
