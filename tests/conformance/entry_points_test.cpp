// Whether the service has each of the entry points that callers look up.

#include "fixture.hpp"

#include <array>
#include <string_view>

namespace conformance {

namespace {

constexpr std::array symbols{
#define CONFORMANCE_SYMBOL(reach, qualifier, result, member, pointer, symbol, parameters, arguments)                   \
    std::string_view(symbol),
    KLUNORTREDI_ENTRY_POINTS(CONFORMANCE_SYMBOL)
#undef CONFORMANCE_SYMBOL
};
static_assert(symbols.size() == KLUNORTREDI_ENTRY_POINT_COUNT);

class EntryPoint : public ConformanceTest, public testing::WithParamInterface<std::string_view> {};

std::string nameOfSymbol(const testing::TestParamInfo<std::string_view>& tested) {
    return std::string(tested.param);
}

} // namespace

TEST_P(EntryPoint, IsFoundPlainOrWithA) {
    EXPECT_TRUE(api().has(std::string(GetParam())));
}

INSTANTIATE_TEST_SUITE_P(Service, EntryPoint, testing::ValuesIn(symbols), nameOfSymbol);

} // namespace conformance
