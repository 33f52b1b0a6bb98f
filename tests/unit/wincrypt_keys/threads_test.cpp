// Eight threads at once on the embedded service: first use, hashing and signing, each on objects of its own.
#include "embedded_fixture.hpp"

#include "orvik/plugin/crypto/i_hash.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/session.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <latch>
#include <sstream>
#include <thread>

namespace wincrypt_keys {
namespace {

using orvik::plugin::Session;
using orvik::plugin::wincrypt::Certificate;
using orvik::plugin::wincrypt::Provider;

constexpr unsigned threadCount = 8;

/// Runs `work(index)` in every thread, all starting together.
template <class Work>
void inThreads(Work work) {
    std::latch start(threadCount);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < threadCount; ++i) {
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            work(i);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

class EmbeddedThreads : public EmbeddedFixture {};

TEST_F(EmbeddedThreads, FirstUseIsSafe) {
    std::vector<std::string> digests(threadCount);
    inThreads([&](unsigned i) {
        const auto own = provider(gost256);
        EXPECT_EQ(own.providers(Session::instance()).size(), 4U);
        EXPECT_TRUE(own.hasAlgorithm(gost256.keyOid));
        EXPECT_TRUE(Provider::provider(L"rsa"));
        EXPECT_EQ(own.randomBytes(32).size(), 32U);
        EXPECT_TRUE(own.version());
        EXPECT_TRUE(own.containers().empty());
        std::istringstream stream("one text for all");
        digests[i] = own.hash(nullptr, gost256.hashOid)->create(stream);
    });
    EXPECT_THAT(digests, testing::Each(digests.front()));
    EXPECT_EQ(digests.front().size(), 32U);
}

TEST_F(EmbeddedThreads, HashAndSignOnTheirOwnObjects) {
    std::vector<std::string> raw;
    for (unsigned i = 0; i < threadCount; ++i) {
        const auto& kind = i % 2 == 0 ? gost256 : rsa;
        raw.push_back(issue(makeContainer(kind, L"ключ " + std::to_wstring(i))));
    }
    std::vector<std::string> signatures(threadCount);
    inThreads([&](unsigned i) {
        const auto& kind = i % 2 == 0 ? gost256 : rsa;
        const auto certificate = boost::make_shared<Certificate>(raw[i]);
        ASSERT_TRUE(certificate->link(provider(kind), L"ключ " + std::to_wstring(i)));
        for (int round = 0; round < 5; ++round) {
            const auto hash = provider(kind).hash(certificate, kind.hashOid);
            std::istringstream stream(std::string(100'000, static_cast<char>('a' + i)));
            hash->create(stream);
            signatures[i] = hash->sign();
            EXPECT_TRUE(hash->verify(signatures[i]));
        }
        EXPECT_TRUE(certificate->privateKey()->authenticated());
    });
    EXPECT_EQ(dialogues_, threadCount);
    for (unsigned i = 0; i < threadCount; ++i) {
        EXPECT_TRUE(opensslAccepts(i % 2 == 0 ? gost256 : rsa, Certificate(raw[i]),
                                   std::string(100'000, static_cast<char>('a' + i)), signatures[i]))
            << i;
    }
}

} // namespace
} // namespace wincrypt_keys
