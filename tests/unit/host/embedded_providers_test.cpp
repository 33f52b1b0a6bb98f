// The framework's records of the embedded service's providers are what the service says of itself.
#include "keys/providers.hpp"
#include "orvik/plugin/crypto/tools.hpp"

#include <gmock/gmock.h>

#include <string>

namespace {

namespace tools = orvik::plugin::crypto::tools;
using orvik::plugin::crypto::IProvider;
using testing::Contains;

TEST(EmbeddedProviders, StandInTheFrameworksTable) {
    for (const auto& provider : klunortredi::csp::providers) {
        const auto info = tools::providerInfo({provider.name.data(), provider.name.size()});
        ASSERT_TRUE(info) << provider.name;
        EXPECT_EQ(static_cast<DWORD>(info->type), provider.type);
        EXPECT_EQ(info->kind, IProvider::Kind::embedded);
        EXPECT_EQ(info->family, IProvider::Family::cryptoPro);
        EXPECT_THAT(info->algorithms, Contains(std::string(provider.keyOid)));
        for (const auto set : {provider.exchangeSet, provider.signatureSet}) {
            if (!set.empty()) {
                EXPECT_THAT(info->paramSets, Contains(std::string(set)));
            }
        }
    }
}

TEST(EmbeddedProviders, AreAllThatTheTableHasOfThem) {
    const auto& infos = tools::providerInfos();
    const auto count = std::count_if(infos.begin(), infos.end(),
                                     [](const auto& info) { return info.kind == IProvider::Kind::embedded; });
    EXPECT_EQ(static_cast<std::size_t>(count), klunortredi::csp::providers.size());
}

} // namespace
