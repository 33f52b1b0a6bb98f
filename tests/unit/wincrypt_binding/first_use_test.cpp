// First use from several threads at once.

#include "binding.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"

#include <barrier>
#include <thread>

namespace wincrypt_binding {
namespace {

constexpr int threads = 8;

/// Runs `action` in every thread, all starting together.
template <class Action>
void together(Action action) {
    std::barrier start(threads);
    std::vector<std::jthread> workers;
    for (int i = 0; i < threads; ++i) {
        workers.emplace_back([&, i] {
            start.arrive_and_wait();
            action(i);
        });
    }
}

class FirstUse : public DoubleFixture {
protected:
    FirstUse() : DoubleFixture(Slots{.vipNet = "vipnet", .cryptoPro = "full"}) {
        service().providers[""] = {cryptoProProvider()};
    }
};

TEST_F(FirstUse, ByEightThreadsPicksOneService) {
    together([](int) {
        const wincrypt::HCRYPTPROV context(L"", cryptoProName, orvik::plugin::crypto::IProvider::gost2012_256,
                                           capi::CRYPT_VERIFYCONTEXT, nullptr);
        wincrypt::HCRYPTHASH hash;
        EXPECT_TRUE(wincrypt::CryptCreateHash(context.get(), capi::CALG_SHA1, 0, 0, hash.put()));
        EXPECT_TRUE(wincrypt::CryptHashData(hash.get(), nullptr, 0, 0));
        EXPECT_EQ(wincrypt::tools::exportProviderName(context.get()), cryptoProName);
    });
    for (const auto& call : service().calls()) {
        EXPECT_EQ(call.library, "vipnet");
    }
}

TEST_F(FirstUse, ByEightThreadsKeepsEachThreadsLastError) {
    together([](int i) {
        wincrypt::SetLastErrorEx(static_cast<unsigned>(i + 1));
        const SystemException exception;
        EXPECT_EQ(exception.code().value(), i + 1);
        EXPECT_EQ(exception.error(), "CryptoError: " + std::to_string(i + 1));
        EXPECT_EQ(exception.code().message(), "");
    });
}

TEST_F(FirstUse, ByEightThreadsGivesEveryThreadTheSameProviders) {
    together([](int) {
        EXPECT_EQ(wincrypt::EnumProvidersEx().size(), 1U);
        EXPECT_EQ(wincrypt::CoInitializeEx(3), 1U);
        EXPECT_EQ(wincrypt::CoInitializeEx(4), 1U);
    });
}

class FirstUseWithoutService : public DoubleFixture {
protected:
    FirstUseWithoutService() : DoubleFixture(Slots{}) {}
};

TEST_F(FirstUseWithoutService, ByEightThreadsThrowsInEach) {
    together([](int) {
        EXPECT_EQ(thrownBy<CryptoException>([] { wincrypt::CryptGenRandom(1, 0, nullptr); }), noServiceInstalled);
    });
}

} // namespace
} // namespace wincrypt_binding
