// The fuzz target's property over messages made here, damaged in every octet, and over the published malformed ones.

#include "signing.hpp"

#include <gtest/gtest.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace klunortredi::test {
namespace {

void replay(const Bytes& input) {
    ASSERT_EQ(LLVMFuzzerTestOneInput(input.data(), input.size()), 0);
}

/// `message`, and `message` with each octet changed or missing from there on.
void replayDamaged(const Bytes& message) {
    replay(message);
    for (std::size_t i = 0; i < message.size(); ++i) {
        Bytes damaged = message;
        damaged[i] ^= static_cast<std::uint8_t>(1U << (i % 8));
        replay(damaged);
        damaged.resize(i);
        replay(damaged);
    }
}

class FuzzReplay : public testing::TestWithParam<KeyKind> {};

TEST_P(FuzzReplay, HoldsForDamagedMessagesOfEveryForm) {
    const Signer signer = makeSigner(GetParam());
    const Bytes content = bytes("content");
    SignOptions options;
    replayDamaged(sign({signer}, content, options)); // indefinite lengths
    options.attributes = someAttributes();
    options.streamed = false;
    replayDamaged(sign({signer}, content, options)); // DER
    options.detached = true;
    replayDamaged(sign({signer}, content, options));
}

INSTANTIATE_TEST_SUITE_P(Keys, FuzzReplay, testing::Values(KeyKind::Gost256, KeyKind::Rsa),
                         [](const auto& row) { return row.index == 0 ? "Gost256" : "Rsa"; });

TEST(FuzzReplayCorpora, HoldsForPublishedMalformedMessages) {
    const auto folder = corpora() / "malformed" / "ossl-cms";
    if (!std::filesystem::is_directory(folder)) {
        GTEST_SKIP() << "the folder of published cases is not at hand (KLUNORTREDI_CORPORA)";
    }
    std::size_t replayed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        replay(readFile(entry.path()));
        ++replayed;
    }
    EXPECT_GT(replayed, 100U);
}

} // namespace
} // namespace klunortredi::test
