#include "orvik/plugin/asn.hpp"
#include "orvik/plugin/converter.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using namespace std::string_literals;
namespace converter = orvik::plugin::converter;

TEST(Charset, WidensUtf8OfEveryLength) {
    EXPECT_EQ(converter::utf8_to_utf16("A\xD0\x96\xE2\x82\xAC\xF0\x9F\x94\x91"), L"A\u0416\u20AC\U0001F511");
    EXPECT_EQ(converter::utf8_to_utf16(""), L"");
    EXPECT_EQ(converter::utf8_to_utf16("a\0b"s), L"a\0b"s);
}

TEST(Charset, NarrowsWideTextToUtf8) {
    EXPECT_EQ(converter::utf16_to_utf8(L"A\u0416\u20AC\U0001F511"), "A\xD0\x96\xE2\x82\xAC\xF0\x9F\x94\x91");
    EXPECT_EQ(converter::utf16_to_utf8(L""), "");
    EXPECT_EQ(converter::utf16_to_utf8(L"a\0b"s), "a\0b"s);
}

// Longer than the buffer of one conversion step, at every alignment of a two-octet letter against it.
TEST(Charset, ConvertsLongTexts) {
    for (std::size_t shift = 0; shift < 3; ++shift) {
        const std::wstring text = std::wstring(shift, L'x') + std::wstring(5000, L'\u0416');
        EXPECT_EQ(converter::utf8_to_utf16(converter::utf16_to_utf8(text)), text) << shift;
    }
}

TEST(Charset, RefusesMalformedUtf8) {
    for (const auto& text : {"\x80"s, "\xD0"s, "\xC0\x80"s, "\xE2\x82"s, "\xED\xA0\x80"s, "\xF8\x88\x80\x80\x80"s,
                             "\xF4\x90\x80\x80"s, "ok\xFF"s}) {
        EXPECT_THROW(converter::utf8_to_utf16(text), std::range_error);
    }
}

TEST(Charset, RefusesWideTextThatIsNoUnicode) {
    EXPECT_THROW(converter::utf16_to_utf8(std::wstring(1, static_cast<wchar_t>(0xD800))), std::range_error);
    EXPECT_THROW(converter::utf16_to_utf8(std::wstring(1, static_cast<wchar_t>(0x110000))), std::range_error);
    EXPECT_THROW(converter::utf16_to_utf8(std::wstring(1, static_cast<wchar_t>(-1))), std::range_error);
}

TEST(Charset, ReadsWindows1251) {
    EXPECT_EQ(converter::cp1251_to_utf8("\xCA\xEE\xED\xF2\xE5\xE9\xED\xE5\xF0 \xB9"
                                        "1"),
              "Контейнер №1");
    EXPECT_EQ(converter::cp1251_to_utf16("\xA8\xB8\xDF\xFF"), L"\u0401\u0451\u042F\u044F");
    EXPECT_EQ(converter::cp1251_to_utf8(""), "");
}

// The one octet that Windows-1251 leaves undefined.
TEST(Charset, RefusesAnOctetThatWindows1251DoesNotHave) {
    EXPECT_THROW(converter::cp1251_to_utf8("a\x98"), std::range_error);
    EXPECT_THROW(converter::cp1251_to_utf16("a\x98"), std::range_error);
}

TEST(Asn, EncodesUtf8Strings) {
    EXPECT_EQ(orvik::plugin::asn::utf8String("user@example.org"), "\x0C\x10user@example.org");
    EXPECT_EQ(orvik::plugin::asn::utf8String(""), "\x0C\x00"s);
    EXPECT_EQ(orvik::plugin::asn::utf8String(std::string(200, 'x')), "\x0C\x81\xC8" + std::string(200, 'x'));
}

} // namespace
