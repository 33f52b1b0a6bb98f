#include "orvik/plugin/constant.hpp"
#include "orvik/plugin/tools.hpp"

#include <gmock/gmock.h>

#include <string>

namespace {

namespace constant = orvik::plugin::constant;
namespace tools = orvik::plugin::tools;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

auto cut(const std::string& text) {
    return tools::split(text, constant::kv_separator, constant::value_separator);
}

TEST(CheckBounds, TakesBothEnds) {
    EXPECT_TRUE(tools::check_bounds(2, 2, 102400));
    EXPECT_TRUE(tools::check_bounds(102400, 2, 102400));
    EXPECT_FALSE(tools::check_bounds(1, 2, 102400));
    EXPECT_FALSE(tools::check_bounds(0, 2, 102400));
    EXPECT_FALSE(tools::check_bounds(102401, 2, 102400));
}

TEST(Split, KeepsTheOrderAndRepeatedKeys) {
    EXPECT_THAT(cut("2.5.4.3=Name;2.5.4.11=B;2.5.4.11=A"),
                ElementsAre(Pair("2.5.4.3", "Name"), Pair("2.5.4.11", "B"), Pair("2.5.4.11", "A")));
}

TEST(Split, TrimsBlanksAroundKeysOnly) {
    EXPECT_THAT(cut("2.5.4.3= Name ; 2.5.4.6 =RU"), ElementsAre(Pair("2.5.4.3", " Name "), Pair("2.5.4.6", "RU")));
}

TEST(Split, LeavesOutEmptyPieces) {
    EXPECT_THAT(cut("2.5.4.3=Name;"), ElementsAre(Pair("2.5.4.3", "Name")));
    EXPECT_THAT(cut(";; 2.5.4.3=Name; ;"), ElementsAre(Pair("2.5.4.3", "Name")));
    EXPECT_THAT(cut(""), IsEmpty());
    EXPECT_THAT(cut(" ; "), IsEmpty());
}

TEST(Split, LeavesLaterSeparatorsToTheValue) {
    EXPECT_THAT(cut("2.5.4.3=a=b==;k=v"), ElementsAre(Pair("2.5.4.3", "a=b=="), Pair("k", "v")));
}

TEST(Split, TakesAPieceWithoutSeparatorAsAKey) {
    EXPECT_THAT(cut("alone;k="), ElementsAre(Pair("alone", ""), Pair("k", "")));
}

TEST(Split, KeepsSeparatorsInsideQuotesInTheValue) {
    EXPECT_THAT(cut(R"(2.5.4.10=ООО "Рога; копыта";2.5.4.6=RU)"),
                ElementsAre(Pair("2.5.4.10", R"(ООО "Рога; копыта")"), Pair("2.5.4.6", "RU")));
}

TEST(Split, TakesAQuoteWithoutPartnerAsItIs) {
    EXPECT_THAT(cut(R"(k=5" disk;l=v)"), ElementsAre(Pair("k", R"(5" disk)"), Pair("l", "v")));
}

TEST(Split, KeepsSeparatorsBehindABackslashInTheValue) {
    EXPECT_THAT(cut(R"(k=a\;b;l=v)"), ElementsAre(Pair("k", R"(a\;b)"), Pair("l", "v")));
    EXPECT_THAT(cut("k=a\\"), ElementsAre(Pair("k", "a\\")));
}

TEST(Split, CutsAtSeparatorsOfSeveralCharacters) {
    EXPECT_THAT(tools::split("a->1, b->2", "->", ", "), ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST(Icontains, IgnoresTheCaseOfEveryAlphabet) {
    EXPECT_TRUE(tools::icontains(L"Crypto-Pro GOST R 34.10-2012 KC1 CSP", L"gost r"));
    EXPECT_TRUE(tools::icontains(L"Провайдер ГОСТ", L"гост"));
    EXPECT_TRUE(tools::icontains(L"anything", L""));
    EXPECT_FALSE(tools::icontains(L"GOST", L"GOST R"));
    EXPECT_FALSE(tools::icontains(L"", L"x"));
}

} // namespace
