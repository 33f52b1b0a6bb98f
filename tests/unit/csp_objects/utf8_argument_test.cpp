#include "objects/utf8_argument.hpp"

#include "support.hpp"
#include "text/unicode.hpp"

namespace klunortredi::csp::test {

namespace {

using capi::ERROR_SUCCESS;

/// Wide text as a caller of form (a) hands it in: the number of characters, in a block that ends with the last of them.
std::string ofCharacters(std::u32string_view text) {
    const auto block = std::make_unique<char32_t[]>(text.size());
    std::memcpy(block.get(), text.data(), text.size() * sizeof(char32_t));
    return utf8Argument({static_cast<DWORD>(text.size()), reinterpret_cast<BYTE*>(block.get())});
}

/// Octets as a caller of form (b) hands them in, in a block of exactly their size, terminated or not. Behind a single
/// one the block goes on, so that what is found there does not depend on the heap.
std::string ofOctets(std::string_view text, bool terminated = false) {
    const std::size_t size = text.size() + (terminated ? 1 : 0);
    Bytes block(text.size() == 1 ? 4 : size, 0xAA);
    std::memcpy(block.data(), text.data(), text.size());
    if (terminated) {
        block[text.size()] = 0;
    }
    return utf8Argument({static_cast<DWORD>(text.size()), block.data()});
}

/// Wide text as a caller of form (c) hands it in: the number of octets, and a zero behind them.
std::string ofWideOctets(std::wstring text) {
    return utf8Argument({static_cast<DWORD>(text.size() * sizeof(wchar_t)), reinterpret_cast<BYTE*>(text.data())});
}

TEST(Utf8Argument, EmptyIsEmptyWhateverThePointer) {
    EXPECT_EQ(utf8Argument({0, nullptr}), "");
    EXPECT_EQ(ofCharacters(U""), "");
}

TEST(Utf8Argument, ReadsWideCharactersByTheirNumber) {
    EXPECT_EQ(ofCharacters(U"A"), "A");
    EXPECT_EQ(ofCharacters(U"Я"), "Я");
    EXPECT_EQ(ofCharacters(U"ё"), "ё");
    EXPECT_EQ(ofCharacters(U"é"), "é");
    EXPECT_EQ(ofCharacters(U"№"), "№");
    EXPECT_EQ(ofCharacters(U"ab"), "ab");
    EXPECT_EQ(ofCharacters(U"ИП"), "ИП");
    EXPECT_EQ(ofCharacters(U"RU1"), "RU1");
    EXPECT_EQ(ofCharacters(U"ООО"), "ООО");
    EXPECT_EQ(ofCharacters(U"😀😀"), "😀😀");
    EXPECT_EQ(ofCharacters(U"Иванов Иван"), "Иванов Иван");
    EXPECT_EQ(ofCharacters(U"Test 1\tline\n"), "Test 1\tline\n");
}

TEST(Utf8Argument, ReadsEveryCharacterOfTheBasicPlaneAloneAndBeforeTwoOthers) {
    for (char32_t c = 1; c < 0x10000; ++c) {
        if (c >= 0xD800 && c < 0xE000) {
            continue;
        }
        const std::u32string text(1, c);
        const std::string utf8 = ofCharacters(text);
        EXPECT_EQ(wideFromUtf8(utf8), std::wstring(1, static_cast<wchar_t>(c))) << std::hex << static_cast<unsigned>(c);
        EXPECT_EQ(ofCharacters(text + U"Жж"), utf8 + "Жж") << std::hex << static_cast<unsigned>(c);
    }
}

TEST(Utf8Argument, ReadsPairsOfCharactersExceptThoseThatLookLikeOctets) {
    for (char32_t c = 1; c < 0xD800; ++c) {
        const std::u32string text(1, c);
        const std::string alone = ofCharacters(text);
        std::string pair;
        const DWORD error = failureOf([&] { pair = ofCharacters(text + U"Ж"); });
        if (pair == alone + "Ж") {
            continue;
        }
        // Everything below Devanagari, and every sign of general punctuation that is in use in Russian, is read.
        EXPECT_GE(c, 0x0900U) << std::hex << static_cast<unsigned>(c);
        EXPECT_EQ(std::u32string_view(U"№–—“”„‘’").find(c), std::u32string_view::npos);
        if (error == ERROR_SUCCESS) {
            EXPECT_EQ(pair, (std::string{static_cast<char>(c), static_cast<char>(c >> 8U)}));
        } else {
            EXPECT_EQ(error, capi::CRYPT_E_BAD_ENCODE);
        }
    }
}

TEST(Utf8Argument, ReadsOctetsByTheirNumber) {
    for (const char* const text : {"A", "/", "1", "RU", "abc", "test", "Я", "ИП", "ООО", "Иванов Иван", "a\tb", "😀",
                                   "tests", "sixsix", "seven77"}) {
        EXPECT_EQ(ofOctets(text), text);
        EXPECT_EQ(ofOctets(text, true), text);
    }
}

TEST(Utf8Argument, ReadsOneOctetInsideALongerText) {
    alignas(8) const char text[] = "1;2=3\0\0";
    const auto* const octets = reinterpret_cast<const BYTE*>(text);
    for (const std::size_t at : {0U, 2U, 4U}) {
        EXPECT_EQ(utf8Argument({1, const_cast<BYTE*>(octets + at)}), std::string(1, text[at]));
    }
}

TEST(Utf8Argument, ReadsTerminatedWideCharactersByTheirOctets) {
    EXPECT_EQ(ofWideOctets(L"A"), "A");
    EXPECT_EQ(ofWideOctets(L"Я"), "Я");
    EXPECT_EQ(ofWideOctets(L"Иванов Иван"), "Иванов Иван");
}

TEST(Utf8ArgumentInOctets, ReadsWideCharactersToTheirLastOctetAndNoFurther) {
    for (const std::size_t count : {std::size_t{1}, std::size_t{2}, std::size_t{6}}) {
        std::wstring text = L"Иванов";
        const std::wstring wanted = text.substr(0, count);
        // More of the same follows at once, where a reader that counts characters goes on.
        text = wanted + std::wstring(64, L'!');
        const CRYPTOAPI_BLOB value{static_cast<DWORD>(count * sizeof(wchar_t)), reinterpret_cast<BYTE*>(text.data())};
        EXPECT_EQ(wideFromUtf8(utf8ArgumentInOctets(value)), wanted);
    }
}

TEST(Utf8ArgumentInOctets, ReadsOctetsOfUtf8) {
    for (std::string text : {"", "A", "RU", "abc", "test", "Иванов", "😀", "eight888"}) {
        EXPECT_EQ(utf8ArgumentInOctets({static_cast<DWORD>(text.size()), reinterpret_cast<BYTE*>(text.data())}), text);
    }
}

TEST(Utf8ArgumentInOctets, RefusesWhatIsNoText) {
    for (const std::u32string_view wide : {std::u32string_view(U"a\0b", 3), std::u32string_view(U"a\xD800", 2)}) {
        std::u32string text(wide);
        const auto size = static_cast<DWORD>(text.size() * sizeof(char32_t));
        EXPECT_EQ(failureOf([&] {
                      utf8ArgumentInOctets({size, reinterpret_cast<BYTE*>(text.data())});
                  }),
                  capi::CRYPT_E_BAD_ENCODE);
    }
    EXPECT_EQ(failureOf([] { utf8ArgumentInOctets({5, nullptr}); }), capi::ERROR_INVALID_PARAMETER);
}

TEST(Utf8Argument, RefusesWhatIsNoText) {
    for (const char* const text : {"\xFF\xFE", "\xC8\xE2", "\xC8\xE2\xE0"}) {
        EXPECT_EQ(failureOf([&] { ofOctets(text); }), capi::CRYPT_E_BAD_ENCODE);
        EXPECT_EQ(failureOf([&] { ofOctets(text, true); }), capi::CRYPT_E_BAD_ENCODE);
    }
    EXPECT_EQ(failureOf([] { ofOctets("\xC8\xE2\xE0\xED\xEE\xE2"); }), capi::CRYPT_E_BAD_ENCODE);
    EXPECT_EQ(failureOf([] { ofOctets(std::string_view("abcde\0fgh", 9)); }), capi::CRYPT_E_BAD_ENCODE);
    EXPECT_EQ(failureOf([] { ofCharacters(U"\x0416\xD800\x0416\x0416"); }), capi::CRYPT_E_BAD_ENCODE);
    EXPECT_EQ(failureOf([] { ofCharacters(std::u32string(5, char32_t{0x110000})); }), capi::CRYPT_E_BAD_ENCODE);
    EXPECT_EQ(failureOf([] { ofCharacters(std::u32string_view(U"ab\0cde", 6)); }), capi::CRYPT_E_BAD_ENCODE);
    EXPECT_EQ(failureOf([] { utf8Argument({5, nullptr}); }), capi::ERROR_INVALID_PARAMETER);
}

} // namespace

} // namespace klunortredi::csp::test
