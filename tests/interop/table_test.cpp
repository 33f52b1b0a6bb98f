// The table that the matrices of this folder are kept in.

#include "interop/table.hpp"

#include <gmock/gmock.h>

#include <array>
#include <sstream>

namespace interop {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::array notOffered = {NotOffered{"b*", "one", "b has none"}, NotOffered{"c", "*", "nobody is c"}};

TEST(InteropTable, PrintsEachCell) {
    Table table("Things", {"one", "two"}, notOffered);
    EXPECT_TRUE(table.offered("a", "one"));
    EXPECT_FALSE(table.offered("b", "one"));
    table.set("a", "one", true);
    table.set("a", "two", false);
    table.set("b", "two", true);
    std::ostringstream out;
    table.print(out);
    EXPECT_THAT(out.str(), testing::ContainsRegex("interop: a +ok +WRONG"));
    EXPECT_THAT(out.str(), testing::ContainsRegex("interop: b +n/o +ok"));
    EXPECT_THAT(out.str(), HasSubstr("b has none"));
}

TEST(InteropTable, NamesWhatIsWrongOrWasNotTriedAndReasonsWithoutACell) {
    Table table("Things", {"one", "two"}, notOffered);
    EXPECT_TRUE(table.offered("a", "one"));
    EXPECT_FALSE(table.offered("b", "one"));
    table.set("a", "one", false);
    table.set("a", "one", true);
    table.set("b", "two", true);
    EXPECT_THAT(table.wrong(), ElementsAre("a | one", "a | two"));
    EXPECT_THAT(table.unused(), ElementsAre("nobody is c"));
}

} // namespace
} // namespace interop
