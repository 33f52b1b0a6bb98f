// Error texts, memory, binary text, OID information, time, and the last error of a thread.

#include "fixture.hpp"

#include <array>
#include <cstring>
#include <ctime>
#include <thread>

namespace conformance {

namespace {

using namespace capi;

class Texts : public ConformanceTest {};
class OidInfo : public ConformanceTest {};
class Times : public ConformanceTest {};
class LastError : public ConformanceTest {};

constexpr DWORD unknownError = 0x8BADF00D;

std::uint64_t ticks(const FILETIME& time) {
    return (std::uint64_t{time.dwHighDateTime} << 32U) | time.dwLowDateTime;
}

std::string binaryToString(const Bytes& data, DWORD format) {
    DWORD length = 0;
    must(api().CryptBinaryToStringW(data.data(), sizeOf(data), format, nullptr, &length) != 0, "length of a text");
    std::string text(length, '?');
    must(api().CryptBinaryToStringW(data.data(), sizeOf(data), format, text.data(), &length) != 0, "text");
    EXPECT_EQ(std::strlen(text.c_str()), length) << "what was written is told without its zero";
    return text.c_str();
}

const CRYPT_OID_INFO& info(DWORD keyType, const void* key, DWORD group) {
    const PCCRYPT_OID_INFO found = api().CryptFindOIDInfo(keyType, key, group);
    must(found != nullptr, "finding an OID");
    return *found;
}

/// A moment as its parts.
SYSTEMTIME parts(WORD year, WORD month, WORD day, WORD hour = 0, WORD minute = 0, WORD second = 0, WORD ms = 0) {
    return {year, month, 0, day, hour, minute, second, ms};
}

} // namespace

TEST_F(Texts, OfErrorsAreAllocatedAndFreed) {
    for (const DWORD code : {ERROR_INVALID_PARAMETER, NTE_BAD_KEYSET, CRYPT_E_NOT_FOUND, ERROR_MORE_DATA}) {
        char* text = nullptr;
        const DWORD length = api().FormatMessageW(
            FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
            LANG_NEUTRAL_SUBLANG_DEFAULT, reinterpret_cast<char*>(&text), 0, nullptr);
        ASSERT_NE(length, 0U) << code;
        EXPECT_EQ(std::strlen(text), length);
        EXPECT_EQ(api().LocalFree(text), nullptr);
    }
}

TEST_F(Texts, OfErrorsFitTheCallersBuffer) {
    std::array<char, 1024> buffer{};
    const DWORD flags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    const DWORD length = api().FormatMessageW(flags, nullptr, NTE_BAD_KEYSET, LANG_NEUTRAL_SUBLANG_DEFAULT,
                                              buffer.data(), buffer.size(), nullptr);
    EXPECT_GT(length, 0U);
    EXPECT_EQ(std::strlen(buffer.data()), length);
    EXPECT_REFUSED(api().FormatMessageW(flags, nullptr, NTE_BAD_KEYSET, LANG_NEUTRAL_SUBLANG_DEFAULT, buffer.data(),
                                        length, nullptr),
                   ERROR_INSUFFICIENT_BUFFER, ERROR_MORE_DATA);
}

TEST_F(Texts, OfUnknownErrorsAreRefused) {
    std::array<char, 1024> buffer{};
    EXPECT_REFUSED(api().FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, unknownError, LANG_NEUTRAL_SUBLANG_DEFAULT,
                                        buffer.data(), buffer.size(), nullptr),
                   ERROR_MR_MID_NOT_FOUND);
}

TEST_F(Texts, OfErrorsRefuseANullBuffer) {
    EXPECT_REFUSED(api().FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, NTE_BAD_KEYSET,
                                        LANG_NEUTRAL_SUBLANG_DEFAULT, nullptr, 0, nullptr),
                   BAD_ARGUMENT);
}

TEST_F(Texts, FreeingNothingIsNoError) {
    EXPECT_EQ(api().LocalFree(nullptr), nullptr);
}

TEST_F(Texts, OfBinaryDataAreBase64OrHexadecimal) {
    EXPECT_EQ(binaryToString(octets("abc"), CRYPT_STRING_BASE64), "YWJj\r\n");
    EXPECT_EQ(binaryToString(octets("abc"), CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF), "YWJj");
    EXPECT_EQ(binaryToString(octets("abc"), CRYPT_STRING_BASE64 | CRYPT_STRING_NOCR), "YWJj\n");
    EXPECT_EQ(binaryToString(fromHex("00ff1a"), CRYPT_STRING_HEXRAW | CRYPT_STRING_NOCRLF), "00ff1a");
}

TEST_F(Texts, OfBinaryDataAreArmoured) {
    EXPECT_EQ(binaryToString(octets("abc"), CRYPT_STRING_BASE64REQUESTHEADER),
              "-----BEGIN NEW CERTIFICATE REQUEST-----\r\nYWJj\r\n-----END NEW CERTIFICATE REQUEST-----\r\n");
    EXPECT_EQ(binaryToString(octets("abc"), CRYPT_STRING_BASE64HEADER),
              "-----BEGIN CERTIFICATE-----\r\nYWJj\r\n-----END CERTIFICATE-----\r\n");
}

TEST_F(Texts, OfBinaryDataBreakAfter64Characters) {
    const std::string text = binaryToString(Bytes(49, 0), CRYPT_STRING_BASE64);
    EXPECT_EQ(text, std::string(64, 'A') + "\r\nAA==\r\n");
}

TEST_F(Texts, OfBinaryDataRefuseBadArguments) {
    const Bytes data = octets("abc");
    DWORD length = 1;
    char character = '?';
    EXPECT_REFUSED(api().CryptBinaryToStringW(nullptr, 3, CRYPT_STRING_BASE64, nullptr, &length), BAD_ARGUMENT);
    EXPECT_REFUSED(api().CryptBinaryToStringW(data.data(), 3, CRYPT_STRING_BASE64, nullptr, nullptr), BAD_ARGUMENT);
    EXPECT_REFUSED(api().CryptBinaryToStringW(data.data(), 3, 0x77, nullptr, &length), BAD_ARGUMENT);
    length = 1;
    EXPECT_REFUSED(api().CryptBinaryToStringW(data.data(), 3, CRYPT_STRING_BASE64, &character, &length),
                   ERROR_MORE_DATA);
    EXPECT_EQ(length, 7U) << "the size needed";
    EXPECT_EQ(character, '?');
}

TEST_F(OidInfo, KnowsHashesByOidAndNumber) {
    const auto& byOid = info(CRYPT_OID_INFO_OID_KEY, "2.16.840.1.101.3.4.2.1", CRYPT_HASH_ALG_OID_GROUP_ID);
    EXPECT_EQ(byOid.u.Algid, CALG_SHA_256);
    EXPECT_EQ(byOid.dwGroupId, CRYPT_HASH_ALG_OID_GROUP_ID);
    EXPECT_GE(byOid.cbSize, offsetof(CRYPT_OID_INFO, ExtraInfo) + sizeof(CRYPT_DATA_BLOB));
    const ALG_ID id = CALG_SHA_256;
    EXPECT_STREQ(info(CRYPT_OID_INFO_ALGID_KEY, &id, CRYPT_HASH_ALG_OID_GROUP_ID).pszOID, "2.16.840.1.101.3.4.2.1");
}

TEST_F(OidInfo, KnowsTheGostAlgorithms) {
    EXPECT_EQ(info(CRYPT_OID_INFO_OID_KEY, "1.2.643.7.1.1.2.2", CRYPT_HASH_ALG_OID_GROUP_ID).u.Algid,
              CALG_GR3411_2012_256);
    EXPECT_EQ(info(CRYPT_OID_INFO_OID_KEY, "1.2.643.7.1.1.2.3", 0).u.Algid, CALG_GR3411_2012_512);
    EXPECT_EQ(info(CRYPT_OID_INFO_OID_KEY, "1.2.643.7.1.1.1.1", CRYPT_PUBKEY_ALG_OID_GROUP_ID).u.Algid,
              CALG_GR3410_12_256);
    EXPECT_EQ(info(CRYPT_OID_INFO_OID_KEY, "1.2.643.7.1.1.3.2", CRYPT_SIGN_ALG_OID_GROUP_ID).u.Algid,
              CALG_GR3411_2012_256);
}

TEST_F(OidInfo, KnowsSignaturesByTheirTwoAlgorithms) {
    const std::array<ALG_ID, 2> rsa{CALG_SHA_256, CALG_RSA_SIGN};
    EXPECT_STREQ(info(CRYPT_OID_INFO_SIGN_KEY, rsa.data(), CRYPT_SIGN_ALG_OID_GROUP_ID).pszOID,
                 "1.2.840.113549.1.1.11");
    const std::array<ALG_ID, 2> gost{CALG_GR3411_2012_512, CALG_GR3410_12_512};
    EXPECT_STREQ(info(CRYPT_OID_INFO_SIGN_KEY, gost.data(), CRYPT_SIGN_ALG_OID_GROUP_ID).pszOID, "1.2.643.7.1.1.3.3");
}

TEST_F(OidInfo, KnowsNameAttributes) {
    const auto& commonName = info(CRYPT_OID_INFO_OID_KEY, "2.5.4.3", CRYPT_RDN_ATTR_OID_GROUP_ID);
    EXPECT_STREQ(commonName.pwszName, L"CN");
    EXPECT_STREQ(info(CRYPT_OID_INFO_NAME_KEY, L"CN", CRYPT_RDN_ATTR_OID_GROUP_ID).pszOID, "2.5.4.3");
}

TEST_F(OidInfo, RefusesWhatItDoesNotKnow) {
    EXPECT_REFUSED(api().CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, nullptr, 0), BAD_ARGUMENT);
    EXPECT_REFUSED(api().CryptFindOIDInfo(99, "2.5.4.3", 0), BAD_ARGUMENT, CRYPT_E_NOT_FOUND, 0);
    EXPECT_REFUSED(api().CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, "1.2.3.4.5.6.7.8", 0), CRYPT_E_NOT_FOUND, 0);
    EXPECT_REFUSED(api().CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, "2.5.4.3", CRYPT_HASH_ALG_OID_GROUP_ID),
                   CRYPT_E_NOT_FOUND, 0);
}

TEST_F(Times, ConvertToIntervalsSince1601) {
    FILETIME time{};
    SYSTEMTIME moment = parts(1601, 1, 1);
    EXPECT_ACCEPTED(api().SystemTimeToFileTime(&moment, &time));
    EXPECT_EQ(ticks(time), 0U);
    moment = parts(1970, 1, 1);
    EXPECT_ACCEPTED(api().SystemTimeToFileTime(&moment, &time));
    EXPECT_EQ(ticks(time), 116'444'736'000'000'000U);
    moment = parts(2023, 11, 14, 22, 13, 20, 7);
    EXPECT_ACCEPTED(api().SystemTimeToFileTime(&moment, &time));
    EXPECT_EQ(ticks(time), 133'444'736'000'070'000U);
    moment = parts(2024, 2, 29);
    EXPECT_ACCEPTED(api().SystemTimeToFileTime(&moment, &time));
}

TEST_F(Times, ThatDoNotExistAreRefused) {
    FILETIME time{};
    for (SYSTEMTIME moment : {parts(2023, 2, 29), parts(2023, 13, 1), parts(2023, 0, 1), parts(2023, 1, 1, 24),
                              parts(2023, 1, 1, 0, 60), parts(1600, 12, 31), parts(2023, 1, 1, 0, 0, 0, 1000)}) {
        EXPECT_REFUSED(api().SystemTimeToFileTime(&moment, &time), BAD_ARGUMENT);
    }
}

TEST_F(Times, RefuseNullPointers) {
    FILETIME time{};
    SYSTEMTIME moment = parts(2023, 1, 1);
    EXPECT_REFUSED(api().SystemTimeToFileTime(nullptr, &time), BAD_ARGUMENT);
    EXPECT_REFUSED(api().SystemTimeToFileTime(&moment, nullptr), BAD_ARGUMENT);
}

TEST_F(Times, OfNowAreUtc) {
    constexpr std::uint64_t perSecond = 10'000'000;
    constexpr std::uint64_t unixEpoch = 116'444'736'000'000'000;
    const auto before = static_cast<std::uint64_t>(std::time(nullptr));
    SYSTEMTIME now{};
    api().GetSystemTime(&now);
    const auto after = static_cast<std::uint64_t>(std::time(nullptr));
    FILETIME time{};
    ASSERT_TRUE(api().SystemTimeToFileTime(&now, &time));
    const std::uint64_t seconds = (ticks(time) - unixEpoch) / perSecond;
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, after);
}

TEST_F(LastError, IsWhatWasSet) {
    api().SetLastError(unknownError);
    EXPECT_EQ(api().GetLastError(), unknownError);
    api().SetLastError(0);
    EXPECT_EQ(api().GetLastError(), 0U);
}

TEST_F(LastError, IsOfOneThread) {
    api().SetLastError(unknownError);
    DWORD ofOther = unknownError;
    std::thread([&] {
        ofOther = api().GetLastError();
        api().CryptReleaseContext(0, 0);
    }).join();
    EXPECT_EQ(ofOther, 0U);
    EXPECT_EQ(api().GetLastError(), unknownError);
}

} // namespace conformance
