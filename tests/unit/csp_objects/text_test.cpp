#include "exports/export.hpp"
#include "support.hpp"
#include "text/binary_text.hpp"
#include "text/messages.hpp"
#include "text/unicode.hpp"

#include <openssl/evp.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>

namespace klunortredi::csp::test {

namespace {

using namespace capi;

constexpr DWORD fromSystem = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;

TEST(Unicode, RefusesMalformedText) {
    EXPECT_EQ(wideFromUtf8("Я😀"), L"Я😀");
    EXPECT_EQ(utf8FromWide(L"Я😀"), "Я😀");
    for (const char* const text : {"\x80", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                                   "\xF8\x88\x80\x80", "\xD0", "\xF0\x9F\x98"}) {
        EXPECT_FALSE(wideFromUtf8(text)) << text;
    }
    EXPECT_FALSE(utf8FromWide(std::wstring(1, static_cast<wchar_t>(0xD800))));
    EXPECT_FALSE(utf8FromWide(std::wstring(1, static_cast<wchar_t>(0x110000))));
    EXPECT_EQ(cp1251FromUtf8("Яё№"), "\xDF\xB8\xB9");
    EXPECT_FALSE(cp1251FromUtf8("😀"));
}

TEST(FormatMessage, HasATextForEveryErrorCodeThereIs) {
    const std::filesystem::path constants = CONSTANTS_HEADER;
    const std::regex row(R"(DWORD ((?:ERROR|SCARD|NTE|CRYPT_E|CERT_E|TRUST_E)_\w+) = (\w+);)");
    std::string line;
    std::size_t count = 0;
    for (const auto& path : {constants, constants.parent_path() / "skipped_entries.hpp"}) {
        std::ifstream header(path);
        ASSERT_TRUE(header) << path;
        while (std::getline(header, line)) {
            std::smatch match;
            if (std::regex_search(line, match, row)) {
                const auto code = static_cast<DWORD>(std::stoul(match[2], nullptr, 0));
                EXPECT_EQ(failureOf([&] { EXPECT_GT(errorMessage(code).size(), 10U); }), ERROR_SUCCESS) << match[1];
                ++count;
            }
        }
    }
    EXPECT_GE(count, 90U);
    EXPECT_EQ(errorTexts().size(), count);
}

TEST(FormatMessage, GivesWindows1251WithALineEnd) {
    std::array<char, 4096> buffer{};
    const DWORD size = exports::FormatMessageW(fromSystem, nullptr, NTE_BAD_SIGNATURE, LANG_NEUTRAL_SUBLANG_DEFAULT,
                                               buffer.data(), buffer.size(), nullptr);
    const std::string text(buffer.data(), size);
    EXPECT_EQ(text, *cp1251FromUtf8("Подпись неверна: данные изменены или подписаны другим ключом.") + "\r\n");
    EXPECT_EQ(buffer[size], '\0');
}

TEST(FormatMessage, FindsASystemErrorDressedAsAResult) {
    EXPECT_EQ(errorMessage(0x80070000 | ERROR_ACCESS_DENIED), errorMessage(ERROR_ACCESS_DENIED));
}

TEST(FormatMessage, AnUnknownCodeHasNoText) {
    std::array<char, 100> buffer{};
    setLastError(0);
    EXPECT_EQ(exports::FormatMessageW(fromSystem, nullptr, 0xDEADBEEF, 0, buffer.data(), buffer.size(), nullptr), 0U);
    EXPECT_EQ(lastError(), ERROR_MR_MID_NOT_FOUND);
}

TEST(FormatMessage, RefusesABufferWithoutRoomForTheZero) {
    const std::size_t size = errorMessage(ERROR_ACCESS_DENIED).size();
    std::vector<char> buffer(size, 'x');
    const auto length = static_cast<DWORD>(size);
    EXPECT_EQ(exports::FormatMessageW(fromSystem, nullptr, ERROR_ACCESS_DENIED, 0, buffer.data(), length, nullptr), 0U);
    EXPECT_EQ(lastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(buffer, std::vector<char>(size, 'x'));
    buffer.resize(size + 1);
    EXPECT_EQ(exports::FormatMessageW(fromSystem, nullptr, ERROR_ACCESS_DENIED, 0, buffer.data(), length + 1, nullptr),
              length);
}

TEST(FormatMessage, AllocatesABufferThatLocalFreeFrees) {
    char* text = nullptr;
    const DWORD size = exports::FormatMessageW(fromSystem | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, ERROR_CANCELLED, 0,
                                               reinterpret_cast<char*>(&text), 0, nullptr);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text), errorMessage(ERROR_CANCELLED));
    EXPECT_EQ(size, std::strlen(text));
    EXPECT_EQ(exports::LocalFree(text), nullptr);
    EXPECT_EQ(exports::LocalFree(nullptr), nullptr);
}

TEST(FormatMessage, RefusesOtherSourcesAndNoBuffer) {
    std::array<char, 100> buffer{};
    EXPECT_EQ(exports::FormatMessageW(0, nullptr, ERROR_CANCELLED, 0, buffer.data(), buffer.size(), nullptr), 0U);
    EXPECT_EQ(lastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(exports::FormatMessageW(fromSystem, nullptr, ERROR_CANCELLED, 0, nullptr, 100, nullptr), 0U);
    EXPECT_EQ(lastError(), ERROR_INVALID_PARAMETER);
}

TEST(BinaryToString, WritesTheFormats) {
    const Bytes data = hex("00 01 FE FF");
    EXPECT_EQ(binaryToText(data, CRYPT_STRING_BASE64), "AAH+/w==\r\n");
    EXPECT_EQ(binaryToText(data, CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF), "AAH+/w==");
    EXPECT_EQ(binaryToText(data, CRYPT_STRING_BASE64 | CRYPT_STRING_NOCR), "AAH+/w==\n");
    EXPECT_EQ(binaryToText(data, CRYPT_STRING_HEXRAW), "0001feff\r\n");
    EXPECT_EQ(binaryToText(data, CRYPT_STRING_HEXRAW | CRYPT_STRING_NOCRLF), "0001feff");
    EXPECT_EQ(binaryToText(data, CRYPT_STRING_BASE64HEADER),
              "-----BEGIN CERTIFICATE-----\r\nAAH+/w==\r\n-----END CERTIFICATE-----\r\n");
    EXPECT_EQ(binaryToText(data, CRYPT_STRING_BASE64REQUESTHEADER),
              "-----BEGIN NEW CERTIFICATE REQUEST-----\r\nAAH+/w==\r\n-----END NEW CERTIFICATE REQUEST-----\r\n");
}

TEST(BinaryToString, WrapsAfter64CharactersAndIsReadBackByOpenSsl) {
    for (std::size_t size = 1; size < 200; ++size) {
        Bytes data(size);
        for (std::size_t i = 0; i < size; ++i) {
            data[i] = static_cast<std::uint8_t>(i * 37);
        }
        const std::string text = binaryToText(data, CRYPT_STRING_BASE64);
        const std::size_t characters = (size + 2) / 3 * 4;
        EXPECT_EQ(text.size(), characters + (characters + 63) / 64 * 2);
        EVP_ENCODE_CTX* const context = EVP_ENCODE_CTX_new();
        Bytes back(text.size());
        int first = 0;
        int rest = 0;
        EVP_DecodeInit(context);
        ASSERT_GE(EVP_DecodeUpdate(context, back.data(), &first, reinterpret_cast<const unsigned char*>(text.data()),
                                   static_cast<int>(text.size())),
                  0);
        ASSERT_EQ(EVP_DecodeFinal(context, back.data() + first, &rest), 1);
        EVP_ENCODE_CTX_free(context);
        back.resize(static_cast<std::size_t>(first + rest));
        EXPECT_EQ(back, data);
    }
}

TEST(BinaryToString, CountsTheZeroWhenAskedForTheSizeAndNotWhenWriting) {
    const Bytes data = hex("00 01 FE FF");
    DWORD size = 0;
    ASSERT_TRUE(
        exports::CryptBinaryToStringW(data.data(), 4, CRYPT_STRING_HEXRAW | CRYPT_STRING_NOCRLF, nullptr, &size));
    EXPECT_EQ(size, 9U);
    std::array<char, 9> out{};
    DWORD small = 8;
    EXPECT_FALSE(
        exports::CryptBinaryToStringW(data.data(), 4, CRYPT_STRING_HEXRAW | CRYPT_STRING_NOCRLF, out.data(), &small));
    EXPECT_EQ(lastError(), ERROR_MORE_DATA);
    EXPECT_EQ(small, 9U);
    ASSERT_TRUE(
        exports::CryptBinaryToStringW(data.data(), 4, CRYPT_STRING_HEXRAW | CRYPT_STRING_NOCRLF, out.data(), &size));
    EXPECT_EQ(size, 8U);
    EXPECT_STREQ(out.data(), "0001feff");
}

TEST(BinaryToString, RefusesUnknownFormatsAndNoData) {
    const Bytes data = hex("00");
    DWORD size = 0;
    for (const DWORD flags : {DWORD{2}, DWORD{99}, DWORD{0x20000000}}) {
        EXPECT_FALSE(exports::CryptBinaryToStringW(data.data(), 1, flags, nullptr, &size));
        EXPECT_EQ(lastError(), ERROR_INVALID_PARAMETER);
    }
    EXPECT_FALSE(exports::CryptBinaryToStringW(data.data(), 0, CRYPT_STRING_BASE64, nullptr, &size));
    EXPECT_FALSE(exports::CryptBinaryToStringW(nullptr, 1, CRYPT_STRING_BASE64, nullptr, &size));
    EXPECT_FALSE(exports::CryptBinaryToStringW(data.data(), 1, CRYPT_STRING_BASE64, nullptr, nullptr));
}

} // namespace

} // namespace klunortredi::csp::test
