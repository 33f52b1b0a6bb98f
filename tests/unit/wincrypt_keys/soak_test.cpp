// Many signatures of 1 KiB in one process: after the first hundred neither memory nor open files grow.
#include "embedded_fixture.hpp"

#include "crypto/wincrypt/signature_factory.hpp"
#include "crypto/wincrypt/tools_verify.hpp"
#include "orvik/plugin/crypto/i_hash.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <malloc.h>
#include <sstream>
#include <thread>

#if defined(KLUNORTREDI_ADDRESS_SANITIZED)
extern "C" std::size_t __sanitizer_get_current_allocated_bytes(); // its header comes with other compilers only
#endif

namespace wincrypt_keys {
namespace {

using orvik::plugin::wincrypt::Certificate;

/// Octets that the process has allocated and not freed.
std::size_t heap() {
#if defined(KLUNORTREDI_ADDRESS_SANITIZED)
    return __sanitizer_get_current_allocated_bytes();
#else
    const auto info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

/// By how much that may differ for no reason of ours. One block lost per signature is more.
constexpr std::size_t allowance = 8192;

/// How many signatures are made; KLUNORTREDI_SOAK_ROUNDS asks for more.
constexpr int fewestRounds = 1000;
int rounds() {
    const char* const asked = std::getenv("KLUNORTREDI_SOAK_ROUNDS");
    return std::max(fewestRounds, asked == nullptr ? 0 : std::atoi(asked));
}

std::ptrdiff_t openFiles() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

class EmbeddedSoak : public EmbeddedFixture, public testing::WithParamInterface<KeyKind> {
protected:
    static constexpr int warmUp = 100;

    /// Runs `sign(round)` that often. Each part has a thread of its own, because what the allocator keeps for a
    /// thread's next calls counts as allocated until the thread ends.
    template <class Sign>
    static void soak(Sign sign) {
        inThread(0, warmUp, sign);
        const auto heapBefore = heap();
        const auto filesBefore = openFiles();
        inThread(warmUp, rounds(), sign);
        EXPECT_LE(heap(), heapBefore + allowance);
        EXPECT_EQ(openFiles(), filesBefore);
    }

    static std::string text(int round) {
        auto text = std::to_string(round);
        text.resize(1024, '.');
        return text;
    }

private:
    template <class Sign>
    static void inThread(int first, int last, Sign& sign) {
        std::thread([&] {
            for (int round = first; round < last && !HasFatalFailure(); ++round) {
                sign(round);
            }
        }).join();
    }
};

TEST_P(EmbeddedSoak, HashSignaturesKeepNothing) {
    const auto certificate = signer(GetParam(), L"soak");
    const auto own = provider(GetParam());
    soak([&](int round) {
        const auto hash = own.hash(certificate, GetParam().hashOid);
        std::istringstream stream(text(round));
        hash->create(stream);
        const std::string signature = hash->sign();
        ASSERT_TRUE(round % 100 != 0 || hash->verify(signature)) << round;
    });
    EXPECT_EQ(dialogues_, 1U);
}

TEST_P(EmbeddedSoak, MessagesMadeAndCheckedKeepNothing) {
    const auto certificate = signer(GetParam(), L"soak");
    soak([&](int round) {
        const orvik::plugin::wincrypt::SignatureFactory factory("detached");
        const auto creator = factory.creator({});
        const auto params = creator->params();
        dynamic_cast<orvik::plugin::crypto::SignatureFactory::Creator::Params&>(*params).certificate = certificate;
        creator->initialize(*params);
        const std::string data = text(round);
        creator->update(reinterpret_cast<const unsigned char*>(data.data()), data.size());
        std::vector<unsigned char> signature;
        ASSERT_TRUE(creator->finalize(signature)) << round;
        if (round % 10 == 0) {
            std::istringstream message(std::string(signature.begin(), signature.end()));
            std::istringstream content(data);
            ASSERT_TRUE(orvik::plugin::wincrypt::tools::verify(message, boost::optional<std::istream&>(content)))
                << round;
        }
    });
    EXPECT_EQ(dialogues_, 1U);
}

INSTANTIATE_TEST_SUITE_P(Kinds, EmbeddedSoak, testing::Values(gost256, gost512, rsa),
                         testing::PrintToStringParamName());

} // namespace
} // namespace wincrypt_keys
