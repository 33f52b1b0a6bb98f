// First use, and everything after it, from several threads.

#include "keys/provider_context.hpp"
#include "service.hpp"

#include <atomic>
#include <barrier>
#include <filesystem>
#include <fstream>
#include <thread>

namespace csp_keys {

namespace {

constexpr DWORD gost = capi::PROV_GOST_2012_256;
constexpr int threadCount = 8;

class Threads : public ServiceTest {
protected:
    /// Runs `body` in all threads at once.
    template <class Body>
    static void together(Body body) {
        std::barrier start(threadCount);
        std::vector<std::thread> threads;
        for (int i = 0; i < threadCount; ++i) {
            threads.emplace_back([&, i] {
                start.arrive_and_wait();
                body(i);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
};

} // namespace

TEST_F(Threads, FirstUseHashesAndSignsOnObjectsOfTheirOwn) {
    std::atomic<int> right = 0;
    together([&right](int number) {
        const std::wstring name = L"c" + std::to_wstring(number);
        makeContainer(gost, name.c_str(), "1234");
        const Context context(gost, name.c_str(), 0);
        setPin(context.get(), "1234", capi::PIN_VERIFY);
        unsigned long key = 0;
        CryptGetUserKey(context.get(), capi::AT_KEYEXCHANGE, &key);
        for (int round = 0; round < 5; ++round) {
            const Hash hash(context.get(), capi::CALG_GR3411_2012_256, bytes("abc"));
            const Bytes signature = sign(hash.get(), capi::AT_KEYEXCHANGE);
            right += CryptVerifySignatureW(hash.get(), signature.data(), 64, key, nullptr, 0);
        }
        CryptDestroyKey(key);
    });
    EXPECT_EQ(right, 5 * threadCount);
}

TEST_F(Threads, ShareOneContext) {
    makeContainer(gost, L"c", "1234");
    const Context context(gost, L"c", 0);
    ASSERT_TRUE(setPin(context.get(), "1234", capi::PIN_PRESENT));
    std::atomic<int> right = 0;
    together([&](int) {
        CryptContextAddRef(context.get(), nullptr, 0);
        const Hash hash(context.get(), capi::CALG_GR3411_2012_256);
        right += sign(hash.get(), capi::AT_KEYEXCHANGE).size() == 64 ? 1 : 0;
        CryptReleaseContext(context.get(), 0);
    });
    EXPECT_EQ(right, threadCount);
    EXPECT_EQ(provNumber(context.get(), capi::PP_PIN_TRIES_REMAINING), 10U);
}

TEST_F(Threads, EachMakesContainersOfOtherNames) {
    std::atomic<int> refusals = 0;
    together([&](int number) {
        for (int round = 0; round < 100; ++round) {
            const std::wstring name = L"c" + std::to_wstring(number);
            unsigned long handle = 0;
            refusals += CryptAcquireContextW(&handle, name.c_str(), nullptr, gost, capi::CRYPT_NEWKEYSET) == 0 ? 1 : 0;
            CryptReleaseContext(handle, 0);
        }
    });
    EXPECT_EQ(refusals, 0) << "without a key pair, a name is free again when its context is released";
}

TEST_F(Threads, ANameIsFreeOnceItsContextIsReleasedAlsoWhereOneStillLooksAtIt) {
    Context first(gost, L"c", capi::CRYPT_NEWKEYSET);
    const auto looking = klunortredi::csp::providerContext(first.get());
    first.release();
    const Context second(gost, L"c", capi::CRYPT_NEWKEYSET);
}

TEST_F(Threads, EachMakesAContainerWhereAKilledProcessLeftOne) {
    std::atomic<int> refusals = 0;
    for (int round = 0; round < 10; ++round) {
        for (int number = 0; number < threadCount; ++number) {
            const std::string draft = home_ / ("containers/.new-c" + std::to_string(number) + ".80");
            std::filesystem::create_directories(draft);
            std::ofstream(draft + "/container.json") << "{";
        }
        together([&](int number) {
            const std::wstring name = L"c" + std::to_wstring(number);
            unsigned long handle = 0;
            refusals += CryptAcquireContextW(&handle, name.c_str(), nullptr, gost, capi::CRYPT_NEWKEYSET) == 0 ? 1 : 0;
            CryptReleaseContext(handle, 0);
        });
    }
    EXPECT_EQ(refusals, 0);
}

TEST_F(Threads, OneOfThemMakesAContainerOfOneName) {
    std::atomic<int> made = 0;
    std::atomic<int> taken = 0;
    together([&](int) {
        unsigned long handle = 0;
        if (CryptAcquireContextW(&handle, L"c", nullptr, gost, capi::CRYPT_NEWKEYSET) == 0) {
            taken += GetLastError() == capi::NTE_EXISTS ? 1 : 0;
            return;
        }
        unsigned long key = 0;
        made += CryptGenKey(handle, capi::AT_KEYEXCHANGE, 0, &key);
        CryptDestroyKey(key);
        CryptReleaseContext(handle, 0);
    });
    EXPECT_EQ(made, 1);
    EXPECT_EQ(taken, threadCount - 1);
}

} // namespace csp_keys
